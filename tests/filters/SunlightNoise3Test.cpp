#include "filters/SunlightNoise3.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

bool Keeps(SunlightNoise3& filter, double distance, double pulse_width) {
  std::vector<_ori_point> frame{test::MakePoint(distance)};
  frame[0].pulse_width = pulse_width;
  filter.Process(frame);
  return frame[0].distance != 0.0;
}

TEST(SunlightNoise3, StrictEdges) {
  auto filter = test::MakeAlgoAs<SunlightNoise3>(15, LIDAR_ZEPHEL_B1);
  EXPECT_FALSE(Keeps(*filter, 1.0, 2.0));  // strength 0.3
  EXPECT_TRUE(Keeps(*filter, 3.0, 1.0));   // at the maximum distance
  EXPECT_FALSE(Keeps(*filter, 2.999, 1.0));
  EXPECT_TRUE(Keeps(*filter, 1.0, 3.0));  // at the maximum pulse width
  EXPECT_TRUE(Keeps(*filter, 2.0, 3.0));
  EXPECT_FALSE(Keeps(*filter, 2.0, 2.99));  // strength 0.897
  EXPECT_TRUE(Keeps(*filter, 2.5, 2.41));   // strength 0.904
  EXPECT_FALSE(Keeps(*filter, 2.5, 2.39));  // strength 0.896
}

TEST(SunlightNoise3, FixedValuesAndModel) {
  auto filter = test::MakeAlgoAs<SunlightNoise3>(15, LIDAR_ZEPHEL_B1, R"({"max_distance": 10})");
  EXPECT_EQ(filter->max_distance, 3.0);
  EXPECT_TRUE(filter->IsSupported("ZephelB1"));
  EXPECT_FALSE(filter->IsSupported("QuillA4"));
  EXPECT_FALSE(filter->IsSupported("ZephelB2/B3/MP"));
}

}  // namespace
}  // namespace velmar
