// Small point helpers and packet shapes that several algorithms share.
#ifndef VELMAR_FRAMEWORK_ALGO_COMMON_H
#define VELMAR_FRAMEWORK_ALGO_COMMON_H

#include <cmath>
#include <cstddef>
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

// Packet shapes of the column-structured sensors: columns of 48 or 64 points in channel order,
// packed two or four to a packet.
constexpr std::size_t kPacketPoints96 = 96;
constexpr std::size_t kPacketPoints128 = 128;
constexpr std::size_t kPacketPoints192 = 192;
constexpr std::size_t kColumnPoints64 = 64;

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGO_COMMON_H
