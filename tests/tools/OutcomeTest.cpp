// Judging what happened to each return, and attributing it to the algorithm that did it.
#include "Outcome.h"

#include <gtest/gtest.h>

#include <memory>

#include "FrameFeeder.h"
#include "StageMeter.h"
#include "framework/AlgoBase.h"

namespace velmar {
namespace tools {
namespace {

using sim::TruthKind;

_ori_point Return(TruthKind kind, double distance) {
  _ori_point point{};
  point.distance = distance;
  point.y = distance;
  point.reserved_a = sim::EncodeTruth(kind, false);
  return point;
}

std::vector<int64_t> IdentityOrigins(const std::vector<_ori_point>& output, std::size_t inputs) {
  std::vector<int64_t> origin(output.size(), kNoOrigin);
  for (std::size_t j = 0; j < output.size() && j < inputs; ++j) {
    origin[j] = static_cast<int64_t>(j);
  }
  return origin;
}

TEST(OutcomeTest, EachReturnIsCountedOnceUnderItsTruthClass) {
  std::vector<_ori_point> input = {
      Return(TruthKind::kRain, 3.0),     Return(TruthKind::kRain, 4.0),
      Return(TruthKind::kReal, 20.0),    Return(TruthKind::kReal, 21.0),
      Return(TruthKind::kGround, 9.0),   Return(TruthKind::kNoReturn, 0.0),
      Return(TruthKind::kSunlight, 12.0)};
  std::vector<_ori_point> output = input;
  output[0].distance = 0.0;     // rain removed
  output[2].label = 3;          // real flagged
  output[3].x = 0.5;            // real moved
  output[4].distance = 0.0;     // ground wrongly removed
  output[6].drag_level = 2;     // sunlight flagged but kept
  output.push_back(output[3]);  // an extra copy of a real return
  std::vector<int64_t> origin = IdentityOrigins(output, input.size());
  origin.back() = 3;
  std::vector<int64_t> representative =
      Representatives(input.size(), output, [&origin](std::size_t j) { return origin[j]; });
  OutcomeTally tally;
  TallyOutcomes(input, output, representative, tally);

  EXPECT_EQ(tally[TruthKind::kRain].returns, 2u);
  EXPECT_EQ(tally[TruthKind::kRain].removed, 1u);
  EXPECT_EQ(tally[TruthKind::kReal].returns, 2u);
  EXPECT_EQ(tally[TruthKind::kReal].flagged, 1u);
  EXPECT_EQ(tally[TruthKind::kReal].moved, 1u);
  EXPECT_EQ(tally[TruthKind::kReal].added, 1u);
  EXPECT_EQ(tally[TruthKind::kGround].removed, 1u);
  EXPECT_EQ(tally[TruthKind::kSunlight].flagged, 1u);
  EXPECT_EQ(tally[TruthKind::kNoReturn].returns, 0u);  // an empty slot is not a return
  EXPECT_EQ(tally.Noise().returns, 3u);
  EXPECT_EQ(tally.Surface().returns, 3u);
  EXPECT_DOUBLE_EQ(NoiseRecall(tally.Noise()), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(RealRemovedShare(tally.Surface()), 1.0 / 3.0);
}

TEST(OutcomeTest, AReturnRemovedInPlaceButAppendedElsewhereStillCountsAsKept) {
  std::vector<_ori_point> input = {Return(TruthKind::kReal, 20.0), Return(TruthKind::kRain, 2.0)};
  std::vector<_ori_point> output = input;
  output[0].distance = 0.0;
  _ori_point moved = input[0];
  moved.z = -0.25;
  output.push_back(moved);
  std::vector<int64_t> origin = {0, 1, 0};
  std::vector<int64_t> representative =
      Representatives(input.size(), output, [&origin](std::size_t j) { return origin[j]; });
  EXPECT_EQ(representative, (std::vector<int64_t>{2, 1}));
  OutcomeTally tally;
  TallyOutcomes(input, output, representative, tally);
  EXPECT_EQ(tally[TruthKind::kReal].removed, 0u);
  EXPECT_EQ(tally[TruthKind::kReal].moved, 1u);
  EXPECT_EQ(tally[TruthKind::kReal].added, 0u);
}

TEST(OutcomeTest, AReturnThatNeverComesOutIsLostNotRemoved) {
  std::vector<_ori_point> input = {Return(TruthKind::kGhost, 30.0)};
  std::vector<_ori_point> output;
  OutcomeTally tally;
  TallyOutcomes(input, output, Representatives(1, output, [](std::size_t) { return kNoOrigin; }),
                tally);
  EXPECT_EQ(tally[TruthKind::kGhost].lost, 1u);
  EXPECT_EQ(tally[TruthKind::kGhost].removed, 0u);
}

// Algorithms for the meter: one that holds packets back like the drag filter and labels what it
// hands back, one that removes near returns.
class HoldBackAlgo : public AlgoBase {
 public:
  HoldBackAlgo() : AlgoBase("hold", "", LIDAR_MARLO128) { id = 12; }
  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& packet) override {
    if (calls_++ == 0) {
      return;
    }
    if (held_.empty()) {
      held_ = packet;
      return;
    }
    std::swap(packet, held_);
    for (_ori_point& point : packet) {
      point.label = 1;
    }
  }
  bool IsSupported(const std::string&) override { return true; }
  void ParseParams() override {}
  void ClearCache() override {}

 private:
  int calls_ = 0;
  std::vector<_ori_point> held_;
};

class NearCutAlgo : public AlgoBase {
 public:
  NearCutAlgo() : AlgoBase("near", "", LIDAR_MARLO128) { id = 16; }
  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override {
    for (_ori_point& point : frame) {
      if (point.distance < 5.0) {
        point.distance = 0.0;
      }
    }
  }
  bool IsSupported(const std::string&) override { return true; }
  void ParseParams() override {}
  void ClearCache() override {}
};

TEST(StageMeterTest, EachAlgorithmIsCreditedOnceForThePacketsItHandsOn) {
  StageMeter meter({std::make_shared<HoldBackAlgo>(), std::make_shared<NearCutAlgo>()});
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
  // Six packets; all but the first come back labelled. Of the 12 real returns, 10 are flagged.
  EXPECT_EQ(stages[0][TruthKind::kReal].flagged, 10u);
  EXPECT_EQ(stages[0][TruthKind::kRain].removed, 0u);
  // The second packet passes the near cut twice (held back once); it counts once.
  EXPECT_EQ(stages[1][TruthKind::kRain].removed, 12u);
  EXPECT_EQ(stages[1][TruthKind::kReal].removed, 0u);
  EXPECT_EQ(pipeline[TruthKind::kRain].returns, 12u);
  EXPECT_EQ(pipeline[TruthKind::kRain].removed, 12u);
  EXPECT_EQ(pipeline[TruthKind::kReal].flagged, 10u);
  EXPECT_EQ(pipeline[TruthKind::kReal].lost, 0u);
}

// Takes every ground return out of the packet it arrives in and hands it back at the end of the
// next packet, as ground detection does with the returns it collects before its planes are fit.
class HoldGroundAlgo : public AlgoBase {
 public:
  HoldGroundAlgo() : AlgoBase("ground", "", LIDAR_MARLO128) { id = 35; }
  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& packet) override {
    std::vector<_ori_point> taken;
    for (_ori_point& point : packet) {
      if (sim::TruthKindOf(point) == TruthKind::kGround && point.distance != 0.0) {
        taken.push_back(point);
        taken.back().label = 1;
        point.distance = 0.0;
      }
    }
    packet.insert(packet.end(), held_.begin(), held_.end());
    held_ = taken;
  }
  bool IsSupported(const std::string&) override { return true; }
  void ParseParams() override {}
  void ClearCache() override {}

 private:
  std::vector<_ori_point> held_;
};

TEST(StageMeterTest, AReturnMovedToALaterPacketOfItsFrameCountsAsKept) {
  StageMeter meter({std::make_shared<HoldGroundAlgo>()});
  std::vector<_ori_point> frame = {Return(TruthKind::kGround, 8.0), Return(TruthKind::kReal, 20.0),
                                   Return(TruthKind::kReal, 21.0), Return(TruthKind::kReal, 22.0)};
  std::vector<OutcomeTally> stages;
  FrameFeeder feeder([&meter](std::vector<_ori_point>& unit) { meter.Process(unit); }, 2,
                     [&](FedFrame& fed) { meter.Collect(fed.units, stages); });
  feeder.Feed(frame);
  feeder.Finish();
  ASSERT_EQ(stages.size(), 1u);
  EXPECT_EQ(stages[0][TruthKind::kGround].removed, 0u);
  EXPECT_EQ(stages[0][TruthKind::kGround].added, 0u);
  EXPECT_EQ(stages[0][TruthKind::kGround].flagged, 1u);
}

}  // namespace
}  // namespace tools
}  // namespace velmar
