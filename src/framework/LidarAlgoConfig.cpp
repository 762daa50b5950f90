// Reading a configuration document and assembling the pipeline from it.
#include <algorithm>
#include <cstdio>

#include <rapidjson/filereadstream.h>

#include "framework/AlgoFactory.h"
#include "framework/Algorithm.h"
#include "framework/LidarAlgo.h"
#include "framework/Messages.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr std::size_t kReadBufferBytes = 65536;
// Bookkeeping of one entry beyond its algorithm's footprint: the shared pointer's control block,
// the name and description, and a map node per parameter.
constexpr std::size_t kEntryBytes = 256;
constexpr std::size_t kParamNodeBytes = 96;
constexpr std::size_t kBytesPerMiB = std::size_t{1} << 20;

const rapidjson::Value* FindMember(const rapidjson::Value& object, const char* key) {
  const auto it = object.FindMember(key);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

std::string Text(const rapidjson::Value& value) {
  return std::string(value.GetString(), value.GetStringLength());
}

std::string IdText(const rapidjson::Value& id) {
  return id.IsInt64() ? std::to_string(id.GetInt64()) : std::to_string(id.GetUint64());
}

// The folder of a configuration file, ending in '/'; empty for a bare file name.
std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

bool IsEnabledEntry(const rapidjson::Value& entry) {
  if (!entry.IsObject()) {
    return false;
  }
  const rapidjson::Value* enabled = FindMember(entry, "enabled");
  return enabled != nullptr && enabled->IsTrue();
}

std::size_t StringBytes(const rapidjson::Value* value) {
  return value != nullptr && value->IsString() ? value->GetStringLength() : 0;
}

// What one enabled entry will hold once built; 0 for an entry that builds nothing.
std::size_t EntryFootprint(const rapidjson::Value& entry, LidarType type) {
  const rapidjson::Value* id = FindMember(entry, "id");
  if (id == nullptr || !id->IsInt64()) {
    return 0;
  }
  const rapidjson::Value* param = FindMember(entry, "param");
  std::size_t bytes =
      kEntryBytes + StringBytes(FindMember(entry, "name")) + StringBytes(FindMember(entry, "desc"));
  if (param != nullptr && param->IsObject()) {
    for (auto it = param->MemberBegin(); it != param->MemberEnd(); ++it) {
      bytes += kParamNodeBytes + it->name.GetStringLength() + StringBytes(&it->value);
    }
  }
  return bytes + AlgoFootprint(id->GetInt64(), type, param);
}

// The algo_list entries that are enabled, which are the ones assembly builds.
std::size_t EnabledEntries(const rapidjson::Value* list) {
  std::size_t count = 0;
  if (list != nullptr) {
    for (const rapidjson::Value& entry : list->GetArray()) {
      count += IsEnabledEntry(entry) ? 1 : 0;
    }
  }
  return count;
}

std::size_t ListFootprint(const rapidjson::Value* list, LidarType type) {
  std::size_t bytes = 0;
  if (list != nullptr) {
    for (const rapidjson::Value& entry : list->GetArray()) {
      bytes += IsEnabledEntry(entry) ? EntryFootprint(entry, type) : 0;
    }
  }
  return bytes;
}

std::string MiB(std::size_t bytes) {
  return std::to_string((bytes + kBytesPerMiB - 1) / kBytesPerMiB);
}

}  // namespace

bool LidarAlgo::ParseAlgoConfigFromFile(const std::string& path) {
  if (path.empty()) {
    PrintLine("[algo]: algo json file is empty!");
    return false;
  }
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    PrintLine("[algo]: open json file " + path + " failed!");
    return false;
  }
  std::vector<char> buffer(kReadBufferBytes);
  rapidjson::FileReadStream stream(file, buffer.data(), buffer.size());
  rapidjson::Document document;
  document.ParseStream<kJsonParseFlags>(stream);
  std::fclose(file);
  return ParseAlgoConfigImp(document, FolderOf(path));
}

bool LidarAlgo::ParseAlgoConfigImp(const rapidjson::Document& document) {
  return ParseAlgoConfigImp(document, std::string());
}

