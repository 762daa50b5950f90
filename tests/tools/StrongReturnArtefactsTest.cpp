// The simulated artefacts of strong returns (vertical and horizontal crosstalk, blooming), the
// Orvik48 model's layout, and how eval tells the returns of signs.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "CliTestSupport.h"
#include "SignObjects.h"
#include "sim/Recording.h"
#include "sim/Scene.h"
#include "sim/SensorModel.h"
#include "sim/Simulator.h"

namespace velmar {
namespace sim {
namespace {

using clitest::Generate;
using test::SameBytes;
using clitest::Settings;

struct ArtefactCase {
  const char* model;
  NoiseKind noise;
  TruthKind truth;
  double sourcePulse;    // sources are real returns with a wider pulse than this
  double maxWalk;        // metres an artefact reads behind its source
  double maxPulseShare;  // of the source's pulse width
  // Whether the artefact at (column, channel index) can come from a source at those.
  std::function<bool(const SensorModel&, int64_t dc, int64_t leakChannel, int64_t sourceChannel)>
      inWindow;
};

// Every artefact lies in the window of a strong return, a little behind it and much weaker, and
// turning a kind on changes no other beam; the beams it takes saw nothing nearer.
TEST(StrongReturnArtefactsTest, EachKindAppearsOnlyBesideAStrongReturnAtItsRange) {
  const ArtefactCase cases[] = {
      {"ZephelB2/B3/MP", NoiseKind::kCrosstalkVertical, TruthKind::kCrosstalkVertical, 28.0, 0.25,
       0.2,
       [](const SensorModel&, int64_t dc, int64_t a, int64_t b) {
         return dc == 0 && std::abs(a - b) <= 4;
       }},
      {"ZephelT", NoiseKind::kCrosstalkHorizontal, TruthKind::kCrosstalkHorizontal, 28.0, 0.25, 0.2,
       [](const SensorModel&, int64_t dc, int64_t a, int64_t b) {
         return std::abs(dc) <= 2 && a == b;
       }},
      {"Marlo128", NoiseKind::kBloom, TruthKind::kBloom, 40.0, 0.15, 0.3,
       [](const SensorModel& m, int64_t dc, int64_t a, int64_t b) {
         return std::hypot(dc * m.columnStepDeg, m.elevationDeg[a] - m.elevationDeg[b]) <= 0.6;
       }},
      {"Orvik48", NoiseKind::kBloom, TruthKind::kBloom, 40.0, 0.15, 0.3,
       [](const SensorModel& m, int64_t dc, int64_t a, int64_t b) {
         return std::hypot(dc * m.columnStepDeg, m.elevationDeg[a] - m.elevationDeg[b]) <= 0.6;
       }},
  };
  for (const ArtefactCase& c : cases) {
    const SensorModel& m = *FindSensorModel(c.model);
    SimulationSettings s = Settings(c.model, "city", 3);
    s.scene.egoSpeed = 8.0;
    const std::vector<_ori_point> clear = Generate(s, 3);
    s.noise[c.noise] = 1.0;
    const std::vector<_ori_point> frame = Generate(s, 3);
    const int64_t columns = m.ColumnsPerFace();
    int artefacts = 0;
    for (std::size_t i = 0; i < frame.size(); ++i) {
      if (TruthKindOf(frame[i]) != c.truth) {
        ASSERT_TRUE(SameBytes({frame[i]}, {clear[i]})) << c.model << " " << i;
        continue;
      }
      ++artefacts;
      const _ori_point& leak = frame[i];
      ASSERT_TRUE(clear[i].distance == 0.0 || clear[i].distance > leak.distance) << i;
      const int64_t sweep = static_cast<int64_t>(i / m.PointsPerFace() * m.PointsPerFace());
      const int64_t column = static_cast<int64_t>(i - sweep) / m.channels;
      bool sourced = false;
      for (int64_t dc = -3; dc <= 3 && !sourced; ++dc) {
        if (column + dc < 0 || column + dc >= columns) {
          continue;
        }
        for (int64_t ch = 0; ch < m.channels && !sourced; ++ch) {
          const _ori_point& p = frame[sweep + (column + dc) * m.channels + ch];
          sourced = TruthKindOf(p) == TruthKind::kReal && p.pulse_width > c.sourcePulse &&
                    leak.distance >= p.distance && leak.distance <= p.distance + c.maxWalk &&
                    leak.pulse_width <= std::max(1.0, c.maxPulseShare * p.pulse_width) &&
                    c.inWindow(m, dc, static_cast<int64_t>(leak.channel) - 1, ch);
        }
      }
      ASSERT_TRUE(sourced) << c.model << " artefact " << i << " at " << leak.distance;
    }
    EXPECT_GT(artefacts, 5) << c.model;
  }
}

TEST(StrongReturnArtefactsTest, Orvik48PacketsAreEightRunsOfSixteenNeighbouringChannels) {
  const SensorModel& m = *FindSensorModel("Orvik48");
  const std::vector<_ori_point> frame = Generate(Settings("Orvik48", "highway"));
  ASSERT_EQ(frame.size(), 86400u);
  ASSERT_EQ(m.packetPoints, 128u);
  ASSERT_EQ(frame.size() % m.packetPoints, 0u);
  for (std::size_t i = 0; i < frame.size(); ++i) {
    ASSERT_EQ(frame[i].channel, 1 + i % 48) << i;
    ASSERT_EQ(frame[i].mark, i + 1 == frame.size() ? 1 : 0);
    // Within a run of 16 the channels step down evenly in elevation, in the same column.
    if (i % 16 != 0) {
      ASSERT_EQ(frame[i].hor_angle, frame[i - 1].hor_angle);
      ASSERT_LT(m.elevationDeg[frame[i].channel - 1], m.elevationDeg[frame[i - 1].channel - 1]);
    }
  }
}

TEST(StrongReturnArtefactsTest, RecordingsListTheNewKindsOnlyWhenSwitchedOn) {
  clitest::ScratchFolder scratch;
  for (double rate : {0.0, 0.5}) {
    RecordingInfo info;
    info.model = "Orvik48";
    info.noise[NoiseKind::kBloom] = rate;
    RecordingWriter(scratch.Path("r"), info).Close();
    const std::string text = clitest::ReadText(scratch.Path("r/recording.json"));
    EXPECT_EQ(text.find("\"bloom\"") != std::string::npos, rate > 0.0);
    EXPECT_NE(text.find("\"fixed-echo\""), std::string::npos);
    EXPECT_EQ(RecordingReader(scratch.Path("r")).Info().noise[NoiseKind::kBloom], rate);
  }
}

// Eval finds a simulated drive's signs by rebuilding its scene, and counts what happens to their
// returns besides the real ones.
TEST(StrongReturnArtefactsTest, EvalCountsTheReturnsOfSigns) {
  SimulationSettings s = Settings("ZephelT", "city", 2);
  s.frames = 1;
  RecordingInfo info;
  info.model = s.model;
  info.scene = s.scene;
  info.seed = s.seed;
  info.frames = s.frames;
  const tools::SignObjects signs = tools::SignObjectsOf(info);
  const Simulator simulator(s);
  const std::vector<SceneBox>& boxes = simulator.World().Boxes();
  ASSERT_EQ(signs.size(), boxes.size() + 1);
  std::vector<_ori_point> input = Generate(s);
  uint64_t signReturns = 0;
  for (_ori_point& p : input) {
    const uint32_t object = TruthObjectOf(p);
    if (object != kNoTruthObject && boxes[object - 1].retro && p.distance > 0.0) {
      ++signReturns;
      p.pulse_width = -1.0;  // marks the sign's returns for the removal below
    }
  }
  ASSERT_GT(signReturns, 0u);
  std::vector<_ori_point> output = input;
  for (std::size_t i = 0; i < output.size(); i += 2) {
    output[i].distance = output[i].pulse_width < 0.0 ? 0.0 : output[i].distance;
  }
  tools::OutcomeTally tally;
  tools::TallyOutcomes(
      input, output,
      tools::Representatives(input.size(), output,
                             [](std::size_t j) { return static_cast<int64_t>(j); }),
      tally, signs);
  EXPECT_EQ(tally.signs.returns, signReturns);
  EXPECT_EQ(tally.signs.removed, tally[TruthKind::kReal].removed);
  EXPECT_GT(tally.signs.removed, 0u);
  EXPECT_LT(tally.signs.removed, signReturns);
  info.scene.name = "imported";
  EXPECT_TRUE(tools::SignObjectsOf(info).empty());
}

}  // namespace
}  // namespace sim
}  // namespace velmar
