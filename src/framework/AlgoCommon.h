// What several algorithms share: point helpers, numeric conversions, packet shapes and the sweep
// grid. Anything two algorithms need alike is written here once.
#ifndef VELMAR_FRAMEWORK_ALGO_COMMON_H
#define VELMAR_FRAMEWORK_ALGO_COMMON_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "velmar/lidar_algo.h"

namespace velmar {

// Echo strength of a return: pulse width x 0.15 x range, multiplied in that order. Weather filters
// compare it against their reflection thresholds; a weak echo at short range is typical of rain,
// fog and sunlight.
inline double EchoStrength(const _ori_point& p) {
  return p.pulse_width * 0.15 * p.distance;
}

// Removes a point the way the mirror-face and channel rules do: the measures are zeroed while
// channel, angle, face and flags stay, so the point keeps its place in the frame.
inline void ClearMeasures(_ori_point& p) {
  p.x = 0.0;
  p.y = 0.0;
  p.z = 0.0;
  p.intensity = 0.0;
  p.distance = 0.0;
  p.pulse_width = 0.0;
}

// The least float not below `value`, so that for every float d, (double)d < value exactly when
// d < FloatCeiling(value). Lets a loop that narrows differences to float and compares them with a
// double threshold compare floats only, which vectorises. NaN stays NaN.
inline float FloatCeiling(double value) {
  constexpr float kLargest = std::numeric_limits<float>::max();
  if (!(value <= static_cast<double>(kLargest))) {
    return value > 0.0 ? std::numeric_limits<float>::infinity() : static_cast<float>(value);
  }
  if (value < -static_cast<double>(kLargest)) {
    return value == -std::numeric_limits<double>::infinity()
               ? -std::numeric_limits<float>::infinity()
               : -kLargest;
  }
  const float nearest = static_cast<float>(value);
  return static_cast<double>(nearest) < value
             ? std::nextafter(nearest, std::numeric_limits<float>::infinity())
             : nearest;
}

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegToRad = kPi / 180.0;
// pi/180 rounded to single precision, on purpose: configured mountings and outlier thresholds
// were calibrated with this factor, and the exact value would shift every result slightly.
constexpr float kDegToRadF = static_cast<float>(kDegToRad);

// Whether `whole`, a value already truncated toward zero, is one that `Int` can hold. False for
// NaN. Rules that compare "in whole units" truncate as a conversion to a 32-bit integer would;
// each decides for itself what a value beyond that range means.
template <typename Int>
inline bool HoldsWhole(double whole) {
  // Both limits are exactly representable as doubles for 32-bit types.
  return whole >= static_cast<double>(std::numeric_limits<Int>::lowest()) &&
         whole <= static_cast<double>(std::numeric_limits<Int>::max());
}

// Truncates toward zero; out-of-range values saturate at the type's limits and NaN reads as 0, so
// no configuration value can make the conversion undefined.
template <typename Int>
inline Int TruncateSaturating(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  const double whole = std::trunc(value);
  if (HoldsWhole<Int>(whole)) {
    return static_cast<Int>(whole);
  }
  return whole < 0.0 ? std::numeric_limits<Int>::lowest() : std::numeric_limits<Int>::max();
}
inline int32_t TruncateToInt32(double value) {
  return TruncateSaturating<int32_t>(value);
}
inline uint32_t TruncateToUint32(double value) {
  return TruncateSaturating<uint32_t>(value);
}

// Packet shapes of the column-structured sensors: columns of 48 or 64 points in channel order,
// packed two or four to a packet.
constexpr std::size_t kPacketPoints96 = 96;
constexpr std::size_t kPacketPoints128 = 128;
constexpr std::size_t kPacketPoints192 = 192;
constexpr std::size_t kColumnPoints64 = 64;

// The column grid of a mirror face's sweep, over which the motion and interference filters keep
// their range histories: 720 columns of 0.167 degrees from 30 degrees, which is the part of the
// sweep every face covers.
constexpr double kSweepGridFirstAngle = 30.0;   // degrees, where column 0 begins
constexpr double kSweepGridColumnStep = 0.167;  // degrees per column
constexpr int32_t kSweepGridColumns = 720;
// The sweep itself runs two columns beyond the grid at each end (the turn columns), so every sweep
// crosses both ends of the field: 724 columns, evenly spaced in time.
constexpr int32_t kSweepTurnColumns = 2;
// The three mirror faces sweep one after another, each in a third of the 100 ms frame.
constexpr uint32_t kMirrorFaceSlots = 3;
constexpr double kMirrorFacePeriodMs = 33.333333333333336;

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGO_COMMON_H
