#include "filters/LidarInterfere128.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::SameBytes;
using Frame = std::vector<_ori_point>;

_ori_point At(uint32_t channel, int column, double distance) {
  _ori_point p = test::MakePoint(distance);
  p.channel = channel;
  p.hor_angle = 30.0 + 0.167 * (column + 0.5);
  return p;
}

// A return far outside the grid that closes the frame.
_ori_point FrameEnd() {
  _ori_point p = At(0, -100, 5.0);
  p.mark = 1;
  return p;
}

std::shared_ptr<LidarInterfere128> Make(const std::string& params = "{}") {
  return MakeAlgoAs<LidarInterfere128>(26, LIDAR_MARLO128, params);
}

Frame RunFrame(LidarInterfere128& algo, Frame points) {
  points.push_back(FrameEnd());
  algo.Process(points);
  points.pop_back();
  return points;
}

void WarmUp(LidarInterfere128& algo) {
  for (int i = 0; i < 6; ++i) {
    RunFrame(algo, {});
  }
}

bool Kept(const _ori_point& p) {
  return p.distance != 0.0;
}

TEST(LidarInterfere128Test, NothingIsRemovedUntilSixFrameEndsOfAnyKind) {
  auto algo = Make();
  // Each frame ends on a different kind of marked point, the last on one outside the grid.
  Frame ends(6, At(3, 10, 20.0));
  ends[1].hor_angle = std::numeric_limits<double>::quiet_NaN();
  ends[2].channel = 128;
  ends[3].distance = 0.0;
  ends[4].hor_angle = 150.5;
  ends[5] = FrameEnd();
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
  WarmUp(*algo);
  // Recorded although removed, as nothing came before them.
  const Frame recorded = RunFrame(*algo, {At(10, 100, 20.0), At(10, 200, 20.0), At(10, 200, 50.0),
                                          At(10, 300, 0.0), At(0, 719, 20.0), At(20, 500, 20.1)});
  for (const _ori_point& p : recorded) {
    EXPECT_FALSE(Kept(p));
  }
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

// Frames 7..26 after warm-up: returns recorded at 7 and 20, probes five and six frames later, and
// one probe of a grid slot that was reused after holding a return.
std::map<int, Frame> Schedule() {
  return {{7, {At(5, 100, 20.0), At(5, 200, 20.0), At(5, 300, 20.0)}},
          {12, {At(5, 100, 21.0)}},
          {13, {At(5, 200, 21.0)}},
          {14, {At(5, 300, 21.0)}},
          {20, {At(5, 400, 20.0), At(5, 500, 20.0)}},
          {25, {At(5, 400, 21.0)}},
          {26, {At(5, 500, 21.0)}}};
}

TEST(LidarInterfere128Test, HistoryHoldsExactlyTheLastFiveFrames) {
  auto algo = Make();
  WarmUp(*algo);
  std::map<int, Frame> schedule = Schedule();
  for (int frame = 7; frame <= 26; ++frame) {
    schedule[frame] = RunFrame(*algo, schedule[frame]);
  }
  EXPECT_TRUE(Kept(schedule[12][0]));
  EXPECT_FALSE(Kept(schedule[13][0]));
  EXPECT_FALSE(Kept(schedule[14][0]));
  EXPECT_TRUE(Kept(schedule[25][0]));
  EXPECT_FALSE(Kept(schedule[26][0]));
}

TEST(LidarInterfere128Test, FramesSplitAnywhereAndClearsGiveTheSameResult) {
  Frame stream;
  std::map<int, Frame> schedule = Schedule();
  for (int frame = 1; frame <= 26; ++frame) {
    stream.insert(stream.end(), schedule[frame].begin(), schedule[frame].end());
    stream.push_back(FrameEnd());
  }
  auto whole = Make();
  Frame expected = stream;
  whole->Process(expected);

  auto pieces = Make();
  Frame result;
  for (std::size_t start = 0; start < stream.size(); start += 4) {
    Frame piece(stream.begin() + start, stream.begin() + std::min(start + 4, stream.size()));
    pieces->ClearCache();
    pieces->Process(piece);
    result.insert(result.end(), piece.begin(), piece.end());
  }
  EXPECT_TRUE(SameBytes(result, expected));
  EXPECT_FALSE(Kept(expected[expected.size() - 2]));  // the last probe was judged
}

TEST(LidarInterfere128Test, PresenceAndNearCountsOverCellsAndFrames) {
  auto algo = Make(R"({"presencepoint": 2.9, "nearpoint": 2, "distance_thred": 5.5})");
  EXPECT_EQ(algo->presencepoint, 2);
  for (int i = 0; i < 5; ++i) {
    RunFrame(*algo, {});
  }
  RunFrame(*algo, {At(5, 400, 20.0)});
  RunFrame(*algo, {At(5, 100, 20.0), At(5, 200, 20.0), At(5, 201, 30.0), At(5, 300, 20.0),
                   At(5, 301, 22.0), At(5, 400, 20.0)});
  const Frame probes =
      RunFrame(*algo, {At(5, 100, 20.0), At(5, 200, 24.0), At(5, 300, 24.0), At(5, 400, 21.0)});
  EXPECT_FALSE(Kept(probes[0]));  // one return is below the presence count
  EXPECT_FALSE(Kept(probes[1]));  // 30 is 6 m away: one near return
  EXPECT_TRUE(Kept(probes[2]));
  EXPECT_TRUE(Kept(probes[3]));  // two returns of the same cell in two frames
}

TEST(LidarInterfere128Test, PointsOutsideTheGridAreNeverJudged) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  auto algo = Make();
  WarmUp(*algo);
  Frame outside = {At(128, 10, 20.0), At(0xFFFFFFFFu, 10, 20.0), At(0, -1, 20.0),
                   At(0, 720, 20.0),  At(3, 10, kNaN),           At(3, 10, -4.0)};
  for (double angle : {kNaN, std::numeric_limits<double>::infinity(), -1e300, 1e300}) {
    outside.push_back(At(3, 10, 20.0));
    outside.back().hor_angle = angle;
  }
  const Frame judged = RunFrame(*algo, outside);
  EXPECT_TRUE(SameBytes(Frame(judged.begin(), judged.begin() + 4),
                        Frame(outside.begin(), outside.begin() + 4)));
  EXPECT_TRUE(std::isnan(judged[4].distance));
  EXPECT_TRUE(SameBytes(Frame(judged.begin() + 5, judged.end()),
                        Frame(outside.begin() + 5, outside.end())));
  const Frame corners = RunFrame(*algo, {At(0, 0, 20.0), At(127, 719, 20.0)});
  EXPECT_FALSE(Kept(corners[0]));
  EXPECT_FALSE(Kept(corners[1]));
  Frame empty;
  algo->Process(empty);
}

}  // namespace
}  // namespace velmar
