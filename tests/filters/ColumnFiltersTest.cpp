// Filters that judge a return by the other returns of its column: range outliers along a column
// of channels, and the ghosts a strong return leaves in the channel group of the ZephelT model.
#include <gtest/gtest.h>

#include <cmath>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;
using Ranges = std::vector<double>;

using Spikes = std::vector<std::pair<std::size_t, double>>;

// The ranges of a frame of `n` points at 10 m, with `spikes` replaced, after filtering.
std::vector<double> Filter(LidarType type, std::size_t n, const Spikes& spikes,
                           const std::string& params = "{}") {
  std::vector<_ori_point> frame = test::MakeFrame(n, 10.0);
  for (const auto& spike : spikes) {
    frame[spike.first].distance = spike.second;
  }
  test::MakeAlgo(7, type, params)->Process(frame);
  return test::Ranges(frame);
}

TEST(OutlierPointTest, RemovesASpikeWhenWholeMetresExceedTheThreshold) {
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{5, 20.0}})[5], 0.0);
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{5, 10.5}})[5], 10.5);  // truncated difference is 0
  const std::string t_is_one = R"({"thresholdMultiple": 0, "minThreshold": 1})";
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{5, 11.9}}, t_is_one)[5], 11.9);
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{5, 12.0}}, t_is_one)[5], 0.0);
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{5, 1e12}})[5], 0.0);  // beyond 32 bits is far
  EXPECT_TRUE(std::isnan(Filter(LIDAR_BRISEL, 128, {{5, std::nan("")}})[5]));
  // Point 6 lies on the line from 30 m to 10 m until the removed point 5 reads as 0.
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{5, 30.0}, {6, 20.0}})[6], 0.0);
}

TEST(OutlierPointTest, RunEndsUseTheirNeighboursLineAndRunsStandAlone) {
  // The first point is judged by whether point 1 is off the line from point 0 to point 2.
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{0, 30.0}, {1, 20.0}})[0], 30.0);
  EXPECT_EQ(Filter(LIDAR_BRISEL, 128, {{0, 30.0}})[0], 0.0);
  // Spikes side by side across a 16-point boundary: separate runs, except in "QuillA2" columns.
  const Spikes pairs = {{15, 30.0}, {16, 30.0}, {63, 30.0}, {64, 30.0}};
  const std::vector<double> runs = Filter(LIDAR_ORVIK48, 128, pairs);
  const std::vector<double> columns = Filter(LIDAR_QUILL_A2, 128, pairs);
  EXPECT_EQ(runs[15] + runs[16], 0.0);
  EXPECT_EQ(columns[15] + columns[16], 60.0);
  EXPECT_EQ(columns[63] + columns[64], 0.0);
}

TEST(OutlierPointTest, TreatsOnlyItsPointsAndLeavesShortFramesAlone) {
  const std::vector<double> orvik16 = Filter(LIDAR_ORVIK16, 400, {{300, 40.0}, {330, 40.0}});
  EXPECT_EQ(orvik16[300], 0.0);
  EXPECT_EQ(orvik16[330], 40.0);
  EXPECT_EQ(Filter(LIDAR_ORVIK16, 319, {{5, 40.0}})[5], 40.0);
  EXPECT_EQ(Filter(LIDAR_QUILL_A2, 127, {{5, 40.0}})[5], 40.0);
  EXPECT_EQ(Filter(LIDAR_BRISEL, 0, {}).size(), 0u);
}

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
