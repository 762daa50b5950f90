#include "filters/CloseRangeNoiseFilter.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr double kFar = 20.0;

// Two columns of 64 points in channel order, all far away and past the start angle.
std::vector<_ori_point> MakePacket() {
  std::vector<_ori_point> frame = test::MakeFrame(128, kFar);
  for (std::size_t k = 0; k < frame.size(); ++k) {
    frame[k].channel = static_cast<uint32_t>(k % 64);
    frame[k].hor_angle = 30.0;
  }
  return frame;
}

class CloseRangeNoiseFilterTest : public ::testing::Test {
 protected:
  std::shared_ptr<CloseRangeNoiseFilter> filter =
      test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4);
  std::vector<_ori_point> frame = MakePacket();

  // Indices of the points the filter deleted.
  std::vector<std::size_t> Deleted() {
    filter->Process(frame);
    std::vector<std::size_t> deleted;
    for (std::size_t k = 0; k < frame.size(); ++k) {
      if (frame[k].distance == 0.0) {
        deleted.push_back(k);
      }
    }
    return deleted;
  }
};

using Indices = std::vector<std::size_t>;

TEST_F(CloseRangeNoiseFilterTest, LowChannelsGuardTheLowEdge) {
  frame[7].distance = 1.0;
  EXPECT_EQ(Deleted(), (Indices{0, 1, 2, 3, 4, 5}));
}

TEST_F(CloseRangeNoiseFilterTest, HighChannelsGuardTheHighEdge) {
  frame[64 + 57].distance = 1.0;
  EXPECT_EQ(Deleted(), (Indices{122, 123, 124, 125, 126, 127}));
}

TEST_F(CloseRangeNoiseFilterTest, EntryNeedsAFullPacketPastTheStartAngle) {
  frame[7].distance = 1.0;
  std::vector<_ori_point> short_frame(frame.begin(), frame.end() - 1);
  const std::vector<_ori_point> short_copy = short_frame;
  filter->Process(short_frame);
  EXPECT_TRUE(test::SameBytes(short_frame, short_copy));

  for (std::size_t start : {std::size_t{0}, std::size_t{64}}) {
    std::vector<_ori_point> early = frame;
    early[start].hor_angle = 29.9;
    const std::vector<_ori_point> early_copy = early;
    filter->Process(early);
    EXPECT_TRUE(test::SameBytes(early, early_copy)) << start;
  }
  frame[1].hor_angle = 0.0;  // only points 0 and 64 are checked
  EXPECT_EQ(Deleted().size(), 6u);
}

TEST_F(CloseRangeNoiseFilterTest, MarkingRangeIsInclusive) {
  for (double marker : {2.0, 0.3}) {
    frame = MakePacket();
    frame[10].distance = marker;
    EXPECT_EQ(Deleted().size(), 6u) << marker;
  }
  for (double marker : {2.0001, 0.2999}) {
    frame = MakePacket();
    frame[10].distance = marker;
    EXPECT_TRUE(Deleted().empty()) << marker;
  }
}

TEST_F(CloseRangeNoiseFilterTest, EdgePointMustBeFartherThanTheThreshold) {
  frame[10].distance = 1.0;
  frame[0].distance = 6.0;  // exactly 5 behind: kept
  frame[1].distance = 6.0001;
  EXPECT_EQ(Deleted(), (Indices{1, 2, 3, 4, 5}));
}

TEST_F(CloseRangeNoiseFilterTest, ChannelsThatNeverMark) {
  // 6 is inside the guarded range, 24..41 are the middle of the column, 58 = 64 - range is
  // inside the window but not below it, 59 is outside the window.
  for (uint32_t channel : {6u, 24u, 33u, 41u, 58u, 59u}) {
    frame = MakePacket();
    frame[channel].distance = 1.0;
    EXPECT_TRUE(Deleted().empty()) << channel;
  }
  for (uint32_t channel : {23u, 42u}) {
    frame = MakePacket();
    frame[channel].distance = 1.0;
    EXPECT_EQ(Deleted().size(), 6u) << channel;
  }
}

