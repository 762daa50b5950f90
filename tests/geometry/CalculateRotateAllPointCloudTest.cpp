#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

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
