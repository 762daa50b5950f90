#include <gtest/gtest.h>

#include "framework/about.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

TEST(About, ModelNamesFollowTheHostNumbering) {
  EXPECT_EQ(LidarTypeToStr(0), "Orvik16");
  EXPECT_EQ(LidarTypeToStr(6), "MarloMini");
  EXPECT_EQ(LidarTypeToStr(7), "QuillA3");
  EXPECT_EQ(LidarTypeToStr(15), "ZephelB2/B3/MP");
  EXPECT_EQ(LidarTypeToStr(16), "Marlo128H");
  EXPECT_EQ(LidarTypeToStr(17), "Marlo128");
  EXPECT_EQ(LidarTypeToStr(LIDAR_KR360), "KR360");
  EXPECT_EQ(LidarTypeToStr(LIDAR_ZEPHEL_B2_64), kZephelB2_64);
}

TEST(About, ValuesOutsideTheTableHaveNoName) {
  EXPECT_EQ(LidarTypeToStr(22), "");
  EXPECT_EQ(LidarTypeToStr(-1), "");
  EXPECT_EQ(LidarTypeToStr(1 << 30), "");
}

TEST(About, VersionAndDebugStrings) {
  EXPECT_EQ(ILidarAlgo::VersionNumber(), "2.0.6");
  EXPECT_EQ(ILidarAlgo::DebugString(), "");
}

}  // namespace
}  // namespace velmar
