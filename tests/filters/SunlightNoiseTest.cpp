#include "filters/SunlightNoise.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;

_ori_point Return(double distance, double intensity, double pulse_width, uint32_t echo = 0) {
  _ori_point p = test::MakePoint(distance);
  p.intensity = intensity;
  p.pulse_width = pulse_width;
  p.echo = echo;
  return p;
}

// A point that needs support: above the energy floor (80) but below the strong-echo levels.
_ori_point Suspect(uint32_t echo = 0, double distance = 5.0) {
  return Return(distance, 80.0 / distance, 1.0, echo);
}
// A point that is kept unexamined (strong echo) and supports a suspect at the same range.
_ori_point Supporter(uint32_t echo = 0, double distance = 5.0) {
  return Return(distance, 600.0 / distance, 20.0, echo);
}
// A point that supports nothing.
_ori_point Empty() {
  return test::MakePoint(0.0);
}

std::shared_ptr<SunlightNoise> MakeFilter(const std::string& params,
                                          LidarType type = LIDAR_MARLO256) {
  return test::MakeAlgoAs<SunlightNoise>(2, type, params);
}

// Feeds frames until the first one comes back judged against its neighbours in time, and
// returns it: frame 5 of 6, with frames 1..6 in the history.
Frame JudgeFifthOfSix(SunlightNoise& filter, const std::vector<Frame>& frames) {
  Frame out;
  for (const Frame& frame : frames) {
    out = frame;
    filter.Process(out);
  }
  return out;
}

Frame JudgeFifthOfSix(SunlightNoise& filter, const Frame& frame) {
  return JudgeFifthOfSix(filter, std::vector<Frame>(6, frame));
}

TEST(SunlightNoise, MissingKeysAreInsertedAsZero) {
  auto filter = MakeFilter(R"({"filterWindowV": 2.9, "filterWindowH": -3.7})");
  EXPECT_EQ(filter->filter_window_v, 2);
  EXPECT_EQ(filter->filter_window_h, -3);
  EXPECT_EQ(filter->valid_distance, 0.0);
  EXPECT_EQ(filter->left_reflect_threshold, 0.0);
  for (const char* key : {"leftReflectThreshold", "rightReflectThreshold", "validDistance"}) {
    ASSERT_EQ(filter->num_params.count(key), 1u) << key;
    EXPECT_EQ(filter->num_params.at(key), 0.0) << key;
  }
  EXPECT_EQ(filter->num_params.at("filterWindowV"), 2.9);

  auto defaults = test::MakeAlgoAs<SunlightNoise>(2, LIDAR_MARLO256);
  EXPECT_EQ(defaults->filter_window_v, 0);
  EXPECT_EQ(defaults->filter_window_h, 0);
  EXPECT_EQ(defaults->num_params.size(), 5u);
}

TEST(SunlightNoise, DelayedOutputAfterACacheClear) {
  auto filter = MakeFilter(R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5})");
  // Frame k has k + 2 strong points stamped k, so that every output shows its source.
  const auto make = [](uint64_t k) {
    Frame frame(static_cast<std::size_t>(k) + 2, Supporter());
    for (_ori_point& p : frame) {
      p.timestamp = k;
    }
    return frame;
  };
  for (int round = 0; round < 2; ++round) {
    for (uint64_t k = 1; k <= 14; ++k) {
      Frame frame = make(k);
      filter->Process(frame);
      const uint64_t source = k <= 5 ? k : (k <= 10 ? 5 : k - 5);
      EXPECT_TRUE(test::SameBytes(frame, make(source))) << "round " << round << " call " << k;
    }
    filter->ClearCache();
  }
}

TEST(SunlightNoise, EnergyFloorAloneWhileTheHistoryFills) {
  auto filter = MakeFilter(R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5})");
  Frame frame{Return(7.0, 10.0, 1.0), Return(1.0, 70.0001, 1.0), Suspect(), Suspect(2)};
  filter->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);  // exactly 70 goes
  EXPECT_EQ(frame[1].distance, 1.0);
  EXPECT_EQ(frame[2].distance, 5.0);  // no support needed yet
  EXPECT_EQ(frame[3].distance, 5.0);
}

