#include "sim/Recording.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace velmar {
namespace sim {
namespace {

constexpr const char* kIndexFile = "recording.json";
constexpr const char* kFormatName = "velmar-recording";
constexpr int kFormatVersion = 1;

namespace fs = std::filesystem;
using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

[[noreturn]] void Fail(const std::string& path, const std::string& problem) {
  throw RecordingError(path + ": " + problem);
}

std::string IndexPath(const std::string& folder) {
  return (fs::path(folder) / kIndexFile).string();
}

void WriteIndex(const std::string& folder, const RecordingInfo& info) {
  rapidjson::StringBuffer buffer;
  JsonWriter w(buffer);
  w.StartObject();
  w.Key("format");
  w.String(kFormatName);
  w.Key("format_version");
  w.Int(kFormatVersion);
  w.Key("model");
  w.String(info.model.c_str());
  w.Key("lidar_type");
  w.Uint(info.lidarType);
  w.Key("packet_points");
  w.Uint(info.packetPoints);
  w.Key("frames");
  w.Uint(info.frames);
  w.Key("seed");
  w.Uint64(info.seed);
  w.Key("scene");
  w.StartObject();
  w.Key("name");
  w.String(info.scene.name.c_str());
  w.Key("ego_speed");
  w.Double(info.scene.egoSpeed);
  w.Key("ground_slope");
  w.Double(info.scene.groundSlope);
  // Written for turning drives only, so that the index of a straight drive stays as it was.
  if (info.scene.yawRate != 0.0) {
    w.Key("yaw_rate");
    w.Double(info.scene.yawRate);
  }
  w.EndObject();
  w.Key("noise");
  w.StartObject();
  for (const NoiseKindInfo& kind : NoiseKinds()) {
    w.Key(kind.name);
    w.Double(info.noise[kind.kind]);
  }
  w.EndObject();
  w.Key("attributes");
  w.StartObject();
  for (const auto& attribute : info.attributes) {
    w.Key(attribute.first.c_str());
    w.String(attribute.second.c_str());
  }
  w.EndObject();
  w.Key("frame_files");
  w.StartArray();
  for (uint32_t i = 0; i < info.frames; ++i) {
    w.String(FrameFileName(i).c_str());
  }
  w.EndArray();
  w.EndObject();

  const std::string path = IndexPath(folder);
  errno = 0;
  std::ofstream out(path, std::ios::trunc);
  out << buffer.GetString() << '\n';
  out.flush();
  if (!out) {
    Fail(path, WriteProblem("cannot write the file"));
  }
}

bool IsRecordingFolder(const fs::path& folder) {
  std::error_code error;
  return fs::is_regular_file(folder / kIndexFile, error);
}

bool IsEmptyFolder(const fs::path& folder) {
  std::error_code error;
  return fs::is_directory(folder, error) && fs::is_empty(folder, error);
}

// A destination that a staged folder may take the place of.
void CheckReplaceable(const std::string& destination) {
  std::error_code error;
  const fs::path path(destination);
  if (fs::symlink_status(path, error).type() == fs::file_type::not_found) {
    return;
  }
  if (!fs::is_symlink(path, error) && (IsEmptyFolder(path) || IsRecordingFolder(path))) {
    return;
  }
  Fail(destination, "exists and is not a recording folder; it is left as it is");
}

// Typed member access that names the offending key.
class IndexReader {
 public:
  IndexReader(const std::string& path, const rapidjson::Value& object)
      : path_(path), object_(object) {}

  const rapidjson::Value& Member(const char* key) const {
    auto it = object_.FindMember(key);
    if (it == object_.MemberEnd()) {
      Fail(path_, std::string("missing \"") + key + "\"");
    }
    return it->value;
  }
  std::string String(const char* key) const {
    const rapidjson::Value& v = Member(key);
    if (!v.IsString()) {
      Fail(path_, std::string("\"") + key + "\" must be a string");
    }
    return std::string(v.GetString(), v.GetStringLength());
  }
  uint32_t Uint(const char* key) const {
    const rapidjson::Value& v = Member(key);
    if (!v.IsUint()) {
      Fail(path_, std::string("\"") + key + "\" must be a non-negative integer");
    }
    return v.GetUint();
  }
  uint64_t Uint64(const char* key) const {
    const rapidjson::Value& v = Member(key);
    if (!v.IsUint64()) {
      Fail(path_, std::string("\"") + key + "\" must be a non-negative integer");
    }
    return v.GetUint64();
  }
  double Number(const char* key) const {
    const rapidjson::Value& v = Member(key);
    if (!v.IsNumber()) {
      Fail(path_, std::string("\"") + key + "\" must be a number");
    }
    return v.GetDouble();
  }
  IndexReader Object(const char* key) const {
    const rapidjson::Value& v = Member(key);
    if (!v.IsObject()) {
      Fail(path_, std::string("\"") + key + "\" must be an object");
    }
    return IndexReader(path_, v);
  }
  const rapidjson::Value& Value() const { return object_; }

