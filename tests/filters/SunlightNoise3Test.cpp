#include "filters/SunlightNoise3.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

TEST(SunlightNoise3, StrictEdges) {
  auto filter = test::MakeAlgoAs<SunlightNoise3>(15, LIDAR_ZEPHEL_B1, R"({"max_distance": 9})");
  // {distance, pulse width, kept}: limits 3 m, pulse 3, strength 0.9, all strict.
  const double cases[][3] = {{1.0, 2.0, 0},  {3.0, 1.0, 1},  {2.999, 1.0, 0}, {1.0, 3.0, 1},
                             {2.0, 2.99, 0}, {2.5, 2.41, 1}, {2.5, 2.39, 0}};
  for (const auto& c : cases) {
    std::vector<_ori_point> frame{test::MakePoint(c[0])};
    frame[0].pulse_width = c[1];
    filter->Process(frame);
    EXPECT_EQ(frame[0].distance != 0.0, c[2] != 0.0) << c[0] << " " << c[1];
  }
  EXPECT_TRUE(filter->IsSupported("ZephelB1"));
  EXPECT_FALSE(filter->IsSupported("QuillA4"));
}

}  // namespace
}  // namespace velmar