TEST(SunlightNoise, MirrorOneIsLeftAloneOnTheSmallBlindModel) {
  Frame weak{Return(1.0, 10.0, 1.0)};
  weak[0].mirror = 1;
  const std::string params = R"({"validDistance": 10})";
  Frame frame = weak;
  MakeFilter(params, LIDAR_MARLO256)->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  frame = weak;
  MakeFilter(params, LIDAR_MARLO256_SMALL_BLIND)->Process(frame);
  EXPECT_EQ(frame[0].distance, 1.0);
}

// Support from the history only: one point per frame, no index window. Frames 1..`supporters`
// support the suspect of frame 5; the suspect's own copy counts when it is among them.
bool KeptWithHistorySupport(uint32_t echo, int supporters) {
  auto filter = MakeFilter(R"({"validDistance": 10, "filterWindowV": 0, "filterWindowH": 5})");
  std::vector<Frame> frames;
  for (int k = 1; k <= 6; ++k) {
    _ori_point p = Suspect(echo);
    p.pulse_width = k <= supporters ? 20.0 : 1.0;
    frames.push_back(Frame{p});
  }
  return JudgeFifthOfSix(*filter, frames)[0].distance != 0.0;
}

TEST(SunlightNoise, SupportNeededPerEcho) {
  EXPECT_FALSE(KeptWithHistorySupport(1, 3));
  EXPECT_TRUE(KeptWithHistorySupport(1, 4));
  EXPECT_FALSE(KeptWithHistorySupport(0, 5));
  EXPECT_TRUE(KeptWithHistorySupport(0, 6));  // the sixth comes from the very last frame
  EXPECT_FALSE(KeptWithHistorySupport(2, 6));
}

// Index neighbours only: a 20-point frame with the suspect at 10 and supporters at `offsets`.
bool KeptWithIndexSupport(const std::string& params, std::initializer_list<int> offsets) {
  Frame frame(20, Empty());
  frame[10] = Suspect();
  for (int offset : offsets) {
    frame[static_cast<std::size_t>(10 + offset)] = Supporter();
  }
  return JudgeFifthOfSix(*MakeFilter(params), frame)[10].distance != 0.0;
}

TEST(SunlightNoise, IndexWindowReachesOneFurtherBack) {
  const std::string params = R"({"validDistance": 10, "filterWindowV": 4, "filterWindowH": -1})";
  EXPECT_TRUE(KeptWithIndexSupport(params, {-4, -3, -2, -1, 1, 2}));
  EXPECT_TRUE(KeptWithIndexSupport(params, {-3, -2, -1, 1, 2, 3}));
  EXPECT_FALSE(KeptWithIndexSupport(params, {-3, -2, -1, 1, 2, 4}));
  EXPECT_FALSE(KeptWithIndexSupport(params, {-5, -3, -2, -1, 1, 2}));
  // Without "filterWindowV" there is no index window at all.
  EXPECT_FALSE(KeptWithIndexSupport(R"({"validDistance": 10, "filterWindowH": -1})",
                                    {-4, -3, -2, -1, 1, 2, 3}));
}

TEST(SunlightNoise, RangeDifferencesCountInWholeUnits) {
  const std::string params = R"({"validDistance": 10, "filterWindowV": 0, "filterWindowH": 5})";
  // Six identical frames support their suspect; the sixth frame's point moves in range.
  const auto kept_with_last_at = [&](double distance) {
    std::vector<Frame> frames(6, Frame{Return(5.0, 16.0, 20.0)});
    frames[5][0].distance = distance;
    return JudgeFifthOfSix(*MakeFilter(params), frames)[0].distance != 0.0;
  };
  EXPECT_TRUE(kept_with_last_at(5.99));
  EXPECT_TRUE(kept_with_last_at(4.01));
  EXPECT_FALSE(kept_with_last_at(6.0));
  EXPECT_FALSE(kept_with_last_at(4.0));
  // A difference no 32-bit integer holds is beyond the tolerance, however large that is.
  const std::string far = R"({"validDistance": 1e13, "filterWindowV": 0, "filterWindowH": 5})";
  std::vector<Frame> frames(6, Frame{Return(5e12, 2e-11, 1.0)});
  EXPECT_NE(JudgeFifthOfSix(*MakeFilter(far), frames)[0].distance, 0.0);
  frames[5][0].distance = 5e12 + 3e9;
  EXPECT_EQ(JudgeFifthOfSix(*MakeFilter(far), frames)[0].distance, 0.0);
}

