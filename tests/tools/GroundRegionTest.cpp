// The map `velmar-algo roi` writes: the outline of the ground returns, holes included, that the
// library accepts and that contains what the returns covered.
#include <gtest/gtest.h>

#include <cmath>

#include "GroundRegion.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

// Ground returns on scan rings every 0.6 m from 5 to 20 m around the sensor, none inside 5 m and
// none on a 4 m square island at (12, 0); a few returns of another kind elsewhere.
TEST(GroundRegion, OutlinesTheGroundWithItsHoles) {
  std::vector<_ori_point> frame;
  for (double r = 5.0; r <= 20.0; r += 0.6) {
    for (int i = 0; i < 720; ++i) {
      _ori_point p{};
      p.x = r * std::cos(i * M_PI / 360.0);
      p.y = r * std::sin(i * M_PI / 360.0);
      p.distance = r;
      p.hor_angle = i * 0.5;  // one return per column: nothing is filled along a ring
      p.reserved_a = sim::EncodeTruth(sim::TruthKind::kGround);
      if (std::fabs(p.x - 12.0) > 2.0 || std::fabs(p.y) > 2.0) {
        frame.push_back(p);
      }
    }
  }
  _ori_point wall{};
  wall.x = 30.0;
  wall.distance = 30.0;
  wall.reserved_a = sim::EncodeTruth(sim::TruthKind::kReal, 1);
  frame.push_back(wall);

  GroundRegion region(0.5, 40.0);
  region.AddFrame(frame);
  const std::vector<MapRing> rings = region.Rings(2, 0.3);
  RoadMap map;
  std::string problem;
  ASSERT_TRUE(map.Parse(RoadMap::Write(rings, "test"), problem)) << problem;
  int holes = 0;
  for (const MapRing& ring : rings) {
    holes += ring.hole ? 1 : 0;
  }
  EXPECT_EQ(holes, 2);  // the middle and the island
  EXPECT_TRUE(map.Contains(8.0, 0.0));
  EXPECT_TRUE(map.Contains(-15.0, 7.0));
  EXPECT_FALSE(map.Contains(0.0, 0.0));
  EXPECT_FALSE(map.Contains(12.0, 0.0));
  EXPECT_FALSE(map.Contains(25.0, 0.0));
  EXPECT_FALSE(map.Contains(30.0, 0.0));
}

}  // namespace
}  // namespace tools
}  // namespace velmar
