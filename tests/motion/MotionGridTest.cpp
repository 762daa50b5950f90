#include "motion/MotionGrid.h"

#include <gtest/gtest.h>

namespace velmar {
namespace {

TEST(MotionGrid, VotesOverTheTenNewestPushesOnly) {
  MotionGrid grid(1, 1);
  for (int k = 1; k <= 12; ++k) {
    grid.Record(0, k);
    grid.Record(1, k % 3 == 0 ? 0.0 : -1.0);
    EXPECT_TRUE(grid.PushOnce());
    EXPECT_EQ(grid.WarmingUp(), k <= 10) << k;
    EXPECT_FALSE(grid.PushOnce());
    grid.Rearm();
  }
  EXPECT_EQ(grid.FramesSeen(), 11);
  EXPECT_EQ(grid.Vote(0, 2.0, 0.5).agreeing, 0);  // pushed first, overwritten since
  EXPECT_EQ(grid.Vote(0, 3.0, 0.5).agreeing, 1);
  EXPECT_EQ(grid.Vote(0, 12.0, 0.5).positive, 10);
  const HistoryVotes empty = grid.Vote(1, 5.0, 0.5);
  EXPECT_EQ(empty.positive, 0);
  EXPECT_EQ(empty.zero, 4);  // pushes 3, 6, 9 and 12
}

TEST(MotionGrid, AgreementNarrowsTheDifferenceAndScalesWithRange) {
  MotionGrid grid(1, 1);
  for (int k = 0; k < 10; ++k) {
    grid.Record(0, 10.0);
    grid.PushOnce();
    grid.Rearm();
  }
  // 10.1 - 10 is just below 0.1 in double but rounds to 0.1f, which is not below 0.1.
  EXPECT_EQ(grid.Vote(0, 10.1, 0.1).agreeing, 0);
  EXPECT_EQ(grid.Vote(0, 10.09, 0.1).agreeing, 10);
  // Without an absolute tolerance, about 0.0017 of the range still agrees.
  EXPECT_EQ(grid.Vote(0, 10.015, 0.0).agreeing, 10);
  EXPECT_EQ(grid.Vote(0, 10.02, 0.0).agreeing, 0);
  EXPECT_EQ(grid.Vote(0, 0.0, 1e9).agreeing, 0);
}

}  // namespace
}  // namespace velmar
