// Determinism, truth classes and their rates, and the echo-strength behaviour of the returns.
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "ToolsTestSupport.h"
#include "sim/Simulator.h"
#include "sim/Truth.h"

namespace velmar {
namespace sim {
namespace {

using test::Generate;
using test::Settings;

std::map<TruthKind, int> CountKinds(const std::vector<_ori_point>& frame) {
  std::map<TruthKind, int> counts;
  for (const _ori_point& p : frame) {
    ++counts[TruthKindOf(p)];
  }
  return counts;
}

double EchoStrength(const _ori_point& p) {
  return p.pulse_width * 0.15 * p.distance;
}

// The weak-echo rule of the weather filters with their usual thresholds.
bool LooksLikeRain(const _ori_point& p) {
  const double d = p.distance;
  const double s = EchoStrength(p);
  return (15.0 > d && d > 4.0 && 2.66 > s && p.pulse_width < 10.0) ||
         (d <= 4.0 && 1.56 > s && p.pulse_width < 6.0);
}

TEST(SimulatorDeterminismTest, SameSeedGivesTheSameBytes) {
  SimulationSettings s = Settings("ZephelT", "city", 7);
  s.scene.egoSpeed = 8.0;
  for (const NoiseKindInfo& info : NoiseKinds()) {
    s.noise[info.kind] = 0.05;
  }
  EXPECT_TRUE(test::SameFrameBytes(Generate(s, 2), Generate(s, 2)));
  SimulationSettings other = s;
  other.seed = 8;
  EXPECT_FALSE(test::SameFrameBytes(Generate(s, 2), Generate(other, 2)));
}

TEST(SimulatorDeterminismTest, FrameDependsOnlyOnItsIndex) {
  SimulationSettings s = Settings("QuillA4", "city", 3);
  s.noise[NoiseKind::kInterference] = 0.02;
  Simulator simulator(s);
  std::vector<_ori_point> frame;
  std::vector<std::vector<_ori_point>> inOrder;
  while (simulator.NextFrame(frame)) {
    inOrder.push_back(frame);
  }
  ASSERT_EQ(inOrder.size(), s.frames);
  EXPECT_FALSE(simulator.NextFrame(frame));
  // Generated out of order, into a vector that holds another frame's data.
  std::vector<_ori_point> reused = inOrder[0];
  Simulator fresh(s);
  fresh.GenerateFrame(2, reused);
  EXPECT_TRUE(test::SameFrameBytes(reused, inOrder[2]));
  EXPECT_FALSE(test::SameFrameBytes(inOrder[1], inOrder[2]));
}

TEST(SimulatorDeterminismTest, ReusedVectorIsFullyRewritten) {
  const SimulationSettings s = Settings("ZephelB2/B3/MP", "empty");
  Simulator simulator(s);
  std::vector<_ori_point> frame = Generate(s, 0);
  for (_ori_point& p : frame) {
    p.label = -5;
    p.drag_level = 2;
    p.motion_flag = 1.0;
    p.reserved_b[3] = 9;
  }
  frame.resize(frame.size() + 17);
  simulator.GenerateFrame(0, frame);
  EXPECT_TRUE(test::SameFrameBytes(frame, Generate(s, 0)));
}

TEST(SimulatorTruthTest, WithoutNoiseEveryReturnIsASurface) {
  const std::vector<_ori_point> frame = Generate(Settings("Marlo128", "city", 2));
  for (const _ori_point& p : frame) {
    const TruthKind kind = TruthKindOf(p);
    ASSERT_EQ(p.distance > 0.0, kind != TruthKind::kNoReturn);
    ASSERT_FALSE(IsNoiseTruth(kind));
  }
  const auto counts = CountKinds(frame);
  EXPECT_GT(counts.at(TruthKind::kGround), 10000);
  EXPECT_GT(counts.at(TruthKind::kReal), 10000);
}

TEST(SimulatorTruthTest, MovingObjectsAreMarkedAndNothingElse) {
  SimulationSettings s = Settings("Marlo128", "city", 2);
  s.noise[NoiseKind::kSunlight] = 0.05;
  int moving = 0;
  for (const _ori_point& p : Generate(s)) {
    if (IsMovingTruth(p)) {
      ASSERT_EQ(TruthKindOf(p), TruthKind::kReal);
      ++moving;
    }
  }
  EXPECT_GT(moving, 100);
  for (const _ori_point& p : Generate(Settings("Marlo128", "empty"))) {
    ASSERT_FALSE(IsMovingTruth(p));
  }
}

// Beams that point up in the empty scene meet nothing, so every noise kind shows there at its
// exact rate.
double RateOnUpwardBeams(const std::string& model, NoiseKind kind, double rate, TruthKind truth,
                         int* others = nullptr) {
  SimulationSettings s = Settings(model, "empty", 11);
  s.noise[kind] = rate;
  const SensorModel& m = *FindSensorModel(model);
  int hits = 0;
  int beams = 0;
  if (others) {
    *others = 0;
  }
  for (const _ori_point& p : Generate(s)) {
    const uint32_t channelIndex = p.channel - m.firstChannel;
    const bool edge =
        channelIndex % m.bankChannels < 6 || channelIndex % m.bankChannels >= m.bankChannels - 6;
    if (m.elevationDeg[channelIndex] < 0.0 || edge) {
      continue;
    }
    ++beams;
    hits += TruthKindOf(p) == truth;
    if (others && TruthKindOf(p) != truth && TruthKindOf(p) != TruthKind::kNoReturn) {
      ++*others;
    }
  }
  return static_cast<double>(hits) / beams;
}

TEST(SimulatorTruthTest, BeamNoiseAppearsAtItsRate) {
  struct Case {
    NoiseKind kind;
    TruthKind truth;
    double rate;
  };
  const Case cases[] = {{NoiseKind::kRain, TruthKind::kRain, 0.3},
                        {NoiseKind::kFog, TruthKind::kFog, 0.1},
                        {NoiseKind::kSunlight, TruthKind::kSunlight, 0.02},
                        {NoiseKind::kInterference, TruthKind::kInterference, 0.05}};
  for (const Case& c : cases) {
    int others = 0;
    const double seen = RateOnUpwardBeams("ZephelB2/B3/MP", c.kind, c.rate, c.truth, &others);
    EXPECT_NEAR(seen, c.rate, 0.1 * c.rate) << TruthKindName(c.truth);
    EXPECT_EQ(others, 0) << TruthKindName(c.truth);
  }
  EXPECT_EQ(RateOnUpwardBeams("ZephelB2/B3/MP", NoiseKind::kRain, 0.0, TruthKind::kRain), 0.0);
}

TEST(SimulatorTruthTest, RainAndFogAreOnlySeenInFrontOfTheTarget) {
  const std::vector<_ori_point> clear = Generate(Settings("QuillA4", "city", 4));
  for (NoiseKind kind : {NoiseKind::kRain, NoiseKind::kFog}) {
    SimulationSettings s = Settings("QuillA4", "city", 4);
    s.noise[kind] = 1.0;
    const std::vector<_ori_point> weather = Generate(s);
    ASSERT_EQ(clear.size(), weather.size());
    int seen = 0;
    for (std::size_t i = 0; i < weather.size(); ++i) {
      if (IsNoiseTruth(TruthKindOf(weather[i]))) {
        ++seen;
        ASSERT_LE(weather[i].distance, 15.0);
        ASSERT_TRUE(clear[i].distance == 0.0 || weather[i].distance < clear[i].distance) << i;
      } else {
        // The drop fell behind the surface: the return is the one of clear weather.
        ASSERT_TRUE(test::SameFrameBytes({weather[i]}, {clear[i]})) << i;
      }
    }
    EXPECT_GT(seen, static_cast<int>(weather.size() / 4));
  }
}

TEST(SimulatorTruthTest, CloseRangeNoiseStaysOnEdgeChannels) {
  SimulationSettings s = Settings("Marlo128", "empty", 5);
  s.noise[NoiseKind::kCloseRange] = 0.2;
  int edge = 0;
  int edgeBeams = 0;
  for (const _ori_point& p : Generate(s)) {
    const uint32_t inBank = (p.channel - 1) % 64;
    const bool isEdge = inBank < 6 || inBank >= 58;
    if (TruthKindOf(p) == TruthKind::kCloseRange) {
      ASSERT_TRUE(isEdge) << p.channel;
      ASSERT_LE(p.distance, 5.0);
      ASSERT_LE(p.pulse_width, 5.5);
      ++edge;
    }
    edgeBeams += isEdge;
  }
  EXPECT_NEAR(static_cast<double>(edge) / edgeBeams, 0.2, 0.02);
}

TEST(SimulatorTruthTest, FixedEchoBandKeepsToItsWindows) {
  SimulationSettings s = Settings("Marlo128", "empty", 6);
  s.noise[NoiseKind::kFixedEcho] = 0.5;
  int inWindow = 0;
  int echoes = 0;
  for (const _ori_point& p : Generate(s)) {
    const bool low =
        p.channel >= 25 && p.channel <= 32 && p.hor_angle >= 45.0 && p.hor_angle <= 60.0;
    const bool high =
        p.channel >= 95 && p.channel <= 105 && p.hor_angle >= 125.0 && p.hor_angle <= 135.0;
    inWindow += low || high;
    if (TruthKindOf(p) == TruthKind::kFixedEcho) {
      ASSERT_TRUE(low || high) << p.channel << " " << p.hor_angle;
      ASSERT_GE(p.distance, 62.0);
      ASSERT_LE(p.distance, 70.0);
      ++echoes;
    }
  }
  ASSERT_GT(inWindow, 0);
  EXPECT_NEAR(static_cast<double>(echoes) / inWindow, 0.5, 0.05);
}

const _ori_point* StrongestInColumn(const std::vector<_ori_point>& frame, std::size_t base,
                                    uint32_t channelIndex) {
  const _ori_point& p = frame[base + channelIndex];
  return TruthKindOf(p) == TruthKind::kReal && p.pulse_width > 40.0 ? &p : nullptr;
}

TEST(SimulatorTruthTest, Marlo128GhostsSit67MetresBehindTheirPartner) {
  SimulationSettings s = Settings("Marlo128", "city", 9);
  s.noise[NoiseKind::kGhost] = 1.0;
  const std::vector<_ori_point> frame = Generate(s);
  int ghosts = 0;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    if (TruthKindOf(frame[i]) != TruthKind::kGhost) {
      continue;
    }
    ++ghosts;
    const std::size_t base = i - i % 128;
    const uint32_t position = (i % 128) % 32;
    const uint32_t group = static_cast<uint32_t>(i % 128) - position;
    // Position 16 + k is the partner of k (1..15); position 4 + k of 16 + k (k = 0..15... 19).
    const _ori_point* source = nullptr;
    if (position >= 17) {
      source = StrongestInColumn(frame, base, group + position - 16);
    }
    if (!source && position >= 4 && position <= 19) {
      source = StrongestInColumn(frame, base, group + position + 12);
    }
    ASSERT_NE(source, nullptr) << "ghost at " << i << " has no strong partner";
    const double offset = frame[i].distance - source->distance;
    EXPECT_GT(offset, 66.0 - 0.1);
    EXPECT_LT(offset, 68.0 + 0.1);
    EXPECT_LE(frame[i].pulse_width, 40.0);
  }
  EXPECT_GT(ghosts, 0);
}

TEST(SimulatorTruthTest, ZephelTGhostsAreWeakAndNearTheirGroupsStrongReturn) {
  SimulationSettings s = Settings("ZephelT", "city", 9);
  s.noise[NoiseKind::kGhost] = 1.0;
  const SensorModel& m = *FindSensorModel("ZephelT");
  const std::vector<_ori_point> frame = Generate(s);
  int ghosts = 0;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    if (TruthKindOf(frame[i]) != TruthKind::kGhost) {
      continue;
    }
    ++ghosts;
    const std::size_t base = i - i % 96;
    bool matched = false;
    for (const auto& group : m.channelGroups) {
      bool member = false;
      for (uint32_t c : group) {
        member = member || c == frame[i].channel;
      }
      for (uint32_t c : group) {
        const _ori_point& q = frame[base + c - 1];
        matched = matched || (member && c != frame[i].channel && q.pulse_width > 40.0 &&
                              std::fabs(q.distance - frame[i].distance) <= 1.0);
      }
    }
    EXPECT_TRUE(matched) << "ghost at " << i;
    EXPECT_LT(frame[i].pulse_width, 43.0);
  }
  EXPECT_GT(ghosts, 0);
}

TEST(SimulatorTruthTest, DragPointsLieJustBehindANearEdgeInTheNextColumn) {
  SimulationSettings s = Settings("ZephelB2/B3/MP", "city", 12);
  s.noise[NoiseKind::kDrag] = 1.0;
  const std::vector<_ori_point> frame = Generate(s);
  int drag = 0;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    if (TruthKindOf(frame[i]) != TruthKind::kDrag) {
      continue;
    }
    ++drag;
    bool edgeFound = false;
    for (std::size_t j : {i - 64, i + 64}) {
      if (j < frame.size() && IsSurfaceTruth(TruthKindOf(frame[j]))) {
        const double depth = frame[i].distance - frame[j].distance;
        edgeFound = edgeFound || (depth > 0.0 && depth < 1.8 + 0.1);
      }
    }
    EXPECT_TRUE(edgeFound) << "drag point " << i;
  }
  EXPECT_GT(drag, 50);
}

