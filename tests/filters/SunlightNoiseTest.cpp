#include "filters/SunlightNoise.h"
#include "filters/SunlightNoise2.h"
#include "filters/SunlightNoise3.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::Ret;
using Frame = std::vector<_ori_point>;

_ori_point Return(double distance, double intensity, double pulse_width, uint32_t echo = 0) {
  _ori_point p = test::MakePoint(distance);
  p.intensity = intensity;
  p.pulse_width = pulse_width;
  p.echo = echo;
  return p;
}
// Above the energy floor (80) but not a strong echo: needs support.
_ori_point Suspect(uint32_t echo = 0, double distance = 5.0) {
  return Return(distance, 80.0 / distance, 1.0, echo);
}
// Kept unexamined as a strong echo, and supports a suspect at the same range.
_ori_point Supporter(uint32_t echo = 0, double distance = 5.0) {
  return Return(distance, 600.0 / distance, 20.0, echo);
}

// Feeds the frames (six give the first judged output: frame 5) and returns the last output.
Frame Judge(const std::string& params, const std::vector<Frame>& frames) {
  auto filter = test::MakeAlgoAs<SunlightNoise>(2, LIDAR_MARLO256, params);
  Frame out;
  for (const Frame& frame : frames) {
    out = frame;
    filter->Process(out);
  }
  return out;
}

TEST(SunlightNoiseTest, DelayedOutputAfterACacheClear) {
  auto filter = test::MakeAlgoAs<SunlightNoise>(
      2, LIDAR_MARLO256, R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5})");
  // Frame k holds k strong points stamped k, so each output shows its source and its size.
  const auto make = [](uint64_t k) {
    Frame frame(static_cast<std::size_t>(k), Supporter());
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

TEST(SunlightNoiseTest, EnergyFloorAloneWhileTheHistoryFills) {
  Frame frame{Return(7.0, 10.0, 1.0), Return(1.0, 70.0001, 1.0), Suspect(2), Return(1, 9, 1)};
  frame[3].mirror = 1;
  const std::vector<Frame> one{frame};
  const Frame out = Judge(R"({"validDistance": 10, "filterWindowV": 3})", one);
  EXPECT_EQ(out[0].distance, 0.0);  // exactly 70 goes
  EXPECT_EQ(out[1].distance, 1.0);
  EXPECT_EQ(out[2].distance, 5.0);  // no support asked for yet
  EXPECT_EQ(out[3].distance, 0.0);
  auto small_blind = test::MakeAlgoAs<SunlightNoise>(2, LIDAR_MARLO256_SMALL_BLIND);
  small_blind->Process(frame);
  EXPECT_EQ(frame[3].distance, 1.0);  // mirror 1 is left alone on this model
}

TEST(SunlightNoiseTest, SupportNeededPerEchoFromTheHistory) {
  // One point per frame; frames 1..supporters support the suspect of frame 5, its own
  // unfiltered copy included.
  const auto kept = [](uint32_t echo, int supporters) {
    std::vector<Frame> frames;
    for (int k = 1; k <= 6; ++k) {
      frames.push_back(Frame{Return(5.0, 16.0, k <= supporters ? 20.0 : 1.0, echo)});
    }
    return Judge(R"({"validDistance": 10, "filterWindowH": 5})", frames)[0].distance != 0.0;
  };
  EXPECT_FALSE(kept(1, 3));
  EXPECT_TRUE(kept(1, 4));
  EXPECT_FALSE(kept(0, 5));
  EXPECT_TRUE(kept(0, 6));  // the sixth support comes from the very last frame
  EXPECT_FALSE(kept(2, 6));
}

TEST(SunlightNoiseTest, IndexWindowReachesOneFurtherBack) {
  // The suspect at 10 of 20 points, supporters at the given offsets, nothing from the history.
  const auto kept = [](const std::string& window, std::initializer_list<int> offsets) {
    Frame frame(20, test::MakePoint(0.0));
    frame[10] = Suspect();
    for (int offset : offsets) {
      frame[static_cast<std::size_t>(10 + offset)] = Supporter();
    }
    const std::string params = R"({"validDistance": 10, "filterWindowH": -1)" + window + "}";
    return Judge(params, std::vector<Frame>(6, frame))[10].distance != 0.0;
  };
  const std::string window = R"(, "filterWindowV": 4)";
  EXPECT_TRUE(kept(window, {-4, -3, -2, -1, 1, 2}));
  EXPECT_TRUE(kept(window, {-3, -2, -1, 1, 2, 3}));
  EXPECT_FALSE(kept(window, {-3, -2, -1, 1, 2, 4}));
  EXPECT_FALSE(kept(window, {-5, -3, -2, -1, 1, 2}));
  EXPECT_FALSE(kept("", {-4, -3, -2, -1, 1, 2, 3}));  // no key, no window
}

TEST(SunlightNoiseTest, MidpointOfTheIndexNeighboursSupportsASecondEcho) {
  // Supporters at -3, -2 and +2 leave a second echo one short; first echoes at -1 and +1 support
  // only through their midpoint, taken in single precision, in whole units from the suspect.
  const auto kept = [](double before, double after, double distance, bool weak_before = false) {
    Frame frame(20, test::MakePoint(0.0));
    frame[10] = Suspect(1, distance);
    for (std::size_t k : {7u, 8u, 12u}) {
      frame[k] = Supporter(1, distance);
    }
    frame[9] = weak_before ? Return(before, 1.0, 1.0) : Supporter(0, before);
    frame[11] = Supporter(0, after);
    const std::string params = R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": -1})";
    return Judge(params, std::vector<Frame>(6, frame))[10].distance != 0.0;
  };
  EXPECT_TRUE(kept(3.0, 8.0, 5.0));  // 5.5 is under a unit away
  EXPECT_FALSE(kept(3.0, 9.0, 5.0));
  EXPECT_TRUE(kept(3.0, 6.999998, 4.0));     // 4.999999f
  EXPECT_FALSE(kept(3.0, 6.99999998, 4.0));  // 4.99999999 becomes 5.0f: a whole unit
  // Point 9 is under the energy floor and already gone when point 10 is judged.
  EXPECT_FALSE(kept(3.0, 7.0, 5.0, true));
}

TEST(SunlightNoiseTest, WhatCountsAsSupport) {
  // In the frame a neighbour 2 m away supports through its pulse width, if under 3 apart.
  const auto kept_with_pulse = [](double pulse_width) {
    Frame frame(20, test::MakePoint(0.0));
    frame[10] = Return(5.0, 16.0, 9.0);
    for (std::size_t k : {7u, 8u, 9u, 11u, 12u}) {
      frame[k] = Supporter();
    }
    frame[13] = Return(7.0, 100.0, pulse_width);
    const std::string params = R"({"validDistance": 10, "filterWindowV": 4, "filterWindowH": -1})";
    return Judge(params, std::vector<Frame>(6, frame))[10].distance != 0.0;
  };
  EXPECT_TRUE(kept_with_pulse(11.99));
  EXPECT_FALSE(kept_with_pulse(12.0));

  // In time there is no pulse test, and ranges count in whole 32-bit units.
  const auto kept_in_time = [](double distance, double last_distance, double last_pulse) {
    std::vector<Frame> frames(6, Frame{Return(distance, 100.0 / distance, 20.0)});
    frames[5][0].distance = last_distance;
    frames[5][0].pulse_width = last_pulse;
    return Judge(R"({"validDistance": 1e13, "filterWindowH": 5})", frames)[0].distance != 0.0;
  };
  EXPECT_TRUE(kept_in_time(5.0, 5.99, 20.0));
  EXPECT_TRUE(kept_in_time(5.0, 4.01, 20.0));
  EXPECT_FALSE(kept_in_time(5.0, 6.0, 20.0));
  EXPECT_FALSE(kept_in_time(5.0, 7.0, 20.5));
  EXPECT_TRUE(kept_in_time(5e12, 5e12 + 0.5, 20.0));
  EXPECT_FALSE(kept_in_time(5e12, 5e12 + 3e9, 20.0));  // within tolerance, but past 32 bits
}

TEST(SunlightNoiseTest, StrongEchoLevelsAreFixed) {
  const Frame frame{Return(5.0, 20.01, 1.0, 1), Return(5.0, 20.0, 1.0, 1),
                    Return(5.0, 80.01, 1.0, 0), Return(5.0, 80.0, 1.0, 0),
                    Return(5.0, 100.0, 1.0, 2)};
  const Frame out = Judge(R"({"validDistance": 10, "filterWindowH": -1,
                              "leftReflectThreshold": 1000, "rightReflectThreshold": 1000})",
                          std::vector<Frame>(6, frame));
  EXPECT_EQ(out[0].distance, 5.0);
  EXPECT_EQ(out[1].distance, 0.0);
  EXPECT_EQ(out[2].distance, 5.0);
  EXPECT_EQ(out[3].distance, 0.0);
  EXPECT_EQ(out[4].distance, 0.0);  // strong, but neither echo index
}

