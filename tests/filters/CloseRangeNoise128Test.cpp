#include "filters/CloseRangeNoise128.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::MakePoint;

_ori_point Near(double distance, double pulse) {
  _ori_point p = MakePoint(distance);
  p.pulse_width = pulse;
  return p;
}

TEST(CloseRangeNoise128Test, PacketsOf128And192PassOtherSizesAreFiltered) {
  auto algo = MakeAlgoAs<CloseRangeNoise128>(23, LIDAR_MARLO128);
  for (std::size_t size : {1u, 96u, 127u, 128u, 129u, 192u, 1000u}) {
    std::vector<_ori_point> frame(size, Near(1.0, 1.0));
    algo->Process(frame);
    const bool gated = size == 128 || size == 192;
    EXPECT_EQ(frame.back().distance, gated ? 1.0 : 0.0) << size;
  }
}

TEST(CloseRangeNoise128Test, BothLimitsAreInclusiveAndReadAsSinglePrecision) {
  auto algo = MakeAlgoAs<CloseRangeNoise128>(23, LIDAR_MARLO128);
  std::vector<_ori_point> frame = {Near(5.0, 5.5), Near(5.01, 5.5), Near(5.0, 5.51)};
  algo->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  EXPECT_EQ(frame[1].distance, 5.01);
  EXPECT_EQ(frame[2].distance, 5.0);

  // 0.1 narrows to a float just above 0.1, so a point a billionth of a metre beyond 0.1 m is
  // still inside the limit.
  algo = MakeAlgoAs<CloseRangeNoise128>(
      23, LIDAR_MARLO128, R"({"CloseRange_128_mindistance": 0.1, "CloseRange_128_minpulse": 2})");
  EXPECT_EQ(algo->min_distance, 0.1f);
  frame = {Near(0.100000001, 2.0), Near(0.1000001, 2.0), Near(0.05, 2.01)};
  algo->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  EXPECT_EQ(frame[1].distance, 0.1000001);
  EXPECT_EQ(frame[2].distance, 0.05);
  EXPECT_TRUE(algo->IsSupported("Marlo128"));
  EXPECT_FALSE(algo->IsSupported("Marlo128H"));
}

}  // namespace
}  // namespace velmar
