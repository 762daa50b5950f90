#include <gtest/gtest.h>

#include <cmath>

#include "support/TestSupport.h"

namespace velmar {
namespace {

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

}  // namespace
}  // namespace velmar
