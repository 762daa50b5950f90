// The per-point rules: rain, underground, edge channels, and the coordinate transform.
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

TEST(CalculateRotateAllPointCloudTest, RotatesXThenYThenZThenMovesAndAppliesTheSecondTransform) {
  struct Case {
    const char* params;
    double x, y, z;  // in
    double to_x, to_y, to_z;
  };
  const Case cases[] = {
      // The axis swap takes effect only through a rotation: (y, -x), then a half turn.
      {R"({"x_forward_flag": 1, "transformRotateZ": 180})", 1, 2, 3, -2, 1, 3},
      // Rx(90) takes +y to +z, which Rz leaves alone; the opposite order would end on -x.
      {R"({"transformRotateX": 90, "transformRotateZ": 90})", 0, 1, 0, 0, 0, 1},
      {R"({"transformRotateX": 90, "secondTransformRotateZ": 90})", 0, 1, 0, 0, 0, 1},
      // The second transform comes after the first, and its rotation turns the first translation.
      {R"({"transformRotateZ": 90, "secondTransformMoveX": 1})", 1, 0, 0, 1, 1, 0},
      {R"({"transformMoveX": 1, "secondTransformRotateZ": 90})", 0, 0, 0, 0, 1, 0},
  };
  for (const Case& c : cases) {
    std::vector<_ori_point> frame{test::MakePointXYZ(c.x, c.y, c.z)};
    test::MakeAlgo(31, LIDAR_MARLO128, c.params)->Process(frame);
    EXPECT_NEAR(frame[0].x, c.to_x, 1e-6) << c.params;
    EXPECT_NEAR(frame[0].y, c.to_y, 1e-6) << c.params;
    EXPECT_NEAR(frame[0].z, c.to_z, 1e-6) << c.params;
  }
}

TEST(CalculateRotateAllPointCloudTest, SinglePrecisionAnglesAndOffsets) {
  std::vector<_ori_point> frame{test::MakePointXYZ(1, 0, 0)};
  test::MakeAlgo(31, LIDAR_MARLO128, R"({"transformRotateZ": 90})")->Process(frame);
  // cos(90 * float(pi/180)) is about 1.2e-8; the exact factor would give about 6e-17.
  EXPECT_NEAR(frame[0].x, 1.2167964e-8, 1e-14);
  EXPECT_NEAR(frame[0].y, 1.0, 1e-15);
  EXPECT_EQ(frame[0].z, 0.0);
  // Without a rotation the swap is not applied; removed points move like the others.
  frame = {test::MakePointXYZ(1, 2, 3), test::MakePointXYZ(0, 0, -1)};
  frame[0].distance = 7.0;
  test::MakeAlgo(31, LIDAR_ZEPHEL_T,
                 R"({"x_forward_flag": 1, "transformMoveZ": 1.5, "transformMoveY": 0.1})")
      ->Process(frame);
  EXPECT_EQ(frame[0].x, 1.0);
  EXPECT_EQ(frame[0].y, 2.0 + static_cast<double>(0.1f));
  EXPECT_EQ(frame[0].z, 4.5);
  EXPECT_EQ(frame[0].distance, 7.0);
  EXPECT_EQ(frame[1].z, 0.5);
  EXPECT_EQ(frame[1].distance, 0.0);
}

TEST(CalculateRotateAllPointCloudTest, IdentityWithSwapFlagLeavesFrameUnchanged) {
  std::vector<_ori_point> frame = {test::MakePointXYZ(1.0, 2.0, 3.0),
                                   test::MakePointXYZ(-0.0, 5.0, -1.0)};
  const std::vector<_ori_point> before = frame;
  test::MakeAlgo(31, LIDAR_MARLO192, R"({"x_forward_flag": 1, "transformRotateX": 0})")
      ->Process(frame);
  EXPECT_TRUE(test::SameBytes(frame, before));
}

}  // namespace
}  // namespace velmar
