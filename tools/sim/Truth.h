// Ground truth carried by every simulated return. The class sits in the record's `reserved_a`
// field, which no algorithm reads or writes, so it follows a point through the whole pipeline:
// delayed packets, moved points and appended copies all keep it.
#ifndef VELMAR_TOOLS_SIM_TRUTH_H
#define VELMAR_TOOLS_SIM_TRUTH_H

#include <cstdint>
#include <string>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

// What produced a return. The low byte of `reserved_a` holds one of these values.
enum class TruthKind : uint32_t {
  kNoReturn = 0,      // the beam met nothing in range: the slot keeps its place with distance 0
  kReal = 1,          // a solid object (building, wall, car, pedestrian, sign, curb face)
  kGround = 2,        // the road or the pavement
  kRain = 3,          // a rain drop in front of the target
  kFog = 4,           // fog near the sensor
  kSunlight = 5,      // an isolated return caused by sunlight on the detector
  kDrag = 6,          // the smear between a near edge and the background behind it
  kInterference = 7,  // a pulse of another lidar, scattered in range
  kGhost = 8,         // the ghost of a strong return in a partner channel
  kCloseRange = 9,    // spurious return on an edge channel of a column
  kFixedEcho = 10,    // the fixed false echo band of the 128-channel model
};

constexpr uint32_t kTruthKindCount = 11;
constexpr uint32_t kTruthKindMask = 0xFFu;
// Set on top of the kind for returns of moving objects (cars, pedestrians).
constexpr uint32_t kTruthMovingBit = 0x100u;

inline uint32_t EncodeTruth(TruthKind kind, bool moving) {
  return static_cast<uint32_t>(kind) | (moving ? kTruthMovingBit : 0u);
}
inline TruthKind TruthKindOf(uint32_t reservedA) {
  uint32_t kind = reservedA & kTruthKindMask;
  return kind < kTruthKindCount ? static_cast<TruthKind>(kind) : TruthKind::kNoReturn;
}
inline TruthKind TruthKindOf(const _ori_point& p) {
  return TruthKindOf(p.reserved_a);
}
inline bool IsMovingTruth(const _ori_point& p) {
  return (p.reserved_a & kTruthMovingBit) != 0;
}
// True for returns of something that is really there (objects and ground).
inline bool IsSurfaceTruth(TruthKind kind) {
  return kind == TruthKind::kReal || kind == TruthKind::kGround;
}
// True for every kind of false return.
inline bool IsNoiseTruth(TruthKind kind) {
  return kind != TruthKind::kNoReturn && !IsSurfaceTruth(kind);
}

// Short lower-case name of a kind ("real", "ground", "rain", ...), as used in reports.
std::string TruthKindName(TruthKind kind);

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_TRUTH_H
