#include "geometry/CalculateRotateAllPointCloud.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

_ori_point Transformed(const std::string& params, double x, double y, double z) {
  std::vector<_ori_point> frame{test::MakePointXYZ(x, y, z)};
  test::MakeAlgo(31, LIDAR_MARLO128, params)->Process(frame);
  return frame[0];
}

void ExpectAt(const _ori_point& p, double x, double y, double z) {
  EXPECT_NEAR(p.x, x, 1e-6);
  EXPECT_NEAR(p.y, y, 1e-6);
  EXPECT_NEAR(p.z, z, 1e-6);
}

TEST(CalculateRotateAllPointCloudTest, IdentityWithSwapFlagLeavesFrameUnchanged) {
  std::vector<_ori_point> frame = {test::MakePointXYZ(1.0, 2.0, 3.0),
                                   test::MakePointXYZ(-0.0, 5.0, -1.0)};
  const std::vector<_ori_point> before = frame;
  test::MakeAlgo(31, LIDAR_MARLO192, R"({"x_forward_flag": 1, "transformRotateX": 0})")
      ->Process(frame);
  EXPECT_TRUE(test::SameBytes(frame, before));
}

TEST(CalculateRotateAllPointCloudTest, SwapTakesEffectOnlyThroughARotation) {
  const _ori_point moved = Transformed(R"({"x_forward_flag": 1, "transformMoveX": 1})", 1, 2, 3);
  EXPECT_EQ(moved.x, 2.0);
  EXPECT_EQ(moved.y, 2.0);
  EXPECT_EQ(moved.z, 3.0);
  // (y, -x) = (2, -1), then a half turn about z.
  ExpectAt(Transformed(R"({"x_forward_flag": 1, "transformRotateZ": 180})", 1, 2, 3), -2, 1, 3);
}

TEST(CalculateRotateAllPointCloudTest, QuarterTurnAboutZUsesSinglePrecisionDegreeFactor) {
  const _ori_point p = Transformed(R"({"transformRotateZ": 90})", 1, 0, 0);
  // cos(90 * float(pi/180)) is about 1.2e-8; the exact factor would give about 6e-17.
  EXPECT_NEAR(p.x, 1.2167964e-8, 1e-14);
  EXPECT_NEAR(p.y, 1.0, 1e-15);
  EXPECT_EQ(p.z, 0.0);
}

TEST(CalculateRotateAllPointCloudTest, RotatesAboutXBeforeZInBothTransforms) {
  // Rx(90) takes +y to +z, which Rz leaves alone; the opposite order would end on -x.
  ExpectAt(Transformed(R"({"transformRotateX": 90, "transformRotateZ": 90})", 0, 1, 0), 0, 0, 1);
  ExpectAt(Transformed(R"({"transformRotateX": 90, "secondTransformRotateZ": 90})", 0, 1, 0), 0, 0,
           1);
}

TEST(CalculateRotateAllPointCloudTest, SecondTransformIsAppliedAfterTheFirst) {
  ExpectAt(Transformed(R"({"transformRotateZ": 90, "secondTransformMoveX": 1})", 1, 0, 0), 1, 1, 0);
  // The second rotation also turns the first translation.
  ExpectAt(Transformed(R"({"transformMoveX": 1, "secondTransformRotateZ": 90})", 0, 0, 0), 0, 1, 0);
}

TEST(CalculateRotateAllPointCloudTest, TranslationIsSinglePrecisionAndMovesRemovedPoints) {
  std::vector<_ori_point> frame = {test::MakePointXYZ(1, 2, 3), test::MakePointXYZ(0, 0, -1)};
  frame[0].distance = 7.0;
  test::MakeAlgo(31, LIDAR_ZEPHEL_T, R"({"transformMoveZ": 1.5, "transformMoveY": 0.1})")
      ->Process(frame);
  EXPECT_EQ(frame[0].x, 1.0);
  EXPECT_EQ(frame[0].y, 2.0 + static_cast<double>(0.1f));
  EXPECT_EQ(frame[0].z, 4.5);
  EXPECT_EQ(frame[0].distance, 7.0);
  EXPECT_EQ(frame[1].z, 0.5);
  EXPECT_EQ(frame[1].distance, 0.0);
}

}  // namespace
}  // namespace velmar
