// The Marlo128 filters: close-range noise, fixed noise windows, strong-return ghosts and
// interference from other sensors.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "filters/CloseRangeNoise128.h"
#include "filters/FixedNoise128.h"
#include "filters/HighRef128.h"
#include "filters/LidarInterfere128.h"
#include "framework/AlgoCommon.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeFrame;
using test::Ret;
using test::SameBytes;
using Frame = std::vector<_ori_point>;

TEST(CloseRangeNoise128Test, FiltersFramesButNotPacketsWithInclusiveSinglePrecisionLimits) {
  auto algo = test::MakeAlgoAs<CloseRangeNoise128>(23, LIDAR_MARLO128);
  for (std::size_t size : {1u, 96u, 127u, 128u, 129u, 192u}) {
    Frame frame(size, Ret(1.0).Pulse(1.0));
    algo->Process(frame);
    EXPECT_EQ(frame.back().distance, size == 128 || size == 192 ? 1.0 : 0.0) << size;
  }
  // 0.1 narrows to a float a little above 0.1, which takes in a point a billionth of a metre
  // further.
  const char* narrow = R"({"CloseRange_128_mindistance": 0.1, "CloseRange_128_minpulse": 2})";
  const LidarType m = LIDAR_MARLO128;
  test::ExpectRemovals({{23, m, "{}", Ret(5.0).Pulse(5.5), true},
                        {23, m, "{}", Ret(5.01).Pulse(5.5), false},
                        {23, m, "{}", Ret(5.0).Pulse(5.51), false},
                        {23, m, narrow, Ret(0.100000001).Pulse(2.0), true},
                        {23, m, narrow, Ret(0.1000001).Pulse(2.0), false}});
}

// Inclusive bounds on channel, angle and range.
TEST(FixedNoise128Test, RemovesOnlyInsideBothWindows) {
  const LidarType m = LIDAR_MARLO128;
  test::ExpectRemovals({
      {25, m, "{}", Ret(62.0).Channel(25).Angle(45.0), true},
      {25, m, "{}", Ret(70.0).Channel(32).Angle(60.0), true},
      {25, m, "{}", Ret(70.0).Channel(105).Angle(135.0), true},
      {25, m, "{}", Ret(62.0).Channel(95).Angle(125.0), true},
      {25, m, "{}", Ret(62.0).Channel(24).Angle(45.0), false},
      {25, m, "{}", Ret(62.0).Channel(33).Angle(45.0), false},
      {25, m, "{}", Ret(70.0).Channel(106).Angle(135.0), false},
      {25, m, "{}", Ret(65.0).Channel(94).Angle(130.0), false},
      {25, m, "{}", Ret(65.0).Channel(25).Angle(44.99), false},
      {25, m, "{}", Ret(65.0).Channel(25).Angle(60.01), false},
      {25, m, "{}", Ret(61.99).Channel(25).Angle(50.0), false},
      {25, m, "{}", Ret(70.01).Channel(25).Angle(50.0), false},
      {25, m, "{}", Ret(65.0).Channel(100).Angle(124.99), false},
      {25, m, "{}", Ret(65.0).Channel(100).Angle(50.0), false},
      {25, m, "{}", Ret(65.0).Channel(0xFFFFFFFFu).Angle(130.0), false},
  });
}

void Set(Frame& frame, std::size_t index, double distance, double pulse = 0.0) {
  frame[index].distance = distance;
  frame[index].pulse_width = pulse;
}

// A strong return at `strong` and, 67 m behind it, its ghost at `partner`.
void AddGhost(Frame& frame, std::size_t strong, std::size_t partner) {
  Set(frame, strong, 10.0, 41.0);
  Set(frame, partner, 77.0);
}

