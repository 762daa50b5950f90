// Feeding frames whole or as packets, through pipelines that answer late, append or drop.
#include "FrameFeeder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace velmar {
namespace tools {
namespace {

constexpr uint32_t kPacket = 4;
constexpr int32_t kFilteredLabel = 7;

// A frame whose points are told apart by reserved_a and carry recorded bytes in reserved_c.
std::vector<_ori_point> NumberedFrame(std::size_t count, uint32_t first) {
  std::vector<_ori_point> frame(count);
  for (std::size_t i = 0; i < count; ++i) {
    frame[i].reserved_a = first + static_cast<uint32_t>(i);
    frame[i].distance = 10.0 + static_cast<double>(i);
    std::memset(frame[i].reserved_c, 0xA0 + static_cast<int>(i % 16), sizeof(frame[i].reserved_c));
  }
  return frame;
}

bool SameBytes(const std::vector<_ori_point>& a, const std::vector<_ori_point>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(_ori_point)) == 0);
}

// Answers like the drag filter: packets of kPacket points only; the first two pass unchanged,
// after that each call returns the previous packet, filtered (labelled).
class DelayingPipeline {
 public:
  void Process(std::vector<_ori_point>& packet) {
    if (packet.size() != kPacket) {
      return;
    }
    if (!primed_) {
      primed_ = true;
      return;
    }
    if (held_.empty()) {
      held_ = packet;
      return;
    }
    std::swap(packet, held_);
    for (_ori_point& point : packet) {
      point.label = kFilteredLabel;
    }
  }

 private:
  bool primed_ = false;
  std::vector<_ori_point> held_;
};

std::vector<FedFrame> FeedAll(const UnitProcessor& processor, uint32_t packet,
                              const std::vector<std::vector<_ori_point>>& frames) {
  std::vector<FedFrame> out;
  FrameFeeder feeder(processor, packet, [&out](FedFrame& frame) { out.push_back(frame); });
  for (const std::vector<_ori_point>& frame : frames) {
    feeder.Feed(frame);
  }
  feeder.Finish();
  return out;
}

TEST(FrameFeederTest, WholeFramesThroughAnUntouchingPipelineComeBackByteForByte) {
  std::vector<std::vector<_ori_point>> frames = {NumberedFrame(5, 0), NumberedFrame(0, 100),
                                                 NumberedFrame(3, 200)};
  int calls = 0;
  std::vector<FedFrame> out = FeedAll([&calls](std::vector<_ori_point>&) { ++calls; }, 0, frames);
  ASSERT_EQ(out.size(), 3u);
  // The empty frame is handed to the pipeline too, as a host would, and one emptied copy of the
  // last frame follows to push out anything held back.
  EXPECT_EQ(calls, 4);
  for (std::size_t f = 0; f < frames.size(); ++f) {
    EXPECT_EQ(out[f].index, f);
    EXPECT_TRUE(SameBytes(out[f].output, frames[f])) << "frame " << f;
    ASSERT_EQ(out[f].origin.size(), frames[f].size());
    for (std::size_t i = 0; i < frames[f].size(); ++i) {
      EXPECT_EQ(out[f].origin[i], static_cast<int64_t>(i));
    }
    EXPECT_EQ(out[f].unreturned, 0u);
  }
}

TEST(FrameFeederTest, PacketsHeldBackOneCallComeBackInTheirOwnFramesWithNothingLost) {
  std::vector<std::vector<_ori_point>> frames = {NumberedFrame(8, 0), NumberedFrame(0, 50),
                                                 NumberedFrame(8, 100), NumberedFrame(8, 200)};
  DelayingPipeline pipeline;
  std::vector<FedFrame> out = FeedAll(
      [&pipeline](std::vector<_ori_point>& unit) { pipeline.Process(unit); }, kPacket, frames);
  ASSERT_EQ(out.size(), frames.size());
  for (std::size_t f = 0; f < frames.size(); ++f) {
    ASSERT_EQ(out[f].output.size(), frames[f].size()) << "frame " << f;
    for (std::size_t i = 0; i < frames[f].size(); ++i) {
      const _ori_point& got = out[f].output[i];
      EXPECT_EQ(got.reserved_a, frames[f][i].reserved_a) << "frame " << f << " point " << i;
      EXPECT_EQ(std::memcmp(got.reserved_c, frames[f][i].reserved_c, sizeof(got.reserved_c)), 0);
      // The very first packet passes unfiltered; every later one, the last included (pushed out
      // at the end), comes back in its filtered version.
      bool firstPacket = f == 0 && i < kPacket;
      EXPECT_EQ(got.label, firstPacket ? 0 : kFilteredLabel) << "frame " << f << " point " << i;
    }
  }
  EXPECT_EQ(out[0].units.size(), 2u);
  EXPECT_EQ(out[1].units.size(), 1u);
}

TEST(FrameFeederTest, PacketModeCutsAShortLastPacketAndKeepsEveryPoint) {
  std::vector<std::vector<_ori_point>> frames = {NumberedFrame(10, 0)};
  std::vector<std::size_t> sizes;
  std::vector<FedFrame> out = FeedAll(
      [&sizes](std::vector<_ori_point>& unit) { sizes.push_back(unit.size()); }, kPacket, frames);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_TRUE(SameBytes(out[0].output, frames[0]));
  // Three packets of the frame, then one empty packet of the last size pushed in at the end.
  EXPECT_EQ(sizes, (std::vector<std::size_t>{4, 4, 2, 2}));
}

TEST(FrameFeederTest, AppendedCopiesTraceBackToTheirSourceAndForeignPointsToNone) {
  std::vector<std::vector<_ori_point>> frames = {NumberedFrame(3, 0), NumberedFrame(3, 10)};
  std::vector<_ori_point> kept;  // a point of the first frame, replayed into the second
  auto appending = [&kept](std::vector<_ori_point>& unit) {
    _ori_point copy = unit[1];
    unit[1].distance = 0.0;
    unit.push_back(copy);
    if (!kept.empty()) {
      unit.push_back(kept.front());
    }
    kept.assign(1, unit[0]);
  };
  std::vector<FedFrame> out = FeedAll(appending, 0, frames);
  ASSERT_EQ(out.size(), 2u);
  ASSERT_EQ(out[0].output.size(), 4u);
  EXPECT_EQ(out[0].origin, (std::vector<int64_t>{0, 1, 2, 1}));
  EXPECT_EQ(std::memcmp(out[0].output[3].reserved_c, frames[0][1].reserved_c, 8), 0);
  ASSERT_EQ(out[1].output.size(), 5u);
  EXPECT_EQ(out[1].origin.back(), kNoOrigin);
  EXPECT_EQ(out[1].output.back().reserved_a, frames[0][0].reserved_a);
  const uint8_t zeros[8] = {};
  EXPECT_EQ(std::memcmp(out[1].output.back().reserved_c, zeros, 8), 0);
}

TEST(FrameFeederTest, PacketsThePipelineNeverHandsBackAreWrittenUnprocessed) {
  std::vector<std::vector<_ori_point>> frames = {NumberedFrame(8, 0)};
  // Always answers with the first packet it saw: the second never comes back.
  std::vector<_ori_point> first;
  auto stuck = [&first](std::vector<_ori_point>& unit) {
    if (first.empty()) {
      first = unit;
    }
    unit = first;
  };
  std::vector<FedFrame> out = FeedAll(stuck, kPacket, frames);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].unreturned, 1u);
  EXPECT_TRUE(SameBytes(out[0].output, frames[0]));
}

}  // namespace
}  // namespace tools
}  // namespace velmar
