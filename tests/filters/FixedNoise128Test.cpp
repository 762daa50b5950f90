#include "filters/FixedNoise128.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

struct Case {
  uint32_t channel;
  double angle;
  double distance;
  bool removed;
};

TEST(FixedNoise128Test, RemovesOnlyInsideBothWindowsWithInclusiveBounds) {
  const Case cases[] = {
      {25, 45.0, 62.0, true},     {32, 60.0, 70.0, true},   {105, 135.0, 70.0, true},
      {95, 125.0, 62.0, true},    {24, 45.0, 62.0, false},  {33, 45.0, 62.0, false},
      {106, 135.0, 70.0, false},  {94, 130.0, 65.0, false}, {25, 44.99, 65.0, false},
      {25, 60.01, 65.0, false},   {25, 50.0, 61.99, false}, {25, 50.0, 70.01, false},
      {100, 124.99, 65.0, false}, {100, 50.0, 65.0, false}, {0xFFFFFFFFu, 130.0, 65.0, false},
  };
  std::vector<_ori_point> frame;
  for (const Case& c : cases) {
    frame.push_back(test::MakePoint(c.distance));
    frame.back().channel = c.channel;
    frame.back().hor_angle = c.angle;
  }
  test::MakeAlgo(25, LIDAR_MARLO128)->Process(frame);
  for (std::size_t i = 0; i < frame.size(); ++i) {
    EXPECT_EQ(frame[i].distance == 0.0, cases[i].removed) << "case " << i;
  }
}

}  // namespace
}  // namespace velmar
