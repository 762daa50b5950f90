#include "ToolsTestSupport.h"

#include <stdlib.h>

#include <stdexcept>

namespace velmar {
namespace test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "velmar-tools-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot create a temporary folder");
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
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
  sim::Simulator simulator(settings);
  std::vector<_ori_point> frame;
  simulator.GenerateFrame(index, frame);
  return frame;
}

}  // namespace test
}  // namespace velmar
