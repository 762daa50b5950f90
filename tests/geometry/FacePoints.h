// Point builders for the mirror-face tests.
#ifndef VELMAR_TESTS_GEOMETRY_FACE_POINTS_H
#define VELMAR_TESTS_GEOMETRY_FACE_POINTS_H

#include "support/TestSupport.h"

namespace velmar {
namespace test {

// A return with non-zero measures, so that a removal shows.
inline _ori_point FacePoint(double distance, uint32_t mirror, uint32_t echo = 0) {
  _ori_point p = MakePointXYZ(1.0, 2.0, 3.0);
  p.distance = distance;
  p.intensity = 40.0;
  p.pulse_width = 5.0;
  p.channel = 7;
  p.mirror = mirror;
  p.echo = echo;
  return p;
}

// Removed: the measures zeroed, everything else kept.
inline bool IsRemoved(const _ori_point& p) {
  return p.x == 0.0 && p.y == 0.0 && p.z == 0.0 && p.intensity == 0.0 && p.distance == 0.0 &&
         p.pulse_width == 0.0 && p.channel == 7;
}

inline bool Removes(AlgoBase& algo, double distance, uint32_t mirror, uint32_t echo = 0) {
  std::vector<_ori_point> frame{FacePoint(distance, mirror, echo)};
  algo.Process(frame);
  return IsRemoved(frame[0]);
}

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_GEOMETRY_FACE_POINTS_H
