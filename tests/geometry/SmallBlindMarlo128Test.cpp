#include "geometry/SmallBlindMarlo128.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::FacePoint;
using test::IsRemoved;

constexpr int kId = 28;
const double kNearEdge = 2.5 - 0.1;
const double kFarEdge = 2.5 + 0.1;
const double kJustBelowNear = std::nextafter(kNearEdge, 0.0);
const double kJustAboveFar = std::nextafter(kFarEdge, 10.0);

bool Removes(AlgoBase& algo, double distance, uint32_t mirror, uint32_t echo = 0) {
  std::vector<_ori_point> frame{FacePoint(distance, mirror, echo)};
  algo.Process(frame);
  return IsRemoved(frame[0]);
}

TEST(SmallBlindMarlo128, Marlo128FTrustsFaceTwoNearAndOthersFar) {
  auto algo = test::MakeAlgo(kId, LIDAR_MARLO128F);
  EXPECT_FALSE(Removes(*algo, kFarEdge, 2));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 2));
  EXPECT_FALSE(Removes(*algo, 0.3, 2, 1));
  for (uint32_t face : {0u, 1u, 5u}) {
    EXPECT_FALSE(Removes(*algo, kNearEdge, face));
    EXPECT_TRUE(Removes(*algo, kJustBelowNear, face));
    EXPECT_FALSE(Removes(*algo, 80.0, face));
  }
}

TEST(SmallBlindMarlo128, Marlo128ChoosesTheNearFaceByEcho) {
  auto algo = test::MakeAlgo(kId, LIDAR_MARLO128);
  // Near-field faces: face 1 of the first echo, face 2 of the second.
  EXPECT_FALSE(Removes(*algo, kFarEdge, 1, 0));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 1, 0));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 1, 2));
  EXPECT_FALSE(Removes(*algo, 0.2, 1, 0));
  EXPECT_TRUE(Removes(*algo, kJustAboveFar, 2, 1));
  EXPECT_FALSE(Removes(*algo, 0.2, 2, 1));
  // Every other face and echo is far-field.
  EXPECT_FALSE(Removes(*algo, kNearEdge, 2, 0));
  EXPECT_TRUE(Removes(*algo, kJustBelowNear, 2, 0));
  EXPECT_TRUE(Removes(*algo, kJustBelowNear, 1, 1));
  EXPECT_TRUE(Removes(*algo, kJustBelowNear, 0, 0));
  EXPECT_TRUE(Removes(*algo, kJustBelowNear, 0, 1));
  EXPECT_FALSE(Removes(*algo, 90.0, 1, 1));
}

TEST(SmallBlindMarlo128, AuxFlagExemptsOnlyOnMarlo128) {
  for (LidarType type : {LIDAR_MARLO128, LIDAR_MARLO128F}) {
    auto algo = test::MakeAlgo(kId, type);
    std::vector<_ori_point> frame{FacePoint(0.5, 0), FacePoint(0.5, 0)};
    frame[0].aux_flag = 0x80;
    algo->Process(frame);
    EXPECT_EQ(IsRemoved(frame[0]), type == LIDAR_MARLO128F);
    EXPECT_TRUE(IsRemoved(frame[1]));
  }
}

TEST(SmallBlindMarlo128, EachModelUsesItsOwnSeparation) {
  const std::string params =
      R"({"separate_mirror_ABC_dist_marlo128f": 4, "separate_mirror_ABC_dist_marlo128": 2.7})";
  std::string output;
  auto f = test::MakeAlgoAs<SmallBlindMarlo128>(kId, LIDAR_MARLO128F, params, &output);
  EXPECT_EQ(output, "");
  EXPECT_EQ(f->separate_dist_f, 4.0f);
  EXPECT_TRUE(Removes(*f, 3.85, 0));
  EXPECT_FALSE(Removes(*f, 3.95, 0));

  // float(2.7) + 0.1 is about 2.80000005, above this range; 2.7 + 0.1 in double is below it.
  auto plain = test::MakeAlgo(kId, LIDAR_MARLO128, params);
  EXPECT_FALSE(Removes(*plain, 2.80000002, 1));
  EXPECT_TRUE(Removes(*plain, 2.8000001, 1));
  EXPECT_FALSE(Removes(*plain, 3.85, 0));
}

TEST(SmallBlindMarlo128, OtherModelsAreLeftAlone) {
  auto algo = test::MakeAlgo(kId, LIDAR_MARLO128H);
  std::vector<_ori_point> frame{FacePoint(0.1, 0), FacePoint(90.0, 1), FacePoint(90.0, 2, 1)};
  const std::vector<_ori_point> before = frame;
  algo->Process(frame);
  EXPECT_TRUE(test::SameBytes(frame, before));
  EXPECT_FALSE(algo->IsSupported("Marlo128H"));
  EXPECT_TRUE(algo->IsSupported("Marlo128F"));
  EXPECT_TRUE(algo->IsSupported("Marlo128"));
}

}  // namespace
}  // namespace velmar