TEST(HighRef128Test, PartnersThresholdsAndToleranceInOnePass) {
  auto algo = test::MakeAlgoAs<HighRef128>(24, LIDAR_MARLO128);
  Frame frame = MakeFrame(96, 10.0);
  AddGhost(frame, 1, 17);   // +16
  AddGhost(frame, 24, 12);  // -12
  AddGhost(frame, 0, 16);   // position 0 has no partner
  AddGhost(frame, 7, 23);
  Set(frame, 7, 10.0, 40.0);  // not above the threshold
  AddGhost(frame, 2, 18);
  Set(frame, 18, 75.0);  // the tolerance is exclusive on both sides
  AddGhost(frame, 5, 21);
  Set(frame, 21, 79.0 - 1e-9);  // the gap narrows to 69.0f
  AddGhost(frame, 6, 22);
  Set(frame, 22, 75.00001);
  AddGhost(frame, 32 + 4, 32 + 20);  // removes 52, which then looks 67 m nearer than 40
  Set(frame, 32 + 20, 77.0, 41.0);
  Set(frame, 32 + 8, 67.0);
  Frame expected = frame;
  for (std::size_t removed : {17, 12, 22, 52, 40}) {
    expected[removed].distance = 0.0;
  }
  algo->Process(frame);
  EXPECT_TRUE(SameBytes(frame, expected));

  algo = test::MakeAlgoAs<HighRef128>(
      24, LIDAR_MARLO128, R"({"highreferror_128_pulse": 30.9, "highreferror_128_distance": 0.5})");
  frame = MakeFrame(128, 10.0);
  Set(frame, 97, 10.0, 30.5);  // strong only because 30.9 is truncated
  Set(frame, 113, 10.5);
  algo->Process(frame);
  EXPECT_EQ(frame[113].distance, 0.0);
}

