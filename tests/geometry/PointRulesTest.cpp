// The rain, underground and edge-channel rules.
#include <gtest/gtest.h>

#include "filters/DeletePoint.h"
#include "geometry/RainPoint.h"
#include "geometry/UnderGroundPoint.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::MakePoint;

_ori_point Return(double distance, double pulseWidth) {
  _ori_point p = MakePoint(distance);
  p.pulse_width = pulseWidth;
  p.x = 1.0;
  return p;
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

TEST(RainPoint, RemovesWeakOrLongPulseNearReturns) {
  auto rain = MakeAlgoAs<RainPoint>(4, LIDAR_ORVIK16, RainParams("6", "40", "299"));
  std::vector<_ori_point> frame = {
      Return(5.0, 50.0),   // strength 37.5 < 40: removed
      Return(5.0, 60.0),   // strength 45: kept
      Return(6.0, 1.0),    // at the range limit: kept
      Return(5.9, 2000.0)  // strong, but pulse x 0.15 = 300 > 299: removed
  };
  rain->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  EXPECT_EQ(frame[1].distance, 5.0);
  EXPECT_EQ(frame[2].distance, 6.0);
  EXPECT_EQ(frame[3].distance, 0.0);
  EXPECT_EQ(frame[0].x, 1.0) << "only the range is cleared";

  // With a zero intensity threshold any positive pulse condemns a near return, however strong.
  auto anyPulse = MakeAlgoAs<RainPoint>(4, LIDAR_ORVIK16, RainParams("6", "0.0001", "0"));
  auto usual = MakeAlgoAs<RainPoint>(4, LIDAR_ORVIK16, RainParams("6", "0.0001", "299"));
  std::vector<_ori_point> a = {Return(3.0, 0.001)};
  std::vector<_ori_point> b = a;
  anyPulse->Process(a);
  usual->Process(b);
  EXPECT_EQ(a[0].distance, 0.0);
  EXPECT_EQ(b[0].distance, 3.0);
}

TEST(UnderGroundPoint, HeightIsNarrowedAndTheDepthIsExclusive) {
  auto under = MakeAlgoAs<UnderGroundPoint>(5, LIDAR_MARLO128, "{\"filter_ground_height\": 0.87}");
  std::vector<_ori_point> frame = {test::MakePointXYZ(0, 0, -0.87),
                                   test::MakePointXYZ(0, 0, -static_cast<double>(0.87f)),
                                   test::MakePointXYZ(0, 0, -0.8700001)};
  for (auto& p : frame)
    p.distance = 4.0;
  under->Process(frame);
  // -0.87f widened is -0.870000004..., so -0.87 itself lies above the floor.
  EXPECT_EQ(frame[0].distance, 4.0);
  EXPECT_EQ(frame[1].distance, 4.0);
  EXPECT_EQ(frame[2].distance, 0.0);

  auto zero = MakeAlgoAs<UnderGroundPoint>(5, LIDAR_MARLO128, "{\"filter_ground_height\": 0}");
  std::vector<_ori_point> signs = {test::MakePointXYZ(0, 0, -1e-9), test::MakePointXYZ(0, 0, 0)};
  zero->Process(signs);
  EXPECT_EQ(signs[0].distance, 0.0);
  EXPECT_EQ(signs[0].z, -1e-9) << "coordinates are kept";
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
  std::vector<_ori_point> frame;
  for (uint32_t channel : {0u, 1u, 2u, 3u, 61u, 62u, 63u, 64u, 65u}) {
    _ori_point p = Return(3.999, 7.0);
    p.channel = channel;
    p.intensity = 9.0;
    p.label = 3;
    frame.push_back(p);
  }
  frame.push_back(frame[6]);
  frame.back().distance = 4.0;
  rule->Process(frame);
  for (std::size_t i = 0; i < frame.size(); ++i) {
    const uint32_t c = frame[i].channel;
    const bool edge = (c == 1 || c == 2 || c == 62 || c == 63 || c == 64) && i + 1 < frame.size();
    EXPECT_EQ(frame[i].distance == 0.0, edge) << "channel " << c;
    EXPECT_EQ(frame[i].x == 0.0 && frame[i].intensity == 0.0 && frame[i].pulse_width == 0.0, edge);
    EXPECT_EQ(frame[i].label, 3) << "labels are kept";
  }
}

}  // namespace
}  // namespace velmar
