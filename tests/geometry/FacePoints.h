// Point builders for the mirror-face tests.
#ifndef VELMAR_TESTS_GEOMETRY_FACE_POINTS_H
#define VELMAR_TESTS_GEOMETRY_FACE_POINTS_H

#include <cstdint>

#include "support/TestSupport.h"

namespace velmar {
namespace test {

// A return at `distance` on `mirror`/`echo` with non-zero measures, so removal is visible.
inline _ori_point FacePoint(double distance, uint32_t mirror, uint32_t echo = 0) {
  _ori_point p = MakePoint(distance);
  p.x = 1.0;
  p.y = 2.0;
  p.z = 3.0;
  p.intensity = 40.0;
  p.pulse_width = 5.0;
  p.channel = 7;
  p.mirror = mirror;
  p.echo = echo;
  return p;
}

// Removed means the measures were zeroed and everything else kept.
inline bool IsRemoved(const _ori_point& p) {
  return p.x == 0.0 && p.y == 0.0 && p.z == 0.0 && p.intensity == 0.0 && p.distance == 0.0 &&
         p.pulse_width == 0.0 && p.channel == 7;
}

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_GEOMETRY_FACE_POINTS_H
