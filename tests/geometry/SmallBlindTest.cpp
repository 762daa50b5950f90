#include "geometry/SmallBlind.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::Removes;

TEST(SmallBlind, FaceZeroIsNearBlindAndFaceOneFarBlind) {
  std::string output;
  auto algo = test::MakeAlgo(18, LIDAR_MARLO256_SMALL_BLIND, R"({"other": 1})", &output);
  EXPECT_EQ(output, "");
  EXPECT_FALSE(Removes(*algo, 2.96, 0));
  EXPECT_TRUE(Removes(*algo, 2.94, 0));
  EXPECT_FALSE(Removes(*algo, 3.0 - 0.05, 0));
  EXPECT_TRUE(Removes(*algo, std::nextafter(3.0 - 0.05, 0.0), 0));
  EXPECT_FALSE(Removes(*algo, 3.0 + 0.05, 1));
  EXPECT_TRUE(Removes(*algo, std::nextafter(3.0 + 0.05, 10.0), 1));
  EXPECT_FALSE(Removes(*algo, 100.0, 0) || Removes(*algo, 0.1, 1));
  for (double d : {0.5, 2.94, 3.06, 500.0}) {
    EXPECT_FALSE(Removes(*algo, d, 2) || Removes(*algo, d, 3)) << d;
  }
}

TEST(SmallBlind, SeparationIsHeldInSinglePrecision) {
  auto algo =
      test::MakeAlgo(18, LIDAR_MARLO256_SMALL_BLIND, R"({"separate_mirror_ABC_dist": 2.7})");
  // float(2.7) - 0.05 is about 2.65000005; 2.7 - 0.05 in double would keep the first point.
  EXPECT_TRUE(Removes(*algo, 2.65000002, 0));
  EXPECT_FALSE(Removes(*algo, 2.6500001, 0));
}

}  // namespace
}  // namespace velmar
