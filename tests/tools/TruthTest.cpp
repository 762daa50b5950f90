#include <gtest/gtest.h>

#include "sim/Truth.h"

namespace velmar {
namespace sim {
namespace {

TEST(TruthTest, MovingBitDoesNotChangeTheKind) {
  const uint32_t encoded = EncodeTruth(TruthKind::kReal, true);
  EXPECT_EQ(TruthKindOf(encoded), TruthKind::kReal);
  _ori_point p{};
  p.reserved_a = encoded;
  EXPECT_TRUE(IsMovingTruth(p));
  p.reserved_a = EncodeTruth(TruthKind::kGround, false);
  EXPECT_FALSE(IsMovingTruth(p));
  EXPECT_EQ(TruthKindOf(p), TruthKind::kGround);
}

TEST(TruthTest, UnknownKindReadsAsNoReturn) {
  EXPECT_EQ(TruthKindOf(kTruthKindCount), TruthKind::kNoReturn);
  EXPECT_EQ(TruthKindOf(0xFFu | kTruthMovingBit), TruthKind::kNoReturn);
}

TEST(TruthTest, NoiseAndSurfaceKindsArePartitioned) {
  for (uint32_t k = 0; k < kTruthKindCount; ++k) {
    const TruthKind kind = static_cast<TruthKind>(k);
    const int groups = (kind == TruthKind::kNoReturn) + IsSurfaceTruth(kind) + IsNoiseTruth(kind);
    EXPECT_EQ(groups, 1) << TruthKindName(kind);
  }
  EXPECT_EQ(TruthKindName(TruthKind::kFixedEcho), "fixed-echo");
}

}  // namespace
}  // namespace sim
}  // namespace velmar