TEST(HighRef128Test, GroupCountIsCarriedToFramesOfOtherSizes) {
  auto algo = test::MakeAlgoAs<HighRef128>(24, LIDAR_MARLO128);
  Frame frame = MakeFrame(1000, 10.0);
  AddGhost(frame, 1, 17);
  algo->Process(frame);  // no packet of a known size yet
  EXPECT_EQ(frame[17].distance, 77.0);

  Frame packet = MakeFrame(128, 10.0);
  algo->Process(packet);
  algo->ClearCache();
  AddGhost(frame, 96 + 1, 96 + 17);
  AddGhost(frame, 128 + 1, 128 + 17);
  algo->Process(frame);
  EXPECT_EQ(frame[96 + 17].distance, 0.0);
  EXPECT_EQ(frame[128 + 17].distance, 77.0);

  for (std::size_t size : {0u, 1u, 31u, 127u}) {  // too short for four groups
    frame = MakeFrame(size, 77.0);
    if (size > 1) {
      Set(frame, 1, 10.0, 41.0);
    }
    const Frame before = frame;
    algo->Process(frame);
    EXPECT_TRUE(SameBytes(frame, before)) << size;
  }
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

_ori_point At(uint32_t channel, int column, double distance) {
  _ori_point p = test::MakePoint(distance);
  p.channel = channel;
  p.hor_angle = kSweepGridFirstAngle + kSweepGridColumnStep * (column + 0.5);
  return p;
}

std::shared_ptr<LidarInterfere128> Make(const std::string& params = "{}") {
  return test::MakeAlgoAs<LidarInterfere128>(26, LIDAR_MARLO128, params);
}

// Runs `points` as one whole frame, closed by a marked point outside the grid.
Frame RunFrame(LidarInterfere128& algo, Frame points) {
  points.push_back(At(0, -100, 5.0));
  points.back().mark = 1;
  algo.Process(points);
  points.pop_back();
  return points;
}

void RunEmptyFrames(LidarInterfere128& algo, int count) {
  for (int i = 0; i < count; ++i) {
    RunFrame(algo, {});
  }
}

bool Kept(const _ori_point& p) {
  return p.distance != 0.0;
}

TEST(LidarInterfere128Test, NothingIsRemovedUntilSixFrameEndsOfAnyKind) {
  auto algo = Make();
  Frame ends(6, At(3, 10, 20.0));  // in the grid, then NaN angle, channel 128, range 0, ...
  ends[1].hor_angle = kNaN;
  ends[2].channel = 128;
  ends[3].distance = 0.0;
  ends[4].hor_angle = 150.5;
  for (int frame = 0; frame < 6; ++frame) {
    Frame points = {At(3, 100 + 10 * frame, 20.0), ends[frame]};
    points[1].mark = 1;
    algo->Process(points);
    EXPECT_TRUE(Kept(points[0])) << "frame " << frame;
  }
  EXPECT_FALSE(Kept(RunFrame(*algo, {At(3, 400, 20.0)})[0]));
}

TEST(LidarInterfere128Test, SupportComesFromFiveNearbyCellsWithinTheRangeTolerance) {
  auto algo = Make();
  RunEmptyFrames(*algo, 6);
  // Removed, as nothing came before them, but remembered.
  const Frame recorded =
      RunFrame(*algo, {At(10, 100, 20.0), At(10, 200, 20.0), At(10, 200, 50.0), At(10, 300, 0.0),
                       At(0, kSweepGridColumns - 1, 20.0), At(20, 500, 20.1)});
  EXPECT_FALSE(Kept(recorded[0]));
  const std::pair<_ori_point, bool> probes[] = {
      {At(10, 100, 29.99), true}, {At(10, 100, 30.0), false}, {At(10, 102, 25.0), true},
      {At(10, 103, 25.0), false}, {At(10, 98, 25.0), true},   {At(10, 97, 25.0), false},
      {At(10, 200, 25.0), true},  {At(10, 200, 55.0), false}, {At(10, 300, 5.0), false},
      {At(1, 0, 20.0), true},     {At(20, 500, 30.1), false},  // |20.1f - 30.1| narrows to 10
  };
  Frame frame;
  for (const auto& probe : probes) {
    frame.push_back(probe.first);
  }
  frame = RunFrame(*algo, frame);
  for (std::size_t i = 0; i < frame.size(); ++i) {
    EXPECT_EQ(Kept(frame[i]), probes[i].second) << "probe " << i;
  }
}

// Returns recorded in frame 7 are probed five and six frames later, and once more after the ring
// slot that held them has been reused. The same stream, cut into calls of four
// points with a clear before each, gives the same bytes.
TEST(LidarInterfere128Test, HistoryHoldsTheLastFiveFramesAcrossCallsAndClears) {
  std::vector<Frame> frames(15);
  frames[7] = {At(5, 100, 20.0), At(5, 200, 20.0), At(5, 300, 20.0)};
  frames[12] = {At(5, 100, 21.0)};
  frames[13] = {At(5, 200, 21.0)};
  frames[14] = {At(5, 300, 21.0)};
  auto whole = Make();
  Frame stream;
  Frame expected;
  for (std::size_t f = 1; f < frames.size(); ++f) {
    stream.insert(stream.end(), frames[f].begin(), frames[f].end());
    frames[f] = RunFrame(*whole, frames[f]);
    expected.insert(expected.end(), frames[f].begin(), frames[f].end());
    stream.push_back(At(0, -100, 5.0));
    stream.back().mark = 1;
    expected.push_back(stream.back());
  }
  EXPECT_TRUE(Kept(frames[12][0]));
  EXPECT_FALSE(Kept(frames[13][0]));
  EXPECT_FALSE(Kept(frames[14][0]));

  auto pieces = Make();
  for (std::size_t start = 0; start < stream.size(); start += 4) {
    Frame piece(stream.begin() + start, stream.begin() + std::min(start + 4, stream.size()));
    pieces->ClearCache();
    pieces->Process(piece);
    std::copy(piece.begin(), piece.end(), stream.begin() + start);
  }
  EXPECT_TRUE(SameBytes(stream, expected));
}

TEST(LidarInterfere128Test, PresenceAndNearCountsAreParameters) {
  auto algo = Make(R"({"presencepoint": 2.9, "nearpoint": 2, "distance_thred": 5.5})");
  RunEmptyFrames(*algo, 6);
  RunFrame(*algo, {At(5, 100, 20.0), At(5, 200, 20.0), At(5, 201, 30.0), At(5, 300, 20.0),
                   At(5, 301, 22.0)});
  const Frame probes = RunFrame(*algo, {At(5, 100, 20.0), At(5, 200, 24.0), At(5, 300, 24.0)});
  EXPECT_FALSE(Kept(probes[0]));  // one return is below the presence count of 2
  EXPECT_FALSE(Kept(probes[1]));  // 30 is 6 m away: one near return
  EXPECT_TRUE(Kept(probes[2]));
}

TEST(LidarInterfere128Test, PointsOutsideTheGridAreNeverJudged) {
  auto algo = Make();
  RunEmptyFrames(*algo, 6);
  Frame outside = {At(128, 10, 20.0), At(0xFFFFFFFFu, 10, 20.0), At(0, -1, 20.0),
                   At(0, kSweepGridColumns, 20.0), At(3, 10, -4.0)};
  for (double angle : {kNaN, -1e300, 1e300}) {
    outside.push_back(At(3, 10, 20.0));
    outside.back().hor_angle = angle;
  }
  EXPECT_TRUE(SameBytes(RunFrame(*algo, outside), outside));
  const Frame odd =
      RunFrame(*algo, {At(3, 10, kNaN), At(0, 0, 20.0), At(127, kSweepGridColumns - 1, 20.0)});
  EXPECT_TRUE(std::isnan(odd[0].distance));
  EXPECT_FALSE(Kept(odd[1]));
  EXPECT_FALSE(Kept(odd[2]));
}

}  // namespace
}  // namespace velmar
