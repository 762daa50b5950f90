#include "CliTestSupport.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/Recording.h"
#include "sim/SensorModel.h"

namespace velmar {
namespace clitest {
namespace {

constexpr unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
constexpr std::size_t kPngHeaderBytes = 24;  // signature, chunk length and type, width, height

uint32_t BigEndian32(const unsigned char* bytes) {
  return (static_cast<uint32_t>(bytes[0]) << 24) | (static_cast<uint32_t>(bytes[1]) << 16) |
         (static_cast<uint32_t>(bytes[2]) << 8) | static_cast<uint32_t>(bytes[3]);
}

}  // namespace

ScratchFolder::ScratchFolder() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "velmar-cli-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot create a scratch folder");
  }
  path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

CommandResult RunCli(const std::string& arguments, const ScratchFolder& scratch) {
  std::string out = scratch.Path("cli.out");
  std::string err = scratch.Path("cli.err");
  std::string line = std::string(VELMAR_ALGO_COMMAND) + " " + arguments + " >" + out + " 2>" + err;
  int raw = std::system(line.c_str());
  CommandResult result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  result.out = ReadText(out);
  result.err = ReadText(err);
  return result;
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

_ori_point TruthPoint(sim::TruthKind kind, double distance, double pulseWidth, double z) {
  _ori_point point{};
  point.y = distance;
  point.z = z;
  point.distance = distance;
  point.pulse_width = pulseWidth;
  point.intensity = 10.0;
  point.hor_angle = 90.0;
  point.reserved_a = sim::EncodeTruth(kind);
  return point;
}

void WriteRecording(const std::string& folder, const std::string& model,
                    const std::vector<std::vector<_ori_point>>& frames) {
  sim::RecordingInfo info;
  info.model = model;
  info.lidarType = sim::FindSensorModel(model)->type;
  info.packetPoints = 128;
  sim::RecordingWriter writer(folder, info);
  for (const std::vector<_ori_point>& frame : frames) {
    writer.WriteFrame(frame);
  }
  writer.Close();
}

std::vector<std::vector<_ori_point>> ReadRecording(const std::string& folder) {
  sim::RecordingReader reader(folder);
  std::vector<std::vector<_ori_point>> frames;
  std::vector<_ori_point> frame;
  while (reader.NextFrame(frame)) {
    frames.push_back(frame);
  }
  return frames;
}

sim::SimulationSettings Settings(const std::string& model, const std::string& scene,
                                 uint64_t seed) {
  sim::SimulationSettings settings;
  settings.model = model;
  settings.scene.name = scene;
  settings.seed = seed;
  settings.frames = 4;
  return settings;
}

std::vector<_ori_point> Generate(const sim::SimulationSettings& settings, uint32_t index) {
  std::vector<_ori_point> frame;
  sim::Simulator(settings).GenerateFrame(index, frame);
  return frame;
}

PngSize ReadPngSize(const std::string& path) {
  std::string bytes = ReadText(path);
  if (bytes.size() < kPngHeaderBytes ||
      bytes.compare(
          0, sizeof(kPngSignature),
          std::string(reinterpret_cast<const char*>(kPngSignature), sizeof(kPngSignature))) != 0 ||
      bytes.compare(12, 4, "IHDR") != 0) {
    return PngSize{};
  }
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  return PngSize{BigEndian32(data + 16), BigEndian32(data + 20)};
}

}  // namespace clitest
}  // namespace velmar
