// The rain, underground and edge-channel rules.
#include <gtest/gtest.h>

#include "filters/DeletePoint.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::Ret;

// Rain: a near return goes when weak (pulse x 0.15 x range under the reflection threshold) or
// when pulse x 0.15 is above the intensity threshold; with a zero intensity threshold any pulse
// condemns it. Underground: the height is narrowed to a float and the depth is exclusive.
TEST(PointRulesTest, RainAndUndergroundEdges) {
  const LidarType o = LIDAR_ORVIK16;
  const char* usual =
      R"({"validDistance": 6, "reflectionThreshold": 40, "intensityThreshold": 299})";
  const char* any_pulse =
      R"({"validDistance": 6, "reflectionThreshold": 0.0001, "intensityThreshold": 0})";
  const char* weak_only =
      R"({"validDistance": 6, "reflectionThreshold": 0.0001, "intensityThreshold": 299})";
  const char* under = "{\"filter_ground_height\": 0.87}";
  const char* zero = "{\"filter_ground_height\": 0}";
  const LidarType m = LIDAR_MARLO128;
  test::ExpectRemovals({{4, o, usual, Ret(5.0).Pulse(50.0), true},
                        {4, o, usual, Ret(5.0).Pulse(60.0), false},
                        {4, o, usual, Ret(6.0).Pulse(1.0), false},
                        {4, o, usual, Ret(5.9).Pulse(2000.0), true},
                        {4, o, any_pulse, Ret(3.0).Pulse(0.001), true},
                        {4, o, weak_only, Ret(3.0).Pulse(0.001), false},
                        {5, m, under, Ret(4.0).Z(-0.87), false},
                        {5, m, under, Ret(4.0).Z(-static_cast<double>(0.87f)), false},
                        {5, m, under, Ret(4.0).Z(-0.8700001), true},
                        {5, m, zero, Ret(4.0).Z(-1e-9), true},
                        {5, m, zero, Ret(4.0).Z(0.0), false}});
}

TEST(DeletePointTest, ClearsNearReturnsOfEdgeChannelsOnly) {
  auto rule = MakeAlgoAs<DeletePoint>(16, LIDAR_ZEPHEL_B1);
  EXPECT_TRUE(rule->IsSupported("ZephelB1"));
  EXPECT_FALSE(rule->IsSupported("ZephelB1 "));
  std::vector<test::RuleCase> cases;
  for (uint32_t channel : {0u, 1u, 2u, 3u, 61u, 62u, 63u, 64u, 65u}) {
    const bool edge = channel == 1 || channel == 2 || (channel >= 62 && channel <= 64);
    cases.push_back({16, LIDAR_ZEPHEL_B1, "{}", Ret(3.999).Pulse(7.0).Channel(channel), edge});
  }
  cases.push_back({16, LIDAR_ZEPHEL_B1, "{}", Ret(4.0).Pulse(7.0).Channel(63), false});
  test::ExpectRemovals(cases, true);
}

}  // namespace
}  // namespace velmar
