#include "filters/SunlightNoise2.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;

Frame MakeColumns(std::size_t count, double distance) {
  Frame frame = test::MakeFrame(count, distance);
  for (_ori_point& p : frame) {
    p.x = 1.0;
    p.y = 2.0;
    p.z = 3.0;
    p.intensity = 4.0;
  }
  return frame;
}

class SunlightNoise2Test : public ::testing::Test {
 protected:
  std::shared_ptr<SunlightNoise2> filter = test::MakeAlgoAs<SunlightNoise2>(3, LIDAR_MARLO256);

  // Gives `previous` as the first frame, then filters `current` and returns it.
  Frame After(const Frame& previous, Frame current) {
    Frame first = previous;
    filter->Process(first);
    filter->Process(current);
    return current;
  }
  bool KeepsPoint(const Frame& previous, const Frame& current, std::size_t index) {
    return After(previous, current)[index].distance != 0.0;
  }
};

TEST_F(SunlightNoise2Test, FirstFrameAndFirstAfterClearPassUnchanged) {
  Frame noisy = MakeColumns(40, 0.0);
  noisy[10].distance = 5.0;  // isolated, and nothing at its place before
  Frame first = noisy;
  filter->Process(first);
  EXPECT_TRUE(test::SameBytes(first, noisy));

  Frame empty_before = MakeColumns(40, 0.0);
  filter->ClearCache();
  filter->Process(empty_before);
  Frame second = noisy;
  filter->Process(second);
  EXPECT_EQ(second[10].distance, 0.0);

  filter->ClearCache();
  Frame after_clear = noisy;
  filter->Process(after_clear);
  EXPECT_TRUE(test::SameBytes(after_clear, noisy));
}

TEST_F(SunlightNoise2Test, DeletionClearsPositionAndRangeOnly) {
  Frame current = MakeColumns(40, 0.0);
  current[10].distance = 5.0;
  const Frame out = After(MakeColumns(40, 0.0), current);
  EXPECT_EQ(out[10].distance, 0.0);
  EXPECT_EQ(out[10].x, 0.0);
  EXPECT_EQ(out[10].y, 0.0);
  EXPECT_EQ(out[10].z, 0.0);
  EXPECT_EQ(out[10].intensity, 4.0);
  EXPECT_EQ(out[11].x, 1.0);  // points at range 0 are never touched
}

TEST_F(SunlightNoise2Test, RangeJumpFromThePreviousColumn) {
  // A second range near by makes the neighbourhood unsettled, so the jump alone decides.
  Frame previous = MakeColumns(40, 0.0);
  Frame current = MakeColumns(40, 0.0);
  current[11].distance = 6.0;
  current[10].distance = 5.0;
  previous[10].distance = 5.0625;
  EXPECT_TRUE(KeepsPoint(previous, current, 10));
  filter->ClearCache();
  previous[10].distance = 5.25;
  EXPECT_FALSE(KeepsPoint(previous, current, 10));
}

TEST_F(SunlightNoise2Test, OnlyNearPointsAreJudged) {
  Frame previous = MakeColumns(40, 3.0);
  Frame current = MakeColumns(40, 3.0);
  current[10].distance = 10.0;
  EXPECT_TRUE(KeepsPoint(previous, current, 10));
  filter->ClearCache();
  current[10].distance = 9.99;
  EXPECT_FALSE(KeepsPoint(previous, current, 10));
}

TEST_F(SunlightNoise2Test, SettledNeighbourhoodsAreLeftAlone) {
  // All ranges 5.0 except the previous column's partner: the spread, taken in single precision,
  // decides. 5.2f - 5.0f is just under 0.2 although 5.2 - 5.0 is just over it in double.
  Frame previous = MakeColumns(40, 5.0);
  const Frame current = MakeColumns(40, 5.0);
  previous[10].distance = 5.2;
  EXPECT_TRUE(KeepsPoint(previous, current, 10));
  filter->ClearCache();
  previous[10].distance = 5.25;
  EXPECT_FALSE(KeepsPoint(previous, current, 10));
}

TEST_F(SunlightNoise2Test, SparseNeighbourhoodsAreJudgedEvenWithoutSpread) {
  const Frame previous = MakeColumns(40, 0.0);
  Frame current = MakeColumns(40, 0.0);
  current[10].distance = 5.0;
  EXPECT_FALSE(KeepsPoint(previous, current, 10));  // one valid range
  filter->ClearCache();
  current[13].distance = 5.0;  // three channels away still counts: two ranges, no spread
  EXPECT_TRUE(KeepsPoint(previous, current, 10));
  filter->ClearCache();
  current[13].distance = 0.0;
  current[14].distance = 5.0;  // four away does not
  EXPECT_FALSE(KeepsPoint(previous, current, 10));
}

