#include "geometry/SmallBlind.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::FacePoint;
using test::IsRemoved;

constexpr int kId = 18;

bool Removes(AlgoBase& algo, double distance, uint32_t mirror) {
  std::vector<_ori_point> frame{FacePoint(distance, mirror)};
  algo.Process(frame);
  return IsRemoved(frame[0]);
}

TEST(SmallBlind, FaceZeroIsNearBlindAndFaceOneFarBlind) {
  auto algo = test::MakeAlgo(kId, LIDAR_MARLO256_SMALL_BLIND);
  EXPECT_FALSE(Removes(*algo, 2.96, 0));
  EXPECT_TRUE(Removes(*algo, 2.94, 0));
  EXPECT_FALSE(Removes(*algo, 3.0 - 0.05, 0));
  EXPECT_TRUE(Removes(*algo, std::nextafter(3.0 - 0.05, 0.0), 0));
  EXPECT_FALSE(Removes(*algo, 100.0, 0));

  EXPECT_FALSE(Removes(*algo, 3.0 + 0.05, 1));
  EXPECT_TRUE(Removes(*algo, std::nextafter(3.0 + 0.05, 10.0), 1));
  EXPECT_FALSE(Removes(*algo, 0.1, 1));
  for (double d : {0.0, 0.5, 2.94, 3.06, 500.0}) {
    EXPECT_FALSE(Removes(*algo, d, 2)) << d;
    EXPECT_FALSE(Removes(*algo, d, 3)) << d;
  }
}

TEST(SmallBlind, SeparationIsHeldInSinglePrecision) {
  std::string output;
  auto algo = test::MakeAlgoAs<SmallBlind>(kId, LIDAR_MARLO256_SMALL_BLIND,
                                           R"({"separate_mirror_ABC_dist": 2.7})", &output);
  EXPECT_EQ(output, "");
  EXPECT_EQ(algo->separate_dist, 2.7f);
  // float(2.7) - 0.05 is about 2.65000005, above this range; 2.7 - 0.05 in double is below it.
  EXPECT_TRUE(Removes(*algo, 2.65000002, 0));
  EXPECT_FALSE(Removes(*algo, 2.6500001, 0));
}

TEST(SmallBlind, MissingKeyKeepsDefaultSilently) {
  std::string output;
  auto algo = test::MakeAlgoAs<SmallBlind>(kId, LIDAR_MARLO256_SMALL_BLIND, R"({"x": 1})", &output);
  EXPECT_EQ(output, "");
  EXPECT_EQ(algo->separate_dist, 3.0f);
  EXPECT_TRUE(algo->IsSupported("Marlo256SmallBlind"));
  EXPECT_FALSE(algo->IsSupported("Marlo256"));
}

}  // namespace
}  // namespace velmar
