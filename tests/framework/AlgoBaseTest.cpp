// Conversions of configuration numbers into parameter fields.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "framework/AlgoBase.h"

namespace velmar {
namespace {

TEST(ParameterConversion, TruncatesTowardZeroAndSaturates) {
  EXPECT_EQ(TruncateToInt32(2.9), 2);
  EXPECT_EQ(TruncateToInt32(-2.9), -2);
  EXPECT_EQ(TruncateToInt32(1e12), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(TruncateToInt32(-1e12), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(TruncateToInt32(std::nan("")), 0);
  EXPECT_EQ(TruncateToInt32(INFINITY), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(TruncateToUint32(7.99), 7u);
  EXPECT_EQ(TruncateToUint32(-3.0), 0u);
  EXPECT_EQ(TruncateToUint32(5e9), std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(TruncateToUint32(-INFINITY), 0u);
}

}  // namespace
}  // namespace velmar