 private:
  const std::string& path_;
  const rapidjson::Value& object_;
};

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    Fail(path, "cannot open the file (is this a recording folder?)");
  }
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

RecordingInfo ParseIndex(const std::string& path) {
  const std::string text = ReadWholeFile(path);
  rapidjson::Document doc;
  // Iterative: an index nested thousands of levels deep is refused, not a stack overflow.
  doc.Parse<rapidjson::kParseIterativeFlag>(text.c_str(), text.size());
  if (doc.HasParseError()) {
    Fail(path, std::string("invalid JSON at offset ") + std::to_string(doc.GetErrorOffset()) +
                   ": " + rapidjson::GetParseError_En(doc.GetParseError()));
  }
  if (!doc.IsObject()) {
    Fail(path, "the top level must be an object");
  }
  const IndexReader root(path, doc);
  if (root.String("format") != kFormatName) {
    Fail(path, std::string("\"format\" must be \"") + kFormatName + "\"");
  }
  if (root.Uint("format_version") != kFormatVersion) {
    Fail(path, "unsupported \"format_version\"");
  }
  RecordingInfo info;
  info.model = root.String("model");
  info.lidarType = root.Uint("lidar_type");
  info.packetPoints = root.Uint("packet_points");
  info.frames = root.Uint("frames");
  info.seed = root.Uint64("seed");
  const IndexReader scene = root.Object("scene");
  info.scene.name = scene.String("name");
  info.scene.egoSpeed = scene.Number("ego_speed");
  info.scene.groundSlope = scene.Number("ground_slope");
  if (scene.Value().HasMember("yaw_rate")) {
    info.scene.yawRate = scene.Number("yaw_rate");
  }
  const IndexReader noise = root.Object("noise");
  for (const NoiseKindInfo& kind : NoiseKinds()) {
    info.noise[kind.kind] = noise.Number(kind.name);
  }
  for (const auto& member : root.Object("attributes").Value().GetObject()) {
    if (!member.value.IsString()) {
      Fail(path, "attribute values must be strings");
    }
    info.attributes[member.name.GetString()] = member.value.GetString();
  }
  const rapidjson::Value& files = root.Member("frame_files");
  if (!files.IsArray() || files.Size() != info.frames) {
    Fail(path, "\"frame_files\" must list one file per frame");
  }
  for (uint32_t i = 0; i < info.frames; ++i) {
    if (!files[i].IsString() || FrameFileName(i) != files[i].GetString()) {
      Fail(path,
           "\"frame_files\" entry " + std::to_string(i) + " must be \"" + FrameFileName(i) + "\"");
    }
  }
  return info;
}

}  // namespace

std::string WriteProblem(const char* what) {
  return errno != 0 ? std::string(what) + " (" + std::strerror(errno) + ")" : std::string(what);
}

std::string FrameFileName(uint32_t index) {
  char name[32];
  std::snprintf(name, sizeof(name), "frame_%06u.pcd", index);
  return name;
}

RecordingWriter::RecordingWriter(const std::string& folder, const RecordingInfo& info)
    : folder_(folder), info_(info) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error || !fs::is_directory(folder)) {
    Fail(folder, "cannot create the recording folder");
  }
  info_.frames = 0;
}

RecordingWriter::~RecordingWriter() {
  // Unwinding means the recording is incomplete: it must not get an index that says otherwise.
  if (!closed_ && std::uncaught_exceptions() == 0) {
    try {
      Close();
    } catch (const RecordingError&) {
      // A destructor cannot report; callers that care call Close() themselves.
    }
  }
}

void RecordingWriter::WriteFrame(const std::vector<_ori_point>& frame) {
  if (closed_) {
    Fail(folder_, "the recording is already closed");
  }
  WritePcd((fs::path(folder_) / FrameFileName(info_.frames)).string(), frame);
  ++info_.frames;
}

void RecordingWriter::Close() {
  closed_ = true;
  WriteIndex(folder_, info_);
}

StagedFolder::StagedFolder(const std::string& destination)
    : destination_(fs::path(destination).lexically_normal().string()) {
  if (!destination_.empty() && destination_.back() == '/') {
    destination_.pop_back();
  }
  CheckReplaceable(destination_);
  std::error_code error;
  const fs::path parent = fs::path(destination_).parent_path();
  if (!parent.empty()) {
    fs::create_directories(parent, error);
  }
  std::string pattern = destination_ + ".partial-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    Fail(destination_, WriteProblem("cannot create a folder beside it"));
  }
  staging_ = pattern;
}

StagedFolder::~StagedFolder() {
  if (!committed_) {
    std::error_code error;
    fs::remove_all(staging_, error);
  }
}

void StagedFolder::Commit() {
  CheckReplaceable(destination_);
  if (rename(staging_.c_str(), destination_.c_str()) != 0) {
    // An existing recording: it is swapped out whole and then removed, so that at every moment
    // the destination holds one complete recording or the other.
    if (renameat2(AT_FDCWD, staging_.c_str(), AT_FDCWD, destination_.c_str(), RENAME_EXCHANGE) !=
        0) {
      Fail(destination_, WriteProblem("cannot move the finished folder into place"));
    }
    std::error_code error;
    fs::remove_all(staging_, error);
  }
  committed_ = true;
}

RecordingReader::RecordingReader(const std::string& folder)
    : folder_(folder), info_(ParseIndex(IndexPath(folder))) {}

std::string RecordingReader::FramePath(uint32_t index) const {
  return (fs::path(folder_) / FrameFileName(index)).string();
}

void RecordingReader::ReadFrame(uint32_t index, std::vector<_ori_point>& frame) const {
  if (index >= info_.frames) {
    Fail(IndexPath(folder_), "frame " + std::to_string(index) + " requested, the recording has " +
                                 std::to_string(info_.frames));
  }
  ReadPcd(FramePath(index), frame);
}

bool RecordingReader::NextFrame(std::vector<_ori_point>& frame) {
  if (next_ >= info_.frames) {
    return false;
  }
  ReadFrame(next_, frame);
  ++next_;
  return true;
}

}  // namespace sim
}  // namespace velmar