TEST(SunlightNoise, PulseWidthSupportsOnlyWithinTheFrame) {
  // Five index supporters at the suspect's range and one 2 m away whose pulse width decides.
  const auto kept_with_pulse = [](double pulse_width, const std::string& params) {
    Frame frame(20, Empty());
    frame[10] = Return(5.0, 16.0, 9.0);
    for (int offset : {-3, -2, -1, 1, 2}) {
      frame[static_cast<std::size_t>(10 + offset)] = Supporter();
    }
    frame[13] = Return(7.0, 100.0, pulse_width);
    return JudgeFifthOfSix(*MakeFilter(params), frame)[10].distance != 0.0;
  };
  const std::string index = R"({"validDistance": 10, "filterWindowV": 4, "filterWindowH": -1})";
  EXPECT_TRUE(kept_with_pulse(11.99, index));  // 2.99 truncates to 2
  EXPECT_FALSE(kept_with_pulse(12.0, index));

  // The same neighbour in time gives nothing.
  const std::string history = R"({"validDistance": 10, "filterWindowV": 0, "filterWindowH": 5})";
  std::vector<Frame> frames(6, Frame{Return(5.0, 16.0, 20.0)});
  EXPECT_NE(JudgeFifthOfSix(*MakeFilter(history), frames)[0].distance, 0.0);
  frames[5][0] = Return(7.0, 16.0, 20.5);
  EXPECT_EQ(JudgeFifthOfSix(*MakeFilter(history), frames)[0].distance, 0.0);
}

// A second echo at 10 with supporters at 7, 8 and 12 (one short of the four it needs) and the
// first echoes `before` and `after` on either side, which support only as a midpoint.
bool KeptWithMidpoint(double before, double after, double distance = 5.0) {
  Frame frame(20, Empty());
  frame[10] = Suspect(1, distance);
  for (std::size_t k : {7u, 8u, 12u}) {
    frame[k] = Supporter(1, distance);
  }
  frame[9] = Supporter(0, before);
  frame[11] = Supporter(0, after);
  const std::string params = R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": -1})";
  return JudgeFifthOfSix(*MakeFilter(params), frame)[10].distance != 0.0;
}

TEST(SunlightNoise, MidpointOfTheIndexNeighboursSupportsASecondEcho) {
  EXPECT_TRUE(KeptWithMidpoint(3.0, 7.0));
  EXPECT_TRUE(KeptWithMidpoint(3.0, 8.0));  // midpoint 5.5, half a unit off
  EXPECT_FALSE(KeptWithMidpoint(3.0, 9.0));
  // The midpoint is taken in single precision: 4.999999 stays under 5 and less than a unit
  // above 4, while 4.99999999 becomes 5.0f, a whole unit above.
  EXPECT_TRUE(KeptWithMidpoint(3.0, 6.999998, 4.0));
  EXPECT_FALSE(KeptWithMidpoint(3.0, 6.99999998, 4.0));
}

TEST(SunlightNoise, DeletionsEarlierInTheFrameAreSeenByLaterPoints) {
  EXPECT_TRUE(KeptWithMidpoint(3.0, 7.0));
  Frame frame(20, Empty());
  frame[10] = Suspect(1);
  for (std::size_t k : {7u, 8u, 12u}) {
    frame[k] = Supporter(1);
  }
  frame[9] = Return(3.0, 20.0, 1.0);  // under the energy floor: gone before point 10 is judged
  frame[11] = Supporter(0, 7.0);
  const std::string params = R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": -1})";
  EXPECT_EQ(JudgeFifthOfSix(*MakeFilter(params), frame)[10].distance, 0.0);
}

