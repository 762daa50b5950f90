// Feeding frames whole or as packets, through pipelines that answer late, append or drop; judging
// what happened to each return, and attributing it to the algorithm that did it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "CliTestSupport.h"
#include "FrameFeeder.h"
#include "Outcome.h"
#include "StageMeter.h"
#include "framework/AlgoBase.h"

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

using test::SameBytes;

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
  // last frame follows to push out anything held back. The third frame is assembled in the
  // buffers of the first, handed on by then, and must carry nothing of it over.
  EXPECT_EQ(calls, 4);
  for (std::size_t f = 0; f < frames.size(); ++f) {
    EXPECT_EQ(out[f].index, f);
    EXPECT_TRUE(SameBytes(out[f].output, frames[f])) << "frame " << f;
    ASSERT_EQ(out[f].origin.size(), frames[f].size());
    for (std::size_t i = 0; i < frames[f].size(); ++i) {
      EXPECT_EQ(out[f].origin[i], static_cast<int64_t>(i));
    }
    EXPECT_EQ(out[f].unreturned, 0u);
    EXPECT_EQ(out[f].units.size(), 1u) << "frame " << f;
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

// A recording is read frame after frame into one vector that the feeder takes over and hands
// back refilled with an earlier frame's buffer; packet buffers are recycled too. Whatever those
// buffers held before must not show in any later frame.
TEST(FrameFeederTest, FramesHandedOverWholeComeBackAsFramesFedByCopy) {
  const std::vector<std::vector<_ori_point>> frames = {
      NumberedFrame(8, 0),   NumberedFrame(0, 50),  NumberedFrame(9, 100),
      NumberedFrame(8, 200), NumberedFrame(5, 300), NumberedFrame(11, 400)};
  DelayingPipeline copied;
  const std::vector<FedFrame> expected =
      FeedAll([&copied](std::vector<_ori_point>& unit) { copied.Process(unit); }, kPacket, frames);

  DelayingPipeline moved;
  std::vector<FedFrame> out;
  FrameFeeder feeder([&moved](std::vector<_ori_point>& unit) { moved.Process(unit); }, kPacket,
                     [&out](FedFrame& frame) { out.push_back(frame); });
  std::vector<_ori_point> reading;
  for (const std::vector<_ori_point>& frame : frames) {
    reading.resize(frame.size());
    std::copy(frame.begin(), frame.end(), reading.begin());
    feeder.Feed(std::move(reading));
  }
  feeder.Finish();

  ASSERT_EQ(out.size(), expected.size());
  for (std::size_t f = 0; f < out.size(); ++f) {
    EXPECT_TRUE(SameBytes(out[f].input, frames[f])) << "frame " << f;
    EXPECT_TRUE(SameBytes(out[f].output, expected[f].output)) << "frame " << f;
    EXPECT_EQ(out[f].origin, expected[f].origin) << "frame " << f;
  }
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

using sim::TruthKind;

_ori_point Return(TruthKind kind, double distance) {
  return clitest::TruthPoint(kind, distance, 0.0);
}

using C = std::vector<uint64_t>;
using clitest::Counts;

// A return removed in place but appended elsewhere is kept (the copy represents it); one that
// never comes out at all is lost, not removed.
TEST(OutcomeTest, EachReturnIsCountedOnceUnderItsTruthClass) {
  std::vector<_ori_point> input = {
      Return(TruthKind::kRain, 3.0),      Return(TruthKind::kRain, 4.0),
      Return(TruthKind::kReal, 20.0),     Return(TruthKind::kReal, 21.0),
      Return(TruthKind::kGround, 9.0),    Return(TruthKind::kNoReturn, 0.0),
      Return(TruthKind::kSunlight, 12.0), Return(TruthKind::kReal, 22.0)};
  std::vector<_ori_point> output = input;
  output[0].distance = 0.0;     // rain removed
  output[2].label = 3;          // real flagged
  output[3].x = 0.5;            // real moved
  output[4].distance = 0.0;     // ground wrongly removed
  output[6].drag_level = 2;     // sunlight flagged but kept
  output.push_back(output[3]);  // an extra copy of a real return
  output[7].distance = 0.0;     // removed here, given back moved below
  output.push_back(input[7]);
  output.back().z = -0.25;
  const std::vector<int64_t> origin = {0, 1, 2, 3, 4, 5, 6, 7, 3, 7};
  std::vector<int64_t> representative =
      Representatives(input.size(), output, [&origin](std::size_t j) { return origin[j]; });
  EXPECT_EQ(representative[7], 9);
  OutcomeTally tally;
  TallyOutcomes(input, output, representative, tally);
  EXPECT_EQ(Counts(tally, TruthKind::kRain), (C{2, 1, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(tally, TruthKind::kReal), (C{3, 0, 1, 2, 1, 0}));
  EXPECT_EQ(Counts(tally, TruthKind::kGround), (C{1, 1, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(tally, TruthKind::kSunlight), (C{1, 0, 1, 0, 0, 0}));
  EXPECT_EQ(Counts(tally, TruthKind::kNoReturn), (C{0, 0, 0, 0, 0, 0}));  // an empty slot
  EXPECT_EQ(tally.Noise().returns, 3u);
  EXPECT_EQ(tally.Surface().returns, 4u);
  EXPECT_DOUBLE_EQ(NoiseRecall(tally.Noise()), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(RealRemovedShare(tally.Surface()), 1.0 / 4.0);
  OutcomeTally none;
  output.clear();
  TallyOutcomes(input, output,
                Representatives(input.size(), output, [](std::size_t) { return kNoOrigin; }), none);
  EXPECT_EQ(Counts(none, TruthKind::kReal), (C{3, 0, 0, 0, 0, 3}));
}

// An algorithm for the meter that does what it is given.
class FunctionAlgo : public AlgoBase {
 public:
  using Body = std::function<void(std::vector<_ori_point>&)>;
  FunctionAlgo(uint32_t algo_id, Body body)
      : AlgoBase("test", "", LIDAR_MARLO128), body_(std::move(body)) {
    id = algo_id;
  }
  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override { body_(frame); }
  bool IsSupported(const std::string&) override { return true; }
  void ParseParams() override {}
  void ClearCache() override {}

 private:
  Body body_;
};

// One algorithm holds packets back like the drag filter, one removes near returns.
TEST(StageMeterTest, EachAlgorithmIsCreditedOnceForThePacketsItHandsOn) {
  auto delay = std::make_shared<DelayingPipeline>();
  StageMeter meter({std::make_shared<FunctionAlgo>(
                        12, [delay](std::vector<_ori_point>& packet) { delay->Process(packet); }),
                    std::make_shared<FunctionAlgo>(16, [](std::vector<_ori_point>& frame) {
                      for (_ori_point& point : frame) {
                        point.distance = point.distance < 5.0 ? 0.0 : point.distance;
                      }
                    })});
  // Three frames of two packets of four returns: two rain returns near, two real ones far.
  std::vector<_ori_point> frame;
  for (int packet = 0; packet < 2; ++packet) {
    for (double distance : {2.0, 3.0, 30.0, 40.0}) {
      frame.push_back(Return(distance < 5.0 ? TruthKind::kRain : TruthKind::kReal, distance));
    }
  }
  std::vector<OutcomeTally> stages;
  OutcomeTally pipeline;
  FrameFeeder feeder([&meter](std::vector<_ori_point>& unit) { meter.Process(unit); }, 4,
                     [&](FedFrame& fed) {
                       meter.Collect(fed.units, stages);
                       TallyOutcomes(
                           fed.input, fed.output,
                           Representatives(fed.input.size(), fed.output,
                                           [&fed](std::size_t j) { return fed.origin[j]; }),
                           pipeline);
                     });
  for (int f = 0; f < 3; ++f) {
    feeder.Feed(frame);
  }
  feeder.Finish();
  ASSERT_EQ(stages.size(), 2u);
  // Six packets; all but the first come back labelled: of each 12 returns, 10 are flagged.
  // The second packet passes the near cut twice (held back once); it counts once.
  EXPECT_EQ(Counts(stages[0], TruthKind::kReal), (C{12, 0, 10, 0, 0, 0}));
  EXPECT_EQ(Counts(stages[0], TruthKind::kRain), (C{12, 0, 10, 0, 0, 0}));
  EXPECT_EQ(Counts(stages[1], TruthKind::kRain), (C{12, 12, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(stages[1], TruthKind::kReal), (C{12, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(pipeline, TruthKind::kRain), (C{12, 12, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(pipeline, TruthKind::kReal), (C{12, 0, 10, 0, 0, 0}));
}

// Ground detection takes the ground returns it collects before its planes are fit out of their
// packet and hands them back later: a return moved to a later packet of its frame is kept.
TEST(StageMeterTest, AReturnMovedToALaterPacketOfItsFrameCountsAsKept) {
  auto held = std::make_shared<std::vector<_ori_point>>();
  StageMeter meter({std::make_shared<FunctionAlgo>(35, [held](std::vector<_ori_point>& packet) {
    std::vector<_ori_point> taken;
    for (_ori_point& point : packet) {
      if (sim::TruthKindOf(point) == TruthKind::kGround && point.distance != 0.0) {
        taken.push_back(point);
        taken.back().label = 1;
        point.distance = 0.0;
      }
    }
    packet.insert(packet.end(), held->begin(), held->end());
    *held = taken;
  })});
  std::vector<_ori_point> frame = {Return(TruthKind::kGround, 8.0), Return(TruthKind::kReal, 20.0),
                                   Return(TruthKind::kReal, 21.0), Return(TruthKind::kReal, 22.0)};
  std::vector<OutcomeTally> stages;
  FrameFeeder feeder([&meter](std::vector<_ori_point>& unit) { meter.Process(unit); }, 2,
                     [&](FedFrame& fed) { meter.Collect(fed.units, stages); });
  feeder.Feed(frame);
  feeder.Finish();
  ASSERT_EQ(stages.size(), 1u);
  EXPECT_EQ(Counts(stages[0], TruthKind::kGround), (C{1, 0, 1, 0, 0, 0}));
}

}  // namespace
}  // namespace tools
}  // namespace velmar
