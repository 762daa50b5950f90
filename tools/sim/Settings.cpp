#include "sim/Settings.h"

namespace velmar {
namespace sim {

const std::array<NoiseKindInfo, kNoiseKindCount>& NoiseKinds() {
  static const std::array<NoiseKindInfo, kNoiseKindCount> kinds = {{
      {NoiseKind::kRain, "rain",
       "weak short-pulse drop returns within 15 m, per beam (seen when nearer than the target)",
       TruthKind::kRain},
      {NoiseKind::kFog, "fog", "very weak returns within 6 m, per beam (seen when nearer)",
       TruthKind::kFog},
      {NoiseKind::kSunlight, "sunlight", "isolated random returns within 30 m, per beam",
       TruthKind::kSunlight},
      {NoiseKind::kDrag, "drag", "smear behind a depth edge, per beam next to an edge",
       TruthKind::kDrag},
      {NoiseKind::kInterference, "interference",
       "another lidar's pulses, scattered in range and new every frame, per beam",
       TruthKind::kInterference},
      {NoiseKind::kGhost, "ghost",
       "ghosts of strong returns in partner channels, per strong return", TruthKind::kGhost},
      {NoiseKind::kCloseRange, "close-range",
       "spurious returns on the edge channels, per edge beam", TruthKind::kCloseRange},
      {NoiseKind::kFixedEcho, "fixed-echo",
       "the 62-70 m false echo band of the 128-channel model, per beam in its windows",
       TruthKind::kFixedEcho},
      {NoiseKind::kCrosstalkVertical, "crosstalk-v",
       "weak returns at a strong return's range in other channels of its column, per strong "
       "return",
       TruthKind::kCrosstalkVertical, false},
      {NoiseKind::kCrosstalkHorizontal, "crosstalk-h",
       "weak returns at a strong return's range in its channel, nearby columns, per strong return",
       TruthKind::kCrosstalkHorizontal, false},
      {NoiseKind::kBloom, "bloom",
       "halo of weak returns around a retro-reflector at its range, per retro-reflector return",
       TruthKind::kBloom, false},
      {NoiseKind::kSpike, "spike",
       "a surface return whose range jumps 1.5-25 m nearer or farther, per surface return",
       TruthKind::kSpike, false},
      {NoiseKind::kMixed, "mixed",
       "a return floating between a near edge and the surface behind it, per beam next to a "
       "depth step between two surfaces",
       TruthKind::kMixed, false},
  }};
  return kinds;
}

const std::vector<SceneInfo>& SceneNames() {
  static const std::vector<SceneInfo> scenes = {
      {"city",
       "street with curbs, buildings, parked and moving cars, pedestrians and a reflective sign"},
      {"highway", "wide road with guard rails, fast traffic and reflective signs"},
      {"empty", "flat ground and nothing else"},
  };
  return scenes;
}

}  // namespace sim
}  // namespace velmar
