#include "motion/MotionGrid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace velmar {
namespace {

TEST(MotionGridTest, VotesOverTheTenNewestPushesOnly) {
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

TEST(MotionGridTest, AgreementNarrowsTheDifferenceAndScalesWithRange) {
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

// Ids run sub-cell first and storage runs row first: every id in the grid must own one storage
// place, and nothing outside it may get one.
TEST(MotionGridTest, EveryIdOwnsOneStoragePlace) {
  MotionGrid grid(3, 4);
  std::vector<bool> used(static_cast<std::size_t>(grid.CellCount()), false);
  for (int32_t id = 0; id < grid.CellCount(); ++id) {
    const int32_t index = grid.IndexOf(id);
    ASSERT_TRUE(index >= 0 && index < grid.CellCount()) << id;
    ASSERT_FALSE(used[static_cast<std::size_t>(index)]) << id;
    used[static_cast<std::size_t>(index)] = true;
  }
  EXPECT_EQ(grid.IndexOf(-1), MotionGrid::kNoCell);
  EXPECT_EQ(grid.IndexOf(grid.CellCount()), MotionGrid::kNoCell);
}

// A face index past the sub-cells names a cell of the next position, the next row's first column
// after the last column; partner ids found by arithmetic must reach the same storage.
TEST(MotionGridTest, SpilledAndPartnerIdsReachTheCellTheyName) {
  MotionGrid grid(3, 4);
  const double step = MotionGrid::kAngleStep;
  const double angle = MotionGrid::kAngleOrigin + 5.5 * step;
  const MotionGrid::Cell cell = grid.Locate(angle, 2.0, 1);
  EXPECT_EQ(cell.id, 1 + 4 * (5 + MotionGrid::kColumns * 2));
  EXPECT_EQ(cell.index, grid.IndexOf(cell.id));
  const MotionGrid::Cell next = grid.Locate(angle + step, 2.0, 2);
  EXPECT_EQ(grid.Locate(angle, 2.0, 6).id, next.id);
  EXPECT_EQ(grid.Locate(angle, 2.0, 6).index, next.index);

  const double last = MotionGrid::kAngleOrigin + (MotionGrid::kColumns - 0.5) * step;
  const MotionGrid::Cell wrapped = grid.Locate(last, 1.0, 4);
  EXPECT_EQ(wrapped.id, grid.Locate(MotionGrid::kAngleOrigin, 2.0, 0).id);
  EXPECT_EQ(wrapped.index, grid.Locate(MotionGrid::kAngleOrigin, 2.0, 0).index);
  EXPECT_TRUE(grid.Locate(last, 2.0, 3).Valid());
  EXPECT_FALSE(grid.Locate(last, 2.0, 4).Valid());

  grid.Record(grid.Locate(angle + step, 2.0, 0), 7.0);
  EXPECT_EQ(grid.Current(cell.id + 3), 7.0f);
  for (int k = 0; k < 10; ++k) {
    grid.PushOnce();
    grid.Rearm();
  }
  EXPECT_EQ(grid.Vote(cell.id + 3, 7.0, 0.1).agreeing, 10);
  EXPECT_EQ(grid.Vote(next, 7.0, 0.1).positive, 0);
}

// Votes compare a float difference against a double threshold through its float ceiling.
TEST(MotionGridTest, FloatCeilingKeepsTheDoubleComparison) {
  const float inf = std::numeric_limits<float>::infinity();
  EXPECT_EQ(FloatCeiling(0.5), 0.5f);  // exact: d < 0.5f is d < 0.5
  const float above = FloatCeiling(0.1);
  EXPECT_GE(static_cast<double>(above), 0.1);
  EXPECT_LT(static_cast<double>(std::nextafter(above, 0.0f)), 0.1);
  EXPECT_EQ(FloatCeiling(1e39), inf);
  EXPECT_EQ(FloatCeiling(std::numeric_limits<double>::infinity()), inf);
  EXPECT_EQ(FloatCeiling(-1e39), -std::numeric_limits<float>::max());
  EXPECT_EQ(FloatCeiling(-std::numeric_limits<double>::infinity()), -inf);
  EXPECT_TRUE(std::isnan(FloatCeiling(std::nan(""))));

  MotionGrid grid(1, 1);
  for (int k = 0; k < 10; ++k) {
    grid.Record(0, 5.0);
    grid.PushOnce();
    grid.Rearm();
  }
  // A NaN threshold leaves the range tolerance alone; a zero range never agrees.
  EXPECT_EQ(grid.Vote(0, 5.001, std::nan("")).agreeing, 10);
  EXPECT_EQ(grid.Vote(0, 5.1, std::nan("")).agreeing, 0);
  EXPECT_EQ(grid.Vote(0, 0.0, std::numeric_limits<double>::infinity()).agreeing, 0);
  EXPECT_EQ(grid.Vote(0, 400.0, std::numeric_limits<double>::infinity()).agreeing, 10);
}

}  // namespace
}  // namespace velmar
