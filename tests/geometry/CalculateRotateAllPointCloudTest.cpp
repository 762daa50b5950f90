#include "geometry/CalculateRotateAllPointCloud.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgo;
using test::MakePointXYZ;

constexpr int kId = 31;

_ori_point Transformed(const std::string& params, _ori_point p) {
  std::vector<_ori_point> frame{p};
  MakeAlgo(kId, LIDAR_MARLO128, params)->Process(frame);
  return frame[0];
}

TEST(CalculateRotateAllPointCloud, IdentityWithSwapFlagLeavesFrameUnchanged) {
  std::vector<_ori_point> frame = {MakePointXYZ(1.0, 2.0, 3.0), MakePointXYZ(-0.0, 5.0, -1.0)};
  frame[1].distance = 4.0;
  const std::vector<_ori_point> before = frame;
  std::string output;
  auto algo = MakeAlgo(kId, LIDAR_MARLO192,
                       R"({"x_forward_flag": 1, "transformRotateX": 0, "transformMoveX": 0,
                           "secondTransformRotateZ": 0, "secondTransformMoveZ": 0})",
                       &output);
  algo->Process(frame);
  EXPECT_TRUE(test::SameBytes(frame, before));
  EXPECT_EQ(output, "");
}

TEST(CalculateRotateAllPointCloud, SwapIsSkippedWithIdentityRotationButNotWithARealOne) {
  _ori_point p =
      Transformed(R"({"x_forward_flag": 1, "transformMoveX": 1})", MakePointXYZ(1.0, 2.0, 3.0));
  EXPECT_EQ(p.x, 2.0);
  EXPECT_EQ(p.y, 2.0);
  EXPECT_EQ(p.z, 3.0);

  // Swap (y, -x) then a half turn about z.
  p = Transformed(R"({"x_forward_flag": 1, "transformRotateZ": 180})", MakePointXYZ(1.0, 2.0, 3.0));
  EXPECT_NEAR(p.x, -2.0, 1e-6);
  EXPECT_NEAR(p.y, 1.0, 1e-6);
  EXPECT_NEAR(p.z, 3.0, 1e-12);
}

TEST(CalculateRotateAllPointCloud, QuarterTurnAboutZUsesSinglePrecisionDegreeFactor) {
  const _ori_point p = Transformed(R"({"transformRotateZ": 90})", MakePointXYZ(1.0, 0.0, 0.0));
  // cos(90 * float(pi/180)) is about 1.2e-8; the exact factor would give about 6e-17.
  EXPECT_NEAR(p.x, 1.2167964e-8, 1e-14);
  EXPECT_NEAR(p.y, 1.0, 1e-15);
  EXPECT_EQ(p.z, 0.0);
}

TEST(CalculateRotateAllPointCloud, RotatesAboutXBeforeZ) {
  // Rx(90) takes +y to +z, which Rz leaves alone; the opposite order would end on -x.
  const _ori_point p = Transformed(R"({"transformRotateX": 90, "transformRotateZ": 90})",
                                   MakePointXYZ(0.0, 1.0, 0.0));
  EXPECT_NEAR(p.x, 0.0, 1e-6);
  EXPECT_NEAR(p.y, 0.0, 1e-6);
  EXPECT_NEAR(p.z, 1.0, 1e-6);
}

TEST(CalculateRotateAllPointCloud, TranslationIsSinglePrecisionAndMovesRemovedPoints) {
  std::vector<_ori_point> frame = {MakePointXYZ(1.0, 2.0, 3.0), MakePointXYZ(0.0, 0.0, -1.0)};
  frame[0].distance = 7.0;
  frame[1].distance = 0.0;
  MakeAlgo(kId, LIDAR_ZEPHEL_T, R"({"transformMoveZ": 1.5, "transformMoveY": 0.1})")
      ->Process(frame);
  EXPECT_EQ(frame[0].x, 1.0);
  EXPECT_EQ(frame[0].y, 2.0 + static_cast<double>(0.1f));
  EXPECT_EQ(frame[0].z, 4.5);
  EXPECT_EQ(frame[0].distance, 7.0);
  EXPECT_EQ(frame[1].z, 0.5);
  EXPECT_EQ(frame[1].distance, 0.0);
}

TEST(CalculateRotateAllPointCloud, SecondTransformIsAppliedAfterTheFirst) {
  _ori_point p = Transformed(R"({"transformRotateZ": 90, "secondTransformMoveX": 1})",
                             MakePointXYZ(1.0, 0.0, 0.0));
  EXPECT_NEAR(p.x, 1.0, 1e-6);
  EXPECT_NEAR(p.y, 1.0, 1e-6);
  EXPECT_EQ(p.z, 0.0);

  // The second rotation also turns the first translation.
  p = Transformed(R"({"transformMoveX": 1, "secondTransformRotateZ": 90})",
                  MakePointXYZ(0.0, 0.0, 0.0));
  EXPECT_NEAR(p.x, 0.0, 1e-6);
  EXPECT_NEAR(p.y, 1.0, 1e-6);
  EXPECT_EQ(p.z, 0.0);

  // Rx(90) then Rz(90) keeps +y on +z; composed the other way round it would end on -x.
  p = Transformed(R"({"transformRotateX": 90, "secondTransformRotateZ": 90})",
                  MakePointXYZ(0.0, 1.0, 0.0));
  EXPECT_NEAR(p.x, 0.0, 1e-6);
  EXPECT_NEAR(p.y, 0.0, 1e-6);
  EXPECT_NEAR(p.z, 1.0, 1e-6);
}

TEST(CalculateRotateAllPointCloud, MissingKeysAreNeutralAndNotInserted) {
  auto algo = test::MakeAlgoAs<CalculateRotateAllPointCloud>(kId, LIDAR_BRISEL, R"({})");
  ASSERT_NE(algo, nullptr);
  EXPECT_FALSE(algo->x_forward);
  EXPECT_EQ(algo->trans, (CalculateRotateAllPointCloud::Vector3{0.0, 0.0, 0.0}));
  EXPECT_EQ(algo->rot[0][0], 1.0);
  EXPECT_EQ(algo->rot[1][1], 1.0);
  EXPECT_EQ(algo->rot[0][1], 0.0);
  EXPECT_TRUE(algo->num_params.empty());
  std::vector<_ori_point> empty;
  algo->Process(empty);
  EXPECT_TRUE(empty.empty());
}

}  // namespace
}  // namespace velmar
