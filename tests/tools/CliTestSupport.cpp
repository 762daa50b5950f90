#include "CliTestSupport.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include "sim/Recording.h"
#include "sim/SensorModel.h"

namespace velmar {
namespace clitest {
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

std::vector<uint64_t> Counts(const tools::OutcomeTally& tally, sim::TruthKind kind) {
  const tools::ClassCounts& c = tally[kind];
  return {c.returns, c.removed, c.flagged, c.moved, c.added, c.lost};
}

PngSize ReadPngSize(const std::string& path) {
  int width = 0;
  int height = 0;
  int channels = 0;
  if (stbi_info(path.c_str(), &width, &height, &channels) == 0) {
    return PngSize{};
  }
  return PngSize{static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
}

}  // namespace clitest
}  // namespace velmar
