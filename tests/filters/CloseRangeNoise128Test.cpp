#include "filters/CloseRangeNoise128.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

_ori_point Near(double distance, double pulse) {
  _ori_point p = test::MakePoint(distance);
  p.pulse_width = pulse;
  return p;
}

TEST(CloseRangeNoise128Test, FiltersFramesButNotPacketsWithInclusiveSinglePrecisionLimits) {
  auto algo = test::MakeAlgoAs<CloseRangeNoise128>(23, LIDAR_MARLO128);
  for (std::size_t size : {1u, 96u, 127u, 128u, 129u, 192u}) {
    std::vector<_ori_point> frame(size, Near(1.0, 1.0));
    algo->Process(frame);
    EXPECT_EQ(frame.back().distance, size == 128 || size == 192 ? 1.0 : 0.0) << size;
  }
  std::vector<_ori_point> frame = {Near(5.0, 5.5), Near(5.01, 5.5), Near(5.0, 5.51)};
  algo->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  EXPECT_EQ(frame[1].distance, 5.01);
  EXPECT_EQ(frame[2].distance, 5.0);

  // 0.1 narrows to a float a little above 0.1, which takes in a point a billionth of a metre
  // further.
  algo = test::MakeAlgoAs<CloseRangeNoise128>(
      23, LIDAR_MARLO128, R"({"CloseRange_128_mindistance": 0.1, "CloseRange_128_minpulse": 2})");
  frame = {Near(0.100000001, 2.0), Near(0.1000001, 2.0)};
  algo->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  EXPECT_EQ(frame[1].distance, 0.1000001);
}

}  // namespace
}  // namespace velmar