TEST_F(SunlightNoise2Test, TwoColumnsWhenTheColumnStartsShareAnEcho) {
  // Point 74 continues point 10 of the same frame, point 10 continues point 74 of the previous
  // frame; with one column each continues its own place in the previous frame.
  Frame previous = MakeColumns(128, 5.0);
  Frame current = MakeColumns(128, 5.0);
  previous[74].distance = 7.0;
  current[74].distance = 7.0;
  Frame out = After(previous, current);
  EXPECT_EQ(out[74].distance, 0.0);

  filter->ClearCache();
  current[64].echo = 1;
  out = After(previous, current);
  EXPECT_EQ(out[74].distance, 7.0);

  filter->ClearCache();
  previous = MakeColumns(128, 5.0);
  current = MakeColumns(128, 5.0);
  previous[10].distance = 7.0;
  current[10].distance = 7.0;
  EXPECT_FALSE(KeepsPoint(previous, current, 10));
  filter->ClearCache();
  current[64].echo = 1;
  EXPECT_TRUE(KeepsPoint(previous, current, 10));
}

TEST_F(SunlightNoise2Test, SixtyFivePointsAlreadyMakeTwoColumns) {
  Frame previous = MakeColumns(65, 5.0);
  Frame current = MakeColumns(65, 5.0);
  previous[64].distance = 7.0;
  current[64].distance = 7.0;
  EXPECT_FALSE(KeepsPoint(previous, current, 64));
}

TEST_F(SunlightNoise2Test, MissingPartnersContributeNothing) {
  // Two columns now, but the previous frame is short: point 20 has no partner and stays, point
  // 70 has its partner in this frame.
  Frame current = MakeColumns(128, 0.0);
  current[20].distance = 5.0;
  current[70].distance = 5.0;
  Frame out = After(MakeColumns(10, 9.0), current);
  EXPECT_EQ(out[20].distance, 5.0);
  EXPECT_EQ(out[70].distance, 0.0);

  // One column with a shorter previous frame.
  filter->ClearCache();
  Frame single = MakeColumns(40, 0.0);
  single[20].distance = 5.0;
  single[3].distance = 5.0;
  out = After(MakeColumns(10, 9.0), single);
  EXPECT_EQ(out[20].distance, 5.0);
  EXPECT_EQ(out[3].distance, 0.0);
}

TEST_F(SunlightNoise2Test, ComparesWithThePreviousFrameAsItCameIn) {
  Frame frame1 = MakeColumns(40, 0.0);
  frame1[10].distance = 5.0;
  Frame frame2 = MakeColumns(40, 0.0);
  frame2[10].distance = 6.0;
  Frame frame3 = frame2;
  filter->Process(frame1);
  filter->Process(frame2);
  filter->Process(frame3);
  EXPECT_EQ(frame2[10].distance, 0.0);
  EXPECT_EQ(frame3[10].distance, 6.0);  // judged against 6.0, not against the deleted point
}

TEST_F(SunlightNoise2Test, MirrorOneIsLeftAloneOnTheSmallBlindModel) {
  Frame current = MakeColumns(40, 0.0);
  current[10].distance = 5.0;
  current[10].mirror = 1;
  EXPECT_FALSE(KeepsPoint(MakeColumns(40, 0.0), current, 10));

  filter = test::MakeAlgoAs<SunlightNoise2>(3, LIDAR_MARLO256_SMALL_BLIND);
  EXPECT_TRUE(filter->skip_mirror_one);
  EXPECT_TRUE(KeepsPoint(MakeColumns(40, 0.0), current, 10));
  filter->ClearCache();
  current[10].mirror = 2;
  EXPECT_FALSE(KeepsPoint(MakeColumns(40, 0.0), current, 10));
}

TEST_F(SunlightNoise2Test, SupportedModels) {
  EXPECT_TRUE(filter->IsSupported("Marlo256"));
  EXPECT_TRUE(filter->IsSupported("Marlo256SmallBlind"));
  EXPECT_FALSE(filter->IsSupported("Marlo128H"));
  EXPECT_FALSE(filter->IsSupported("Marlo256Depth"));
}

}  // namespace
}  // namespace velmar
