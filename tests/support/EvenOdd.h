// The plain answer a road map's raster must agree with: a point is inside when a ray from it
// crosses the rings' edges an odd number of times, every edge of every ring counted. Slow (all
// edges for every point) and undecided on a boundary, so only for checking the fast lookup away
// from the edges; shared by the map's tests and its fuzz target.
#ifndef VELMAR_TESTS_SUPPORT_EVEN_ODD_H
#define VELMAR_TESTS_SUPPORT_EVEN_ODD_H

#include <cstddef>
#include <vector>

#include "geometry/RoadMap.h"

namespace velmar {
namespace test {

inline bool EvenOdd(const std::vector<MapRing>& rings, double x, double y) {
  bool inside = false;
  for (const MapRing& ring : rings) {
    const std::size_t n = ring.points.size();
    for (std::size_t i = 0, j = n - 1; i < n; j = i++) {
      const MapPoint& a = ring.points[i];
      const MapPoint& b = ring.points[j];
      if ((a.y > y) != (b.y > y) && x < a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y)) {
        inside = !inside;
      }
    }
  }
  return inside;
}

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_SUPPORT_EVEN_ODD_H
