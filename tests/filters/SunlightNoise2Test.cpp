#include "filters/SunlightNoise2.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;

class SunlightNoise2Test : public ::testing::Test {
 protected:
  // Filters `current` after `previous` on a fresh history and returns it.
  Frame After(Frame previous, Frame current) {
    filter->ClearCache();
    filter->Process(previous);
    filter->Process(current);
    return current;
  }

  std::shared_ptr<SunlightNoise2> filter = test::MakeAlgoAs<SunlightNoise2>(3, LIDAR_MARLO256);
};

TEST_F(SunlightNoise2Test, FirstFrameAfterAClearPassesUnchanged) {
  // Two columns: point 74 is isolated and far from point 10 of its own frame.
  Frame noisy = test::MakeFrame(128, 0.0);
  noisy[74] = test::MakePointXYZ(1.0, 2.0, 3.0);
  noisy[74].distance = 5.0;
  noisy[74].intensity = 4.0;
  const Frame out = After(test::MakeFrame(128, 0.0), noisy);
  EXPECT_EQ(out[74].distance, 0.0);
  EXPECT_EQ(out[74].x, 0.0);
  EXPECT_EQ(out[74].z, 0.0);
  EXPECT_EQ(out[74].intensity, 4.0);
  filter->ClearCache();
  Frame first = noisy;
  filter->Process(first);
  EXPECT_TRUE(test::SameBytes(first, noisy));
}

TEST_F(SunlightNoise2Test, SpreadIsTakenInSinglePrecision) {
  // 5.2f - 5.0f is just under 0.2 although 5.2 - 5.0 is just over it in double: a settled
  // neighbourhood is left alone whatever the jump from the previous column.
  Frame previous = test::MakeFrame(40, 5.0);
  previous[10].distance = 5.2;
  EXPECT_EQ(After(previous, test::MakeFrame(40, 5.0))[10].distance, 5.0);
  previous[10].distance = 5.25;
  EXPECT_EQ(After(previous, test::MakeFrame(40, 5.0))[10].distance, 0.0);
  // Under 0.1 from the previous column is kept even when unsettled.
  Frame current = test::MakeFrame(40, 5.0);
  current[11].distance = 9.0;
  previous[10].distance = 5.0625;
  EXPECT_EQ(After(previous, current)[10].distance, 5.0);
}

TEST_F(SunlightNoise2Test, TwoColumnsWhenTheColumnStartsShareAnEcho) {
  // With two columns point 74 follows point 10 of the same frame and point 10 follows point 74
  // of the previous frame; with one column each follows its own place in the previous frame.
  for (std::size_t index : {10u, 74u}) {
    Frame previous = test::MakeFrame(128, 5.0);
    Frame current = test::MakeFrame(128, 5.0);
    previous[index].distance = 7.0;
    current[index].distance = 7.0;
    EXPECT_EQ(After(previous, current)[index].distance, 0.0) << index;
    current[64].echo = 1;
    EXPECT_EQ(After(previous, current)[index].distance, 7.0) << index;
  }
}

TEST_F(SunlightNoise2Test, MissingPartnersContributeNothing) {
  // The previous frame is short: point 20 has no partner and stays, point 70's is in this frame.
  Frame current = test::MakeFrame(128, 0.0);
  current[20].distance = 5.0;
  current[70].distance = 5.0;
  Frame out = After(test::MakeFrame(10, 9.0), current);
  EXPECT_EQ(out[20].distance, 5.0);
  EXPECT_EQ(out[70].distance, 0.0);
  out = After(test::MakeFrame(10, 9.0), Frame(current.begin(), current.begin() + 40));
  EXPECT_EQ(out[20].distance, 5.0);
}

TEST_F(SunlightNoise2Test, ComparesWithThePreviousFrameAsItCameIn) {
  Frame frame = test::MakeFrame(40, 0.0);
  frame[10].distance = 6.0;
  Frame second = frame;
  Frame out = After(test::MakeFrame(40, 0.0), frame);
  filter->Process(second);
  EXPECT_EQ(out[10].distance, 0.0);
  EXPECT_EQ(second[10].distance, 6.0);  // judged against 6.0, not the deleted point
}

TEST_F(SunlightNoise2Test, MirrorOneIsLeftAloneOnTheSmallBlindModel) {
  Frame current = test::MakeFrame(40, 0.0);
  current[10].distance = 5.0;
  current[10].mirror = 1;
  EXPECT_EQ(After(test::MakeFrame(40, 0.0), current)[10].distance, 0.0);
  filter = test::MakeAlgoAs<SunlightNoise2>(3, LIDAR_MARLO256_SMALL_BLIND);
  EXPECT_EQ(After(test::MakeFrame(40, 0.0), current)[10].distance, 5.0);
  EXPECT_TRUE(filter->IsSupported("Marlo256SmallBlind"));
  EXPECT_TRUE(filter->IsSupported("Marlo256"));
  EXPECT_FALSE(filter->IsSupported("Marlo128H"));
}

}  // namespace
}  // namespace velmar
