// What a simulation is made of: the model, the scene, the noise kinds with their rates and the
// seed. The same settings always produce the same frames, byte for byte.
#ifndef VELMAR_TOOLS_SIM_SETTINGS_H
#define VELMAR_TOOLS_SIM_SETTINGS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/Truth.h"

namespace velmar {
namespace sim {

// Switchable noise and artefacts. Each has a rate in [0, 1]; 0 turns it off.
enum class NoiseKind : uint32_t {
  kRain = 0,
  kFog,
  kSunlight,
  kDrag,
  kInterference,
  kGhost,
  kCloseRange,
  kFixedEcho,
  kCrosstalkVertical,
  kCrosstalkHorizontal,
  kBloom,
  kSpike,
  kMixed,
};
constexpr std::size_t kNoiseKindCount = 13;

struct NoiseKindInfo {
  NoiseKind kind;
  const char* name;         // command-line and JSON name ("rain", "close-range", ...)
  const char* description;  // what the rate means
  TruthKind truth;          // class given to the returns it makes
  // Kinds added after the first recordings are written into recording.json only when switched
  // on and read as off when absent, so that recordings without them keep their bytes.
  bool listedWhenOff = true;
};
const std::array<NoiseKindInfo, kNoiseKindCount>& NoiseKinds();

struct NoiseSettings {
  std::array<double, kNoiseKindCount> rate{};
  double& operator[](NoiseKind kind) { return rate[static_cast<std::size_t>(kind)]; }
  double operator[](NoiseKind kind) const { return rate[static_cast<std::size_t>(kind)]; }
};

struct SceneInfo {
  const char* name;
  const char* description;
};
// "city", "highway", "empty".
const std::vector<SceneInfo>& SceneNames();

struct SceneSettings {
  std::string name = "city";
  double egoSpeed = 0.0;     // m/s along the forward axis
  double groundSlope = 0.0;  // rise of the road per metre forward
  double yawRate = 0.0;      // degrees per second, positive turning left (seen from above)
  bool furniture = false;    // city: street-light poles, sign posts and overhead wires
};

// The intensity error of the simulated unit (sim/ChannelResponse.h), off while both spreads are 0.
struct UnitSettings {
  uint64_t seed = 1;          // the unit: drives with one unit seed share their channel errors
  double gainSpread = 0.0;    // standard deviation of the channel gains around 1
  double offsetSpread = 0.0;  // standard deviation of the channel offsets, intensity units
  bool Enabled() const { return gainSpread != 0.0 || offsetSpread != 0.0; }
};

struct SimulationSettings {
  std::string model = "Marlo128";
  SceneSettings scene;
  NoiseSettings noise;
  uint64_t seed = 1;
  uint32_t frames = 10;
  UnitSettings unit;
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_SETTINGS_H