TEST(SunlightNoise, ColumnNeighboursAreExactly128Apart) {
  // The suspect at 140 gets three supports from its own place in frames 4..6 and needs a fourth.
  const auto kept_with_column = [](std::initializer_list<std::size_t> places) {
    Frame frame(300, Empty());
    frame[140] = Return(5.0, 16.0, 20.0, 1);
    for (std::size_t k : places) {
      frame[k] = Supporter(1);
    }
    const std::string params = R"({"validDistance": 10, "filterWindowV": 0, "filterWindowH": 1})";
    return JudgeFifthOfSix(*MakeFilter(params), frame)[140].distance != 0.0;
  };
  EXPECT_TRUE(kept_with_column({12}));
  EXPECT_TRUE(kept_with_column({268}));
  EXPECT_FALSE(kept_with_column({13, 267, 269, 11}));
}

TEST(SunlightNoise, StrongEchoLevelsAreFixed) {
  auto filter = MakeFilter(
      R"({"validDistance": 10, "filterWindowV": 0, "filterWindowH": 0,
          "leftReflectThreshold": 1000, "rightReflectThreshold": 1000})");
  EXPECT_EQ(filter->left_reflect_threshold, 1000.0);
  EXPECT_EQ(filter->right_reflect_threshold, 1000.0);
  Frame frame{Return(5.0, 20.01, 1.0, 1), Return(5.0, 20.0, 1.0, 1), Return(5.0, 80.01, 1.0, 0),
              Return(5.0, 80.0, 1.0, 0)};
  const Frame out = JudgeFifthOfSix(*filter, frame);
  EXPECT_EQ(out[0].distance, 5.0);
  EXPECT_EQ(out[1].distance, 0.0);
  EXPECT_EQ(out[2].distance, 5.0);
  EXPECT_EQ(out[3].distance, 0.0);
}

TEST(SunlightNoise, OnlyPointsNearerThanTheValidDistanceAreJudged) {
  const std::string params = R"({"validDistance": 5, "filterWindowV": 3, "filterWindowH": 5})";
  const Frame out =
      JudgeFifthOfSix(*MakeFilter(params), Frame{Suspect(0, 5.0), Empty(), Suspect(0, 4.99)});
  EXPECT_EQ(out[0].distance, 5.0);
  EXPECT_EQ(out[2].distance, 0.0);
}

TEST(SunlightNoise, MinimumRangeToleranceOnlyDecreases) {
  auto filter = MakeFilter(R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5})");
  JudgeFifthOfSix(*filter, Frame{Suspect(0, 2.0)});
  EXPECT_DOUBLE_EQ(filter->current_range_tolerance, 2.0 * 0.00942463843);
  EXPECT_DOUBLE_EQ(filter->min_range_tolerance, 2.0 * 0.00942463843);
  filter->ClearCache();
  JudgeFifthOfSix(*filter, Frame{Suspect(0, 8.0)});
  EXPECT_DOUBLE_EQ(filter->current_range_tolerance, 8.0 * 0.00942463843);
  EXPECT_DOUBLE_EQ(filter->min_range_tolerance, 2.0 * 0.00942463843);
}

TEST(SunlightNoise, SupportedModels) {
  auto filter = MakeFilter("{}");
  EXPECT_TRUE(filter->IsSupported("Marlo256"));
  EXPECT_TRUE(filter->IsSupported("Marlo256SmallBlind"));
  EXPECT_TRUE(filter->IsSupported("Marlo128H"));
  EXPECT_FALSE(filter->IsSupported("Marlo128"));
  EXPECT_FALSE(filter->IsSupported("Marlo256Depth"));
}

}  // namespace
}  // namespace velmar
