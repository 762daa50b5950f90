#include "geometry/SmallBlindMarlo128.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::Removes;

const double kNearEdge = 2.5 - 0.1;
const double kFarEdge = 2.5 + 0.1;
const double kJustBelowNear = std::nextafter(kNearEdge, 0.0);
const double kJustAboveFar = std::nextafter(kFarEdge, 10.0);

TEST(SmallBlindMarlo128, Marlo128FTrustsFaceTwoNearAndOthersFar) {
  auto algo = test::MakeAlgo(28, LIDAR_MARLO128F);
  EXPECT_FALSE(Removes(*algo, kFarEdge, 2) || Removes(*algo, 0.3, 2, 1));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 2));
  for (uint32_t face : {0u, 1u, 5u}) {
    EXPECT_FALSE(Removes(*algo, kNearEdge, face) || Removes(*algo, 80.0, face));
    EXPECT_TRUE(Removes(*algo, kJustBelowNear, face));
  }
}

TEST(SmallBlindMarlo128, Marlo128ChoosesTheNearFaceByEcho) {
  auto algo = test::MakeAlgo(28, LIDAR_MARLO128);
  // Near-field: face 1 of any echo but the second, face 2 of the second echo.
  EXPECT_FALSE(Removes(*algo, kFarEdge, 1, 0) || Removes(*algo, 0.2, 1, 0));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 1, 0) && Removes(*algo, kJustAboveFar, 1, 2));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 2, 1));
  EXPECT_FALSE(Removes(*algo, 0.2, 2, 1));
  // Every other face and echo is far-field.
  EXPECT_FALSE(Removes(*algo, kNearEdge, 2, 0) || Removes(*algo, 90.0, 1, 1));
  EXPECT_TRUE(Removes(*algo, kJustBelowNear, 2, 0) && Removes(*algo, kJustBelowNear, 1, 1));
  EXPECT_TRUE(Removes(*algo, kJustBelowNear, 0, 0) && Removes(*algo, kJustBelowNear, 0, 1));
}

TEST(SmallBlindMarlo128, AuxFlagExemptsOnlyOnMarlo128AndOtherModelsAreLeftAlone) {
  for (LidarType type : {LIDAR_MARLO128, LIDAR_MARLO128F, LIDAR_MARLO128H}) {
    std::vector<_ori_point> frame{test::FacePoint(0.5, 0), test::FacePoint(0.5, 0)};
    frame[0].aux_flag = 0x80;
    test::MakeAlgo(28, type)->Process(frame);
    EXPECT_EQ(test::IsRemoved(frame[0]), type == LIDAR_MARLO128F);
    EXPECT_EQ(test::IsRemoved(frame[1]), type != LIDAR_MARLO128H);
  }
}

TEST(SmallBlindMarlo128, EachModelUsesItsOwnSingleSeparation) {
  const std::string params =
      R"({"separate_mirror_ABC_dist_marlo128f": 4, "separate_mirror_ABC_dist_marlo128": 2.7})";
  auto f = test::MakeAlgo(28, LIDAR_MARLO128F, params);
  EXPECT_TRUE(Removes(*f, 3.85, 0));
  EXPECT_FALSE(Removes(*f, 3.95, 0));
  // float(2.7) + 0.1 is about 2.80000005; 2.7 + 0.1 in double would remove the first point.
  auto plain = test::MakeAlgo(28, LIDAR_MARLO128, params);
  EXPECT_FALSE(Removes(*plain, 2.80000002, 1) || Removes(*plain, 3.85, 0));
  EXPECT_TRUE(Removes(*plain, 2.8000001, 1));
}

}  // namespace
}  // namespace velmar
