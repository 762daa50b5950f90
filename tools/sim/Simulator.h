// Frame generator: casts every beam of a sensor model into a scene, then adds the enabled noise
// and artefacts. Frame k depends only on the settings and k, so frames can be generated in any
// order and always come out the same.
#ifndef VELMAR_TOOLS_SIM_SIMULATOR_H
#define VELMAR_TOOLS_SIM_SIMULATOR_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/Recording.h"
#include "sim/SensorModel.h"
#include "sim/Settings.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

class Scene;
class FrameBuilder;
class ChannelResponse;

class Simulator {
 public:
  // Throws std::invalid_argument for an unknown model or scene, or a rate outside [0, 1].
  explicit Simulator(const SimulationSettings& settings);
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  const SensorModel& Model() const { return *model_; }
  const SimulationSettings& Settings() const { return settings_; }
  // The world the frames are cast from (objects and their motion), e.g. for checks and views.
  const Scene& World() const { return *scene_; }

  // Fills `frame` with frame `index` (Model().PointsPerFrame() points, the last one marked).
  // The vector's storage is reused from call to call.
  void GenerateFrame(uint32_t index, std::vector<_ori_point>& frame);
  // Generates the next frame of the run; false (and `frame` untouched) once Settings().frames
  // frames have been produced.
  bool NextFrame(std::vector<_ori_point>& frame);

 private:
  SimulationSettings settings_;
  const SensorModel* model_;
  std::unique_ptr<Scene> scene_;
  std::unique_ptr<FrameBuilder> builder_;
  std::unique_ptr<ChannelResponse> response_;  // only when the unit has intensity errors
  uint32_t next_ = 0;
};

// The settings that made a simulated recording, as far as its index keeps them (the scene, the
// motion and the noise; not the unit's intensity errors), to rebuild its scene.
SimulationSettings SettingsOf(const RecordingInfo& info);

// Simulates every frame of `settings` into a recording folder, as `velmar-algo simulate` does.
// Throws std::invalid_argument for bad settings and RecordingError when the folder cannot be
// written. The recording is built beside the folder and moved into place when complete, so a
// failure never leaves a half-written recording where the old one stood.
void WriteSimulatedRecording(const SimulationSettings& settings, const std::string& folder);

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_SIMULATOR_H
