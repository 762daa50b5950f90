#include "sim/Simulator.h"

#include <cmath>
#include <stdexcept>

#include "sim/ChannelResponse.h"
#include "sim/FrameBuilder.h"
#include "sim/Random.h"
#include "sim/Recording.h"
#include "sim/Scene.h"

namespace velmar {
namespace sim {
namespace {

// Random streams: the scene layout and the noise of each frame draw from separate streams.
constexpr uint64_t kSceneStream = 0x5CE9E;
constexpr uint64_t kFrameStream = 0xF8A3E;

const SensorModel& RequireModel(const std::string& name) {
  const SensorModel* model = FindSensorModel(name);
  if (model == nullptr) {
    throw std::invalid_argument("unknown model \"" + name + "\"");
  }
  return *model;
}

void CheckRates(const NoiseSettings& noise) {
  for (const NoiseKindInfo& info : NoiseKinds()) {
    const double rate = noise[info.kind];
    if (!(rate >= 0.0 && rate <= 1.0)) {
      throw std::invalid_argument(std::string("rate of ") + info.name + " must lie in [0, 1]");
    }
  }
}

}  // namespace

Simulator::Simulator(const SimulationSettings& settings)
    : settings_(settings), model_(&RequireModel(settings.model)) {
  CheckRates(settings.noise);
  if (!std::isfinite(settings.scene.egoSpeed) || !std::isfinite(settings.scene.groundSlope) ||
      !std::isfinite(settings.scene.yawRate)) {
    throw std::invalid_argument("ego speed, ground slope and yaw rate must be finite");
  }
  const double duration = settings.frames * model_->FramePeriodSec();
  scene_ = std::make_unique<Scene>(settings.scene, *model_, duration,
                                   StreamSeed(settings.seed, kSceneStream));
  builder_ = std::make_unique<FrameBuilder>(*model_, settings.noise,
                                            StreamSeed(settings.seed, kFrameStream));
  const UnitSettings& unit = settings.unit;
  if (!(unit.gainSpread >= 0.0 && unit.gainSpread <= 1.0 && unit.offsetSpread >= 0.0 &&
        unit.offsetSpread <= 255.0)) {
    throw std::invalid_argument(
        "channel gain spread must lie in [0, 1], offset spread in [0, 255]");
  }
  if (unit.Enabled()) {
    response_ = std::make_unique<ChannelResponse>(*model_, unit);
  }
}

Simulator::~Simulator() = default;

void Simulator::GenerateFrame(uint32_t index, std::vector<_ori_point>& frame) {
  builder_->Build(*scene_, index, frame);
  if (response_) {
    response_->Apply(frame);
  }
}

bool Simulator::NextFrame(std::vector<_ori_point>& frame) {
  if (next_ >= settings_.frames) {
    return false;
  }
  GenerateFrame(next_++, frame);
  return true;
}

SimulationSettings SettingsOf(const RecordingInfo& info) {
  SimulationSettings settings;
  settings.model = info.model;
  settings.scene = info.scene;
  settings.noise = info.noise;
  settings.seed = info.seed;
  settings.frames = info.frames;
  return settings;
}

void WriteSimulatedRecording(const SimulationSettings& settings, const std::string& folder) {
  Simulator simulator(settings);
  const SensorModel& model = simulator.Model();
  RecordingInfo info;
  info.model = model.name;
  info.lidarType = model.type;
  info.packetPoints = model.packetPoints;
  info.scene = settings.scene;
  info.noise = settings.noise;
  info.seed = settings.seed;
  if (settings.unit.Enabled()) {
    info.attributes["unit_seed"] = std::to_string(settings.unit.seed);
    info.attributes["channel_gain_spread"] = std::to_string(settings.unit.gainSpread);
    info.attributes["channel_offset_spread"] = std::to_string(settings.unit.offsetSpread);
  }
  StagedFolder staged(folder);
  RecordingWriter writer(staged.Path(), info);
  std::vector<_ori_point> frame;
  while (simulator.NextFrame(frame)) {
    writer.WriteFrame(frame);
  }
  writer.Close();
  staged.Commit();
}

}  // namespace sim
}  // namespace velmar
