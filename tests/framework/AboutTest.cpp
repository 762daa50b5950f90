// Model names, version strings and the conversion of configuration numbers into parameters.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "framework/AlgoBase.h"
#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

TEST(AboutTest, ModelNamesVersionAndDebugStrings) {
  EXPECT_EQ(LidarTypeToStr(0), "Orvik16");
  EXPECT_EQ(LidarTypeToStr(7), "QuillA3");
  EXPECT_EQ(LidarTypeToStr(15), "ZephelB2/B3/MP");
  EXPECT_EQ(LidarTypeToStr(17), "Marlo128");
  EXPECT_EQ(LidarTypeToStr(LIDAR_KR360), "KR360");
  for (int outside : {22, -1, 1 << 30}) {
    EXPECT_EQ(LidarTypeToStr(outside), "") << outside;
  }
  EXPECT_EQ(ILidarAlgo::VersionNumber(), "2.0.6");
  EXPECT_EQ(ILidarAlgo::DebugString(), "");
}

TEST(ParameterConversionTest, TruncatesTowardZeroAndSaturates) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(TruncateToInt32(2.9), 2);
  EXPECT_EQ(TruncateToInt32(-2.9), -2);
  EXPECT_EQ(TruncateToInt32(1e12), kMax);
  EXPECT_EQ(TruncateToInt32(-1e12), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(TruncateToInt32(std::nan("")), 0);
  EXPECT_EQ(TruncateToInt32(INFINITY), kMax);
  EXPECT_EQ(TruncateToUint32(7.99), 7u);
  EXPECT_EQ(TruncateToUint32(-3.0), 0u);
  EXPECT_EQ(TruncateToUint32(5e9), std::numeric_limits<uint32_t>::max());
}

}  // namespace
}  // namespace velmar
