#include "filters/CloseRangeNoiseFilter.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Indices = std::vector<std::size_t>;
const Indices kLowEdge{0, 1, 2, 3, 4, 5};
const Indices kHighEdge{58, 59, 60, 61, 62, 63};

class CloseRangeNoiseFilterTest : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  // Two columns of 64 points in channel order, all at 20 m and past the start angle.
  void Reset() {
    frame = test::MakeFrame(128, 20.0);
    for (std::size_t k = 0; k < frame.size(); ++k) {
      frame[k].channel = static_cast<uint32_t>(k % 64);
      frame[k].hor_angle = 30.0;
    }
  }
  Indices Deleted() {
    filter->Process(frame);
    Indices deleted;
    for (std::size_t k = 0; k < frame.size(); ++k) {
      if (frame[k].distance == 0.0) {
        deleted.push_back(k);
      }
    }
    return deleted;
  }

  std::shared_ptr<CloseRangeNoiseFilter> filter =
      test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4);
  std::vector<_ori_point> frame;
};

TEST_F(CloseRangeNoiseFilterTest, EntryNeedsAFullPacketPastTheStartAngle) {
  frame[7].distance = 1.0;
  frame[64 + 7].distance = 1.0;
  const std::vector<_ori_point> marked = frame;
  for (std::size_t start : {0u, 64u}) {
    frame[start].hor_angle = 29.9;
    EXPECT_TRUE(Deleted().empty()) << start;
    frame = marked;
  }
  frame.pop_back();
  EXPECT_TRUE(Deleted().empty());
  frame = marked;
  EXPECT_EQ(Deleted().size(), 12u);
}

TEST_F(CloseRangeNoiseFilterTest, MarkingRangeAndThresholdEdges) {
  for (double marker : {2.0, 0.3, 2.0001, 0.2999}) {
    Reset();
    frame[10].distance = marker;
    EXPECT_EQ(Deleted(), (marker == 2.0 || marker == 0.3) ? kLowEdge : Indices{}) << marker;
  }
  Reset();
  frame[10].distance = 1.0;
  frame[0].distance = 6.0;  // exactly the threshold behind: kept
  frame[1].distance = 6.0001;
  EXPECT_EQ(Deleted(), (Indices{1, 2, 3, 4, 5}));
}

TEST_F(CloseRangeNoiseFilterTest, WhichChannelsMark) {
  // 6 lies in the guarded range, 24..41 mid-column, 58 = 64 - range is not below it.
  for (uint32_t channel : {6u, 7u, 23u, 24u, 41u, 42u, 57u, 58u}) {
    Reset();
    frame[channel].distance = 1.0;
    const Indices expected = channel == 7 || channel == 23    ? kLowEdge
                             : channel == 42 || channel == 57 ? kHighEdge
                                                              : Indices{};
    EXPECT_EQ(Deleted(), expected) << channel;
  }
  // A fractional range: channel 3 is above 2.5 but not at least 3.5; position 61 starts the edge.
  filter = test::MakeAlgoAs<CloseRangeNoiseFilter>(20, LIDAR_QUILL_A4,
                                                   R"({"filter_channel_range": 2.5})");
  Reset();
  frame[3].distance = 1.0;
  EXPECT_TRUE(Deleted().empty());
  frame[3].distance = 20.0;
  frame[4].distance = 1.0;
  frame[64 + 60].distance = 1.0;
  EXPECT_EQ(Deleted(), (Indices{0, 1, 2, 125, 126, 127}));
}

TEST_F(CloseRangeNoiseFilterTest, OnlyTheFirstHighMarkerOfAColumnActs) {
  for (std::size_t k : kHighEdge) {
    frame[k].distance = 5.8;
    frame[64 + k].distance = 5.8;
  }
  frame[42].distance = 1.0;  // acts, but 4.8 behind is too little
  frame[50].distance = 0.5;  // would delete, but the walk of column 0 has stopped
  frame[64 + 50].distance = 0.5;
  frame[55].channel = 10;  // a low marker after the stop is not reached either
  frame[55].distance = 1.0;
  EXPECT_EQ(Deleted(), (Indices{122, 123, 124, 125, 126, 127}));
}

}  // namespace
}  // namespace velmar