bool LidarAlgo::ParseAlgoConfigImp(const rapidjson::Document& document,
                                   const std::string& dataFolder) {
  if (document.HasParseError()) {
    PrintLine("[algo]: parse json failed!");
    return false;
  }
  if (!document.IsObject()) {
    PrintLine("[algo]: json root is not an object, configuration refused!");
    return false;
  }
  const rapidjson::Value* version = FindMember(document, "version");
  if (version == nullptr || !version->IsString() || Text(*version) != versionNumber) {
    PrintLine("[algo]: version unmatched, current algo version: " + versionNumber + "!");
    return false;
  }
  const rapidjson::Value* enabled = FindMember(document, "enabled");
  if (enabled != nullptr && enabled->IsBool() && !enabled->GetBool()) {
    PrintLine("[algo]: velmar point cloud process algo table disabled.");
    return true;
  }

  const rapidjson::Value* list = FindMember(document, "algo_list");
  if (list != nullptr && !list->IsArray()) {
    list = nullptr;
  }
  const std::size_t entries = EnabledEntries(list);
  if (entries > kMaxConfigEntries) {
    PrintLine("[algo]: algo_list has " + std::to_string(entries) + " enabled entries, more than " +
              std::to_string(kMaxConfigEntries) + ", configuration refused!");
    return false;
  }
  const std::size_t footprint = ListFootprint(list, lidar_type);

  // The new list is built beside the running one and swapped in whole: whatever fails while it
  // is built, the running list is untouched. Declared before the lock, the list replaced ends
  // up here and is released after the lock.
  std::vector<std::shared_ptr<AlgoBase>> built;
  std::lock_guard<std::mutex> lock(mutex);
  // The running list stays alive until the new one is complete, so both count.
  if (footprint > kMaxConfigBytes || running_footprint_ > kMaxConfigBytes - footprint) {
    PrintLine("[algo]: configuration needs about " + MiB(footprint + running_footprint_) +
              " MiB with the running one, more than " + MiB(kMaxConfigBytes) +
              " MiB, configuration refused!");
    return false;
  }
  built.reserve(entries);
  if (list != nullptr) {
    for (const rapidjson::Value& entry : list->GetArray()) {
      std::shared_ptr<AlgoBase> algo = AssembleEntry(entry, dataFolder);
      if (algo) {
        built.push_back(algo);
        PrintLine("[algo]: " + algo->name + " is added!");
      }
    }
  }
  std::sort(built.begin(), built.end(),
            [](const std::shared_ptr<AlgoBase>& a, const std::shared_ptr<AlgoBase>& b) {
              return a->Id() < b->Id();
            });
  for (const std::shared_ptr<AlgoBase>& algo : built) {
    if (auto* own = dynamic_cast<Algorithm*>(algo.get())) {
      own->JoinPipeline(built);
    }
  }
  algos.swap(built);
  running_footprint_ = footprint;
  return true;
}

std::shared_ptr<AlgoBase> LidarAlgo::AssembleEntry(const rapidjson::Value& entry,
                                                   const std::string& dataFolder) const {
  if (!entry.IsObject()) {
    PrintLine("[algo]: algo_list entry is not an object, entry skipped!");
    return nullptr;
  }
  const rapidjson::Value* enabled = FindMember(entry, "enabled");
  if (enabled == nullptr || !enabled->IsTrue()) {
    return nullptr;
  }
  const rapidjson::Value* id = FindMember(entry, "id");
  if (id == nullptr || !(id->IsInt64() || id->IsUint64())) {
    PrintLine("[algo]: algo id is missing or not an integer, entry skipped!");
    return nullptr;
  }
  if (!id->IsInt64() || id->GetInt64() < kFirstAlgoId || id->GetInt64() > kLastAlgoId) {
    PrintLine("[algo]: unknown packet algorithm id " + IdText(*id) + " !");
    return nullptr;
  }
  const rapidjson::Value* name = FindMember(entry, "name");
  if (name == nullptr || !name->IsString()) {
    PrintLine("[algo]: algo id " + IdText(*id) + " has no name string, entry skipped!");
    return nullptr;
  }
  // A missing description is harmless; one of another type is a malformed entry.
  const rapidjson::Value* desc = FindMember(entry, "desc");
  if (desc != nullptr && !desc->IsString()) {
    PrintLine("[algo]: " + Text(*name) + " desc is not a string, entry skipped!");
    return nullptr;
  }
  const rapidjson::Value* param = FindMember(entry, "param");
  if (param != nullptr && !param->IsObject()) {
    PrintLine("[algo]: " + Text(*name) + " param is not an object, entry skipped!");
    return nullptr;
  }
  const rapidjson::Value* lidarTypes = FindMember(entry, "lidar_type");
  if (lidarTypes != nullptr && !lidarTypes->IsArray()) {
    PrintLine("[algo]: " + Text(*name) + " lidar_type is not an array, entry skipped!");
    return nullptr;
  }

  std::shared_ptr<AlgoBase> algo =
      ConfigureAlgo(id->GetInt64(), Text(*name), desc ? Text(*desc) : std::string(), lidar_type,
                    param, dataFolder);
  return AcceptsModel(*algo, lidarTypes) ? algo : nullptr;
}

bool LidarAlgo::AcceptsModel(AlgoBase& algo, const rapidjson::Value* lidarTypes) const {
  const std::string current = LidarTypeToStr(static_cast<int>(lidar_type));
  if (lidarTypes == nullptr || lidarTypes->Empty()) {
    return algo.IsSupported(current);
  }
  for (const rapidjson::Value& type : lidarTypes->GetArray()) {
    if (type.IsString() && Text(type) == current && algo.IsSupported(current)) {
      return true;
    }
  }
  return false;
}

}  // namespace velmar