TEST(SunlightNoiseTest, ColumnNeighboursAndValidDistance) {
  // Second echoes that find three supports in time (frames 4..6) and need one more: only a point
  // exactly 128 away gives it. Points at the valid distance are not judged at all.
  Frame frame(300, test::MakePoint(0.0));
  for (std::size_t k : {140u, 150u, 170u}) {
    frame[k] = Return(5.0, 16.0, 20.0, 1);
  }
  frame[160] = Return(6.0, 13.0, 20.0, 1);
  frame[170].distance = 5.99;
  for (std::size_t k : {12u, 268u, 23u, 277u}) {
    frame[k] = Supporter(1);
  }
  const Frame out =
      Judge(R"({"validDistance": 6, "filterWindowH": 1})", std::vector<Frame>(6, frame));
  EXPECT_EQ(out[140].distance, 5.0);
  EXPECT_EQ(out[150].distance, 0.0);
  EXPECT_EQ(out[160].distance, 6.0);
  EXPECT_EQ(out[170].distance, 0.0);
}

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
  noisy[74].distance = 5.0;
  EXPECT_EQ(After(test::MakeFrame(128, 0.0), noisy)[74].distance, 0.0);
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
}

TEST(SunlightNoise3Test, StrictEdges) {
  // Limits 3 m, pulse 3, strength 0.9, all strict.
  const char* p = R"({"max_distance": 9})";
  const LidarType b1 = LIDAR_ZEPHEL_B1;
  test::ExpectRemovals({{15, b1, p, Ret(1.0).Pulse(2.0), true},
                        {15, b1, p, Ret(3.0).Pulse(1.0), false},
                        {15, b1, p, Ret(2.999).Pulse(1.0), true},
                        {15, b1, p, Ret(1.0).Pulse(3.0), false},
                        {15, b1, p, Ret(2.0).Pulse(2.99), true},
                        {15, b1, p, Ret(2.5).Pulse(2.41), false},
                        {15, b1, p, Ret(2.5).Pulse(2.39), true}});
}

}  // namespace
}  // namespace velmar
