// The rain, underground and edge-channel rules.
#include <gtest/gtest.h>

#include "filters/DeletePoint.h"
#include "geometry/RainPoint.h"
#include "geometry/UnderGroundPoint.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::Ret;

Ret Return(double distance, double pulseWidth) {
  return test::Ret(distance).Pulse(pulseWidth);
}

std::string RainParams(const std::string& distance, const std::string& reflection,
                       const std::string& intensity) {
  return "{\"validDistance\": " + distance + ", \"reflectionThreshold\": " + reflection +
         ", \"intensityThreshold\": " + intensity + "}";
}

TEST(RainPoint, ParameterSetIsAcceptedOrRefusedWhole) {
  struct Case {
    std::string params;
    bool accepted;
  };
  const std::vector<Case> cases = {
      {RainParams("50", "1", "0"), true},
      {RainParams("50.0001", "1", "0"), false},
      {RainParams("0", "1", "0"), false},
      {RainParams("5", "0", "0"), false},
      {RainParams("5", "1", "300"), true},
      {RainParams("5", "1", "300.5"), false},
      {RainParams("5", "1", "-0.1"), false},
      {"{\"validDistance\": 20}", false},
      {"{}", false},
  };
  for (const Case& c : cases) {
    std::string printed;
    auto rain = MakeAlgoAs<RainPoint>(4, LIDAR_ORVIK16, c.params, &printed);
    if (c.accepted) {
      EXPECT_EQ(printed, "") << c.params;
      EXPECT_NE(rain->valid_distance, 6.0) << c.params;
    } else {
      EXPECT_EQ(printed, "[algo]: RainPoint algo param is invalid!\n") << c.params;
      EXPECT_EQ(rain->valid_distance, 6.0);
      EXPECT_EQ(rain->reflection_threshold, 40.0);
      EXPECT_EQ(rain->intensity_threshold, 299.0);
    }
  }
}

// Rain: a near return goes when weak (pulse x 0.15 x range under the reflection threshold) or
// when pulse x 0.15 is above the intensity threshold; with a zero intensity threshold any pulse
// condemns it. Underground: the height is narrowed to a float and the depth is exclusive.
TEST(PointRules, RainAndUndergroundEdges) {
  const LidarType o = LIDAR_ORVIK16;
  const std::string usual = RainParams("6", "40", "299");
  const std::string any_pulse = RainParams("6", "0.0001", "0");
  const std::string weak_only = RainParams("6", "0.0001", "299");
  const char* under = "{\"filter_ground_height\": 0.87}";
  const char* zero = "{\"filter_ground_height\": 0}";
  const LidarType m = LIDAR_MARLO128;
  test::ExpectRemovals({{4, o, usual.c_str(), Return(5.0, 50.0), true},
                        {4, o, usual.c_str(), Return(5.0, 60.0), false},
                        {4, o, usual.c_str(), Return(6.0, 1.0), false},
                        {4, o, usual.c_str(), Return(5.9, 2000.0), true},
                        {4, o, any_pulse.c_str(), Return(3.0, 0.001), true},
                        {4, o, weak_only.c_str(), Return(3.0, 0.001), false},
                        {5, m, under, Ret(4.0).Z(-0.87), false},
                        {5, m, under, Ret(4.0).Z(-static_cast<double>(0.87f)), false},
                        {5, m, under, Ret(4.0).Z(-0.8700001), true},
                        {5, m, zero, Ret(4.0).Z(-1e-9), true},
                        {5, m, zero, Ret(4.0).Z(0.0), false}});
}

TEST(UnderGroundPoint, InvalidHeightKeepsTheCurrentOne) {
  for (const char* params :
       {"{}", "{\"filter_ground_height\": -0.1}", "{\"filter_ground_height\": \"1\"}"}) {
    std::string printed;
    auto under = MakeAlgoAs<UnderGroundPoint>(5, LIDAR_MARLO128, params, &printed);
    EXPECT_EQ(printed, "[algo]:UnderGroundPoint param is invalid!\n") << params;
    EXPECT_EQ(under->filter_ground_height, 0.87f);
  }
}

TEST(DeletePoint, ClearsNearReturnsOfEdgeChannelsOnly) {
  auto rule = MakeAlgoAs<DeletePoint>(16, LIDAR_ZEPHEL_B1);
  EXPECT_TRUE(rule->IsSupported("ZephelB1"));
  EXPECT_FALSE(rule->IsSupported("ZephelB1 "));
  std::vector<test::RuleCase> cases;
  for (uint32_t channel : {0u, 1u, 2u, 3u, 61u, 62u, 63u, 64u, 65u}) {
    const bool edge = channel == 1 || channel == 2 || (channel >= 62 && channel <= 64);
    cases.push_back({16, LIDAR_ZEPHEL_B1, "{}", Return(3.999, 7.0).Channel(channel), edge});
  }
  cases.push_back({16, LIDAR_ZEPHEL_B1, "{}", Return(4.0, 7.0).Channel(63), false});
  test::ExpectRemovals(cases, true);
}

}  // namespace
}  // namespace velmar
