#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;
using Ranges = std::vector<double>;

_ori_point Return(uint32_t channel, double distance, double pulse_width) {
  _ori_point p = test::MakePoint(distance);
  p.channel = channel;
  p.pulse_width = pulse_width;
  return p;
}

Frame Filtered(Frame frame, const std::string& params = "{}") {
  test::MakeAlgo(33, LIDAR_ZEPHEL_T, params)->Process(frame);
  return frame;
}

// Channels 10, 25 and 81 form a group; 9 belongs to another.
TEST(HighrefFilterZepTTest, RemovesWeakReturnsNearAStrongOneOfTheGroup) {
  const Frame out = Filtered({Return(10, 20.8, 30),  // before the strong return: still a ghost
                              Return(25, 20.0, 41), Return(10, 21.2, 30),
                              Return(81, 19.0, 30),  // exactly 1 m away
                              Return(9, 20.0, 30)});
  EXPECT_EQ(test::Ranges(out), (Ranges{0.0, 20.0, 21.2, 0.0, 20.0}));
  EXPECT_EQ(out[0].echo, 1u);
  EXPECT_EQ(out[0].pulse_width, 30.0);
  // Two strong channels protect each other; a ghost's pulse is narrower than the noise threshold.
  EXPECT_EQ(
      test::Ranges(Filtered({Return(10, 20.0, 51), Return(25, 20.5, 60), Return(10, 20.2, 1),
                             Return(25, 20.3, 1), Return(81, 20.1, 43), Return(81, 20.2, 42.9)},
                            R"({"highRefThreshold": 50})")),
      (Ranges{20.0, 20.5, 20.2, 20.3, 20.1, 0.0}));
  // Single precision: 20.1 held as a float is 20.1000004, so a point 1.0000002 m beyond 20.1 is
  // still within 1 m; 0.1 as a float is slightly above 0.1.
  EXPECT_EQ(Filtered({Return(25, 20.1, 41), Return(10, 21.1000002, 30)})[1].distance, 0.0);
  EXPECT_EQ(
      Filtered({Return(25, 20.0, 41), Return(10, 20.1, 30)}, R"({"distanceThreshold": 0.1})")[1]
          .distance,
      0.0);
}

TEST(HighrefFilterZepTTest, FramesWithoutAGroupedStrongReturnPassUnchanged) {
  const Frame frame = {Return(25, 20.0, 40),  // exactly 40 is not strong
                       Return(0, 20.0, 90),   // channel 0 has no group
                       Return(97, 20.0, 90), Return(4000000000u, 20.0, 90),
                       Return(10, 20.0, 1),  Return(0, 20.0, 1)};
  EXPECT_TRUE(test::SameBytes(Filtered(frame), frame));
}

TEST(HighrefFilterZepTTest, MatchesAnyOfManyStrongRangesAndForgetsThemNextFrame) {
  auto filter = test::MakeAlgo(33, LIDAR_ZEPHEL_T);
  Frame frame = {Return(25, 50.0, 41), Return(81, 5.0, 41), Return(25, 30.0, 41),
                 Return(10, 5.9, 1),   Return(10, 29.5, 1), Return(10, 40.0, 1),
                 Return(10, 51.0, 1),  Return(10, 3.9, 1),  Return(10, 31.0001, 1)};
  filter->Process(frame);
  EXPECT_EQ(test::Ranges(frame), (Ranges{50.0, 5.0, 30.0, 0.0, 0.0, 40.0, 0.0, 3.9, 31.0001}));
  Frame next = {Return(10, 5.9, 1), Return(25, 30.0, 1)};
  filter->Process(next);
  EXPECT_EQ(next[0].distance, 5.9);
}

}  // namespace
}  // namespace velmar