TEST(SimulatorTruthTest, EchoStrengthSeparatesRainFromSurfacesImperfectly) {
  SimulationSettings s = Settings("QuillA4", "city", 13);
  s.noise[NoiseKind::kRain] = 0.2;
  int rain = 0;
  int rainCaught = 0;
  int surface = 0;
  int surfaceCaught = 0;
  for (const _ori_point& p : Generate(s)) {
    const TruthKind kind = TruthKindOf(p);
    if (kind == TruthKind::kRain) {
      ++rain;
      rainCaught += LooksLikeRain(p);
    } else if (IsSurfaceTruth(kind)) {
      ++surface;
      surfaceCaught += LooksLikeRain(p);
    }
  }
  ASSERT_GT(rain, 1000);
  const double caught = static_cast<double>(rainCaught) / rain;
  EXPECT_GT(caught, 0.4);
  EXPECT_LT(caught, 0.95);  // some drops look like real returns, as in the field
  EXPECT_LT(static_cast<double>(surfaceCaught) / surface, 0.001);
}

TEST(SimulatorTruthTest, RetroReflectorsAreTheOnlyStrongSurfaces) {
  int strong = 0;
  for (const _ori_point& p : Generate(Settings("Marlo128", "city", 14))) {
    if (p.pulse_width > 40.0) {
      ++strong;
      ASSERT_EQ(p.intensity, 255.0);
    }
  }
  EXPECT_GT(strong, 0);
}

TEST(SimulatorSettingsTest, RatesOutsideZeroToOneAreRefused) {
  SimulationSettings s = Settings("Marlo128");
  s.noise[NoiseKind::kFog] = 1.5;
  EXPECT_THROW(Simulator{s}, std::invalid_argument);
  s.noise[NoiseKind::kFog] = std::nan("");
  EXPECT_THROW(Simulator{s}, std::invalid_argument);
  s.noise[NoiseKind::kFog] = 1.0;
  EXPECT_NO_THROW(Simulator{s});
}

}  // namespace
}  // namespace sim
}  // namespace velmar
