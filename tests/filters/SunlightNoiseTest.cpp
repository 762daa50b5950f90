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

TEST(SunlightNoiseTest, EnergyFloorAloneWhileTheHistoryFills) {
  Frame frame{Return(7.0, 10.0, 1.0), Return(1.0, 70.0001, 1.0), Suspect(2), Return(1, 9, 1)};
  frame[3].mirror = 1;
  // Exactly 70 goes, 70.0001 stays: no support is asked for yet.
  EXPECT_EQ(test::Ranges(Judge(R"({"validDistance": 10, "filterWindowV": 3})", {frame})),
            (std::vector<double>{0.0, 1.0, 5.0, 0.0}));
  test::MakeAlgo(2, LIDAR_MARLO256_SMALL_BLIND)->Process(frame);
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
  // The last is strong, but of neither echo index.
  EXPECT_EQ(test::Ranges(out), (std::vector<double>{5.0, 0.0, 5.0, 0.0, 0.0}));
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
  EXPECT_EQ(test::Ranges({out[140], out[150], out[160], out[170]}),
            (std::vector<double>{5.0, 0.0, 6.0, 0.0}));
}

// A frame of `size` points at `range`, with the points of `moved` at other ranges.
Frame Ranges(std::size_t size, double range,
             std::vector<std::pair<std::size_t, double>> moved = {}) {
  Frame frame = test::MakeFrame(size, range);
  for (const auto& [index, distance] : moved) {
    frame[index].distance = distance;
  }
  return frame;
}

Frame With(Frame frame, std::size_t index, uint32_t _ori_point::*field, uint32_t value) {
  frame[index].*field = value;
  return frame;
}

// Point `index` of `current` after `previous`, on a fresh history.
TEST(SunlightNoise2Test, JudgesANearPointAgainstThePreviousColumn) {
  struct Case {
    const char* what;
    LidarType type;
    Frame previous, current;
    std::size_t index;
    double range;
  };
  const LidarType m = LIDAR_MARLO256;
  const Frame first_apart = Ranges(128, 5.0, {{10, 7.0}});
  const Frame second_apart = Ranges(128, 5.0, {{74, 7.0}});
  const Frame mirror_one = With(Ranges(40, 0.0, {{10, 5.0}}), 10, &_ori_point::mirror, 1);
  const Case cases[] = {
      {"isolated", m, Ranges(128, 0.0), Ranges(128, 0.0, {{74, 5.0}}), 74, 0.0},
      // 5.2f - 5.0f is just under 0.2, although 5.2 - 5.0 is over it in double: settled.
      {"settled in floats", m, Ranges(40, 5.0, {{10, 5.2}}), Ranges(40, 5.0), 10, 5.0},
      {"unsettled", m, Ranges(40, 5.0, {{10, 5.25}}), Ranges(40, 5.0), 10, 0.0},
      {"within 0.1", m, Ranges(40, 5.0, {{10, 5.0625}}), Ranges(40, 5.0, {{11, 9.0}}), 10, 5.0},
      // Two columns when the column starts share an echo: 74 follows 10 of the same frame and 10
      // follows 74 of the previous one; with one column each follows its own place.
      {"two columns, first", m, first_apart, first_apart, 10, 0.0},
      {"two columns, second", m, second_apart, second_apart, 74, 0.0},
      {"one column, first", m, first_apart, With(first_apart, 64, &_ori_point::echo, 1), 10, 7.0},
      {"one column, second", m, second_apart, With(second_apart, 64, &_ori_point::echo, 1), 74,
       7.0},
      // Partners beyond a short previous frame contribute nothing.
      {"no partner", m, Ranges(10, 9.0), Ranges(128, 0.0, {{20, 5.0}, {70, 5.0}}), 20, 5.0},
      {"partner in frame", m, Ranges(10, 9.0), Ranges(128, 0.0, {{20, 5.0}, {70, 5.0}}), 70, 0.0},
      {"short frames", m, Ranges(10, 9.0), Ranges(40, 0.0, {{20, 5.0}}), 20, 5.0},
      {"mirror 1", m, Ranges(40, 0.0), mirror_one, 10, 0.0},
      {"mirror 1, small blind", LIDAR_MARLO256_SMALL_BLIND, Ranges(40, 0.0), mirror_one, 10, 5.0},
  };
  for (const Case& c : cases) {
    auto filter = test::MakeAlgo(3, c.type);
    Frame previous = c.previous;
    Frame current = c.current;
    filter->Process(previous);
    filter->Process(current);
    EXPECT_EQ(current[c.index].distance, c.range) << c.what;
  }
}

// The first frame, and the first after a clear, pass unchanged; later frames are judged against
// the previous frame as it came in, not as it was filtered.
TEST(SunlightNoise2Test, FirstFramePassesAndTheNextComparesWithItAsItCameIn) {
  auto filter = test::MakeAlgo(3, LIDAR_MARLO256);
  const Frame zeros = Ranges(40, 0.0);
  const Frame noisy = Ranges(40, 0.0, {{10, 6.0}});
  const std::pair<Frame, double> calls[] = {
      {noisy, 6.0}, {zeros, 0.0}, {noisy, 0.0}, {noisy, 6.0}, {zeros, 0.0}};
  for (int round = 0; round < 2; ++round) {
    for (const auto& [input, kept] : calls) {
      Frame frame = input;
      filter->Process(frame);
      EXPECT_EQ(frame[10].distance, kept) << "round " << round;
    }
    filter->ClearCache();
  }
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
