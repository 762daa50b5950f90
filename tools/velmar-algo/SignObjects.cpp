#include "SignObjects.h"

#include <stdexcept>

#include "sim/Scene.h"
#include "sim/Simulator.h"

namespace velmar {
namespace tools {

SignObjects SignObjectsOf(const sim::RecordingInfo& info) {
  SignObjects signs;
  try {
    const sim::Simulator simulator(sim::SettingsOf(info));
    const std::vector<sim::SceneBox>& boxes = simulator.World().Boxes();
    signs.assign(boxes.size() + 1, 0);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      signs[i + 1] = boxes[i].retro ? 1 : 0;
    }
  } catch (const std::invalid_argument&) {
    signs.clear();  // not a scene the simulator knows
  }
  return signs;
}

}  // namespace tools
}  // namespace velmar
