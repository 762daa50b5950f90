// Reading a configuration document and assembling the pipeline from it.
#include <algorithm>
#include <cstdio>

#include <rapidjson/filereadstream.h>

#include "framework/AlgoFactory.h"
#include "framework/LidarAlgo.h"
#include "framework/Messages.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr std::size_t kReadBufferBytes = 65536;

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
  document.ParseStream(stream);
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

  std::lock_guard<std::mutex> lock(mutex);
  algos.clear();
  const rapidjson::Value* list = FindMember(document, "algo_list");
  if (list != nullptr && list->IsArray()) {
    for (const rapidjson::Value& entry : list->GetArray()) {
      std::shared_ptr<AlgoBase> algo = AssembleEntry(entry, dataFolder);
      if (algo) {
        algos.push_back(algo);
        PrintLine("[algo]: " + algo->name + " is added!");
      }
    }
  }
  std::sort(algos.begin(), algos.end(),
            [](const std::shared_ptr<AlgoBase>& a, const std::shared_ptr<AlgoBase>& b) {
              return a->Id() < b->Id();
            });
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

  std::shared_ptr<AlgoBase> algo = ConfigureAlgo(
      id->GetInt64(), Text(*name), desc ? Text(*desc) : std::string(), lidar_type, param, dataFolder);
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
