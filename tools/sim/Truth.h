// Ground truth carried by every simulated (or imported) return. It sits in the record's
// `reserved_a` field, which no algorithm reads or writes, so it follows a point through the whole
// pipeline: delayed packets, moved points and appended copies all keep it. The low 16 bits hold
// the kind, the high 16 bits the number of the scene object the return belongs to (0 for none);
// eval reads nothing else.
#ifndef VELMAR_TOOLS_SIM_TRUTH_H
#define VELMAR_TOOLS_SIM_TRUTH_H

#include <cstdint>
#include <string>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

// What produced a return. A new kind takes the next free number; recordings store the numbers.
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
  kCrosstalkVertical = 11,    // weak false return in another channel of a strong return's column
  kCrosstalkHorizontal = 12,  // weak false return in a strong return's channel, nearby columns
  kBloom = 13,                // the halo a saturated retro-reflector spreads around itself
  kSnow = 14,                 // falling snow (real recordings)
  kUnlabelled = 15,           // an imported return without a label: left out of every score
  kSpike = 16,                // a single-return spike far from agreeing neighbours
  kMixed = 17,                // a mixed return floating between a near edge and the background
};

constexpr uint32_t kTruthKindCount = 18;
constexpr uint32_t kTruthKindMask = 0xFFFFu;
constexpr uint32_t kTruthObjectShift = 16;
constexpr uint32_t kNoTruthObject = 0;
constexpr uint32_t kMaxTruthObject = 0xFFFFu;

// `object` numbers the scene object a return belongs to, 1 and up; numbers beyond 16 bits
// saturate.
inline uint32_t EncodeTruth(TruthKind kind, uint32_t object = kNoTruthObject) {
  const uint32_t number = object < kMaxTruthObject ? object : kMaxTruthObject;
  return static_cast<uint32_t>(kind) | (number << kTruthObjectShift);
}
inline TruthKind TruthKindOf(uint32_t reservedA) {
  uint32_t kind = reservedA & kTruthKindMask;
  return kind < kTruthKindCount ? static_cast<TruthKind>(kind) : TruthKind::kNoReturn;
}
inline TruthKind TruthKindOf(const _ori_point& p) {
  return TruthKindOf(p.reserved_a);
}
inline uint32_t TruthObjectOf(const _ori_point& p) {
  return p.reserved_a >> kTruthObjectShift;
}
// True for returns of something that is really there (objects and ground).
inline bool IsSurfaceTruth(TruthKind kind) {
  return kind == TruthKind::kReal || kind == TruthKind::kGround;
}
// True for the kinds that count in no score: nothing there, or nobody said what it was.
inline bool IsUnscoredTruth(TruthKind kind) {
  return kind == TruthKind::kNoReturn || kind == TruthKind::kUnlabelled;
}
// True for every kind of false return.
inline bool IsNoiseTruth(TruthKind kind) {
  return !IsUnscoredTruth(kind) && !IsSurfaceTruth(kind);
}

// Short lower-case name of a kind ("real", "ground", "rain", ...), as used in reports.
std::string TruthKindName(TruthKind kind);

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_TRUTH_H