TEST_F(CloseRangeNoiseFilterTest, SeveralLowMarkersActInTurn) {
  for (std::size_t k = 0; k < 6; ++k) {
    frame[k].distance = 5.8;
  }
  frame[7].distance = 1.0;  // 4.8 behind: no effect
  frame[8].distance = 0.5;  // 5.3 behind
  EXPECT_EQ(Deleted(), (Indices{0, 1, 2, 3, 4, 5}));
}

TEST_F(CloseRangeNoiseFilterTest, OnlyTheFirstHighMarkerOfAColumnActs) {
  for (std::size_t k = 58; k < 64; ++k) {
    frame[k].distance = 5.8;
    frame[64 + k].distance = 5.8;
  }
  frame[42].distance = 1.0;  // acts, but 4.8 behind is too little
  frame[50].distance = 0.5;  // would delete, but the column walk has stopped
  frame[64 + 50].distance = 0.5;
  EXPECT_EQ(Deleted(), (Indices{122, 123, 124, 125, 126, 127}));
}

TEST_F(CloseRangeNoiseFilterTest, HighMarkerStopsLaterLowMarkersToo) {
  // Channels come from the points: a low channel placed after a high marker is never reached.
  frame[30].channel = 50;
  frame[30].distance = 1.0;
  frame[31].channel = 10;
  frame[31].distance = 1.0;
  EXPECT_EQ(Deleted(), (Indices{58, 59, 60, 61, 62, 63}));
}

TEST_F(CloseRangeNoiseFilterTest, ChannelRangeSetsTheGuardedPositions) {
  filter = test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4,
                                                   R"({"filter_channel_range": 2.5})");
  frame[3].distance = 1.0;  // above the range but below range + 1
  EXPECT_TRUE(Deleted().empty());
  frame[3].distance = kFar;
  frame[4].distance = 1.0;
  frame[64 + 60].distance = 1.0;  // needs 42 <= channel < 61.5; guards from position 61
  EXPECT_EQ(Deleted(), (Indices{0, 1, 2, 125, 126, 127}));
}

TEST_F(CloseRangeNoiseFilterTest, NoLowEdgeWithoutAPositiveRange) {
  filter = test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4,
                                                   R"({"filter_channel_range": -0.5})");
  frame[5].distance = 1.0;
  EXPECT_TRUE(Deleted().empty());
  frame[63].distance = 1.0;  // 64 - range = 64.5: the high edge starts past the column
  EXPECT_TRUE(Deleted().empty());
}

TEST_F(CloseRangeNoiseFilterTest, MarkerRangeIsReadAgainForEveryEdgePoint) {
  filter = test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4,
                                                   R"({"filter_distance_threshold": -0.5})");
  // A marker on channel 7 sitting at position 2 deletes itself on the way; from then on the edge
  // points are compared with range 0, so 0.3 at position 3 goes (0.3 - 1.0 would have kept it).
  frame[2].channel = 7;
  frame[2].distance = 1.0;
  frame[7].distance = kFar;
  frame[3].distance = 0.3;
  const Indices deleted = Deleted();
  EXPECT_EQ(deleted, (Indices{0, 1, 2, 3, 4, 5}));
}

TEST_F(CloseRangeNoiseFilterTest, ParametersAndModels) {
  filter = test::MakeAlgoAs<CloseRangeNoiseFilter>(
      20, LIDAR_QUILL_A4,
      R"({"filter_channel_range": 4, "filter_farthest_distance": 3, "filter_closest_distance": 1,
          "filter_distance_threshold": 2})");
  EXPECT_EQ(filter->filter_channel_range, 4.0);
  EXPECT_EQ(filter->filter_farthest_distance, 3.0);
  EXPECT_EQ(filter->filter_closest_distance, 1.0);
  EXPECT_EQ(filter->filter_distance_threshold, 2.0);
  auto defaults = test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4, R"({"x": 1})");
  EXPECT_EQ(defaults->filter_channel_range, 6.0);
  EXPECT_EQ(defaults->filter_distance_threshold, 5.0);

  EXPECT_TRUE(filter->IsSupported("QuillA4"));
  EXPECT_TRUE(filter->IsSupported("ZephelB2/B3/MP"));
  EXPECT_FALSE(filter->IsSupported("QuillA2"));
  EXPECT_FALSE(filter->IsSupported("ZephelB2-64"));
}

}  // namespace
}  // namespace velmar
