// Determinism, truth classes and their rates, the echo-strength behaviour of the returns, and ray
// casting that never hides an object.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <tuple>

#include "CliTestSupport.h"
#include "sim/Scene.h"
#include "sim/Simulator.h"
#include "sim/Truth.h"

namespace velmar {
namespace sim {
namespace {

using clitest::Generate;
using clitest::Settings;
using test::SameBytes;

// Where the returns of `kind` sit in `frame`.
std::vector<std::size_t> IndicesOf(const std::vector<_ori_point>& frame, TruthKind kind) {
  std::vector<std::size_t> at;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    if (TruthKindOf(frame[i]) == kind) {
      at.push_back(i);
    }
  }
  return at;
}

TEST(TruthTest, EncodingKeepsKindAndObjectApartAndReadsUnknownKindsAsNoReturn) {
  const std::tuple<TruthKind, uint32_t, uint32_t> cases[] = {
      {TruthKind::kMixed, 7, 7},
      {TruthKind::kGround, 0, 0},
      {TruthKind::kReal, 70000, kMaxTruthObject}};
  for (const auto& [kind, object, kept] : cases) {
    _ori_point p{};
    p.reserved_a = EncodeTruth(kind, object);
    EXPECT_EQ(TruthKindOf(p), kind);
    EXPECT_EQ(TruthObjectOf(p), kept);
  }
  // Tallies index arrays by kind: an unknown value must not read past them.
  EXPECT_EQ(TruthKindOf(kTruthKindCount), TruthKind::kNoReturn);
  EXPECT_EQ(TruthKindOf(0xFFFFu), TruthKind::kNoReturn);
  for (uint32_t k = 0; k < kTruthKindCount; ++k) {
    const TruthKind kind = static_cast<TruthKind>(k);
    const int groups = IsUnscoredTruth(kind) + IsSurfaceTruth(kind) + IsNoiseTruth(kind);
    EXPECT_EQ(groups, 1) << TruthKindName(kind);
    EXPECT_TRUE(k == 0 || TruthKindName(kind) != "none") << k;
  }
}

TEST(SimulatorDeterminismTest, BytesDependOnlyOnSeedAndFrameIndex) {
  SimulationSettings s = Settings("ZephelT", "city", 7);
  s.scene.egoSpeed = 8.0;
  for (const NoiseKindInfo& info : NoiseKinds()) {
    s.noise[info.kind] = 0.05;
  }
  Simulator simulator(s);
  std::vector<_ori_point> frame;
  std::vector<std::vector<_ori_point>> inOrder;
  while (simulator.NextFrame(frame)) {
    inOrder.push_back(frame);
  }
  ASSERT_EQ(inOrder.size(), s.frames);
  EXPECT_FALSE(simulator.NextFrame(frame));
  EXPECT_FALSE(SameBytes(inOrder[1], inOrder[2]));
  // Out of order, by a fresh simulator, into a longer vector full of another frame's data.
  std::vector<_ori_point> reused = inOrder[0];
  for (_ori_point& p : reused) {
    p.label = -5;
    p.drag_level = 2;
    p.motion_flag = 1.0;
    p.reserved_b[3] = 9;
  }
  reused.resize(reused.size() + 17);
  Simulator(s).GenerateFrame(2, reused);
  EXPECT_TRUE(SameBytes(reused, inOrder[2]));
  SimulationSettings other = s;
  other.seed = 8;
  EXPECT_FALSE(SameBytes(Generate(other, 2), inOrder[2]));
}

TEST(SimulatorSettingsTest, UnknownNamesAndRatesOutsideZeroToOneAreRefused) {
  EXPECT_EQ(FindSensorModel("Marlo129"), nullptr);
  EXPECT_EQ(FindSensorModel(""), nullptr);
  EXPECT_THROW(Simulator(Settings("marlo128")), std::invalid_argument);
  EXPECT_THROW(Simulator(Settings("Marlo128", "moon")), std::invalid_argument);
  SimulationSettings s = Settings("Marlo128");
  s.noise[NoiseKind::kFog] = 1.5;
  EXPECT_THROW(Simulator{s}, std::invalid_argument);
  s.noise[NoiseKind::kFog] = std::nan("");
  EXPECT_THROW(Simulator{s}, std::invalid_argument);
  s.noise[NoiseKind::kFog] = 1.0;
  EXPECT_NO_THROW(Simulator{s});
}

TEST(SimulatorTruthTest, WithoutNoiseEveryReturnIsASurfaceAndObjectReturnsNameTheirObject) {
  Simulator simulator(Settings("Marlo128", "city", 2));
  std::vector<_ori_point> frame;
  simulator.GenerateFrame(1, frame);
  const std::vector<SceneBox>& boxes = simulator.World().Boxes();
  std::map<TruthKind, int> counts;
  std::set<uint32_t> objects;
  int moving = 0;
  int strong = 0;
  for (const _ori_point& p : frame) {
    const TruthKind kind = TruthKindOf(p);
    ASSERT_EQ(p.distance > 0.0, kind != TruthKind::kNoReturn);
    ASSERT_FALSE(IsNoiseTruth(kind));
    const uint32_t object = TruthObjectOf(p);
    ASSERT_TRUE(object == kNoTruthObject || kind == TruthKind::kReal);  // curb faces have none
    ASSERT_LE(object, boxes.size());
    ++counts[kind];
    if (p.pulse_width > 40.0) {
      ASSERT_EQ(p.intensity, 255.0);  // retro-reflectors are the only strong surfaces
      ++strong;
    }
    if (object != kNoTruthObject) {
      objects.insert(object);
      moving += boxes[object - 1].moving;
    }
  }
  EXPECT_GT(counts[TruthKind::kGround], 10000);
  EXPECT_GT(counts[TruthKind::kReal], 10000);
  EXPECT_GT(objects.size(), 20u);
  EXPECT_GT(moving, 100);
  EXPECT_GT(strong, 0);
}

// Beams that point up in the empty scene meet nothing, so every beam noise kind shows there at
// its exact rate, and no other kind shows.
TEST(SimulatorTruthTest, BeamNoiseAppearsAtItsRate) {
  const SensorModel& m = *FindSensorModel("ZephelB2/B3/MP");
  const std::pair<NoiseKind, TruthKind> kinds[] = {
      {NoiseKind::kRain, TruthKind::kRain},
      {NoiseKind::kFog, TruthKind::kFog},
      {NoiseKind::kSunlight, TruthKind::kSunlight},
      {NoiseKind::kInterference, TruthKind::kInterference}};
  const double rates[] = {0.3, 0.1, 0.02, 0.05, 0.0};
  for (std::size_t c = 0; c < 5; ++c) {
    const auto [noise, truth] = kinds[c % 4];
    SimulationSettings s = Settings(m.name, "empty", 11);
    s.noise[noise] = rates[c];
    int beams = 0;
    int hits = 0;
    int others = 0;
    for (const _ori_point& p : Generate(s)) {
      const uint32_t inBank = (p.channel - m.firstChannel) % m.bankChannels;
      if (m.elevationDeg[p.channel - m.firstChannel] < 0.0 || inBank < 6 ||
          inBank >= m.bankChannels - 6) {
        continue;
      }
      ++beams;
      hits += TruthKindOf(p) == truth;
      others += TruthKindOf(p) != truth && TruthKindOf(p) != TruthKind::kNoReturn;
    }
    EXPECT_NEAR(static_cast<double>(hits) / beams, rates[c], 0.1 * rates[c])
        << TruthKindName(truth);
    EXPECT_EQ(others, 0) << TruthKindName(truth);
  }
}

// Drops and fog are seen in front of the target only. The rain and fog filter with its usual
// thresholds catches most of them and almost no surface.
TEST(SimulatorTruthTest, RainAndFogAreOnlySeenInFrontOfTheTargetAndMostlyLookWeak) {
  const std::vector<_ori_point> clear = Generate(Settings("QuillA4", "city", 4));
  for (NoiseKind kind : {NoiseKind::kRain, NoiseKind::kFog}) {
    SimulationSettings s = Settings("QuillA4", "city", 4);
    s.noise[kind] = 1.0;
    const std::vector<_ori_point> weather = Generate(s);
    ASSERT_EQ(clear.size(), weather.size());
    std::vector<_ori_point> filtered = weather;
    test::MakeAlgo(13, LIDAR_QUILL_A4)->Process(filtered);
    int seen = 0, seen_caught = 0, surface = 0, surface_caught = 0;
    for (std::size_t i = 0; i < weather.size(); ++i) {
      const bool caught = filtered[i].distance != weather[i].distance;
      if (IsNoiseTruth(TruthKindOf(weather[i]))) {
        ++seen;
        seen_caught += caught;
        ASSERT_LE(weather[i].distance, 15.0);
        ASSERT_TRUE(clear[i].distance == 0.0 || weather[i].distance < clear[i].distance) << i;
      } else {
        // The drop fell behind the surface: the return is the one of clear weather.
        ASSERT_TRUE(SameBytes({weather[i]}, {clear[i]})) << i;
        surface += IsSurfaceTruth(TruthKindOf(weather[i]));
        surface_caught += IsSurfaceTruth(TruthKindOf(weather[i])) && caught;
      }
    }
    EXPECT_GT(seen, static_cast<int>(weather.size() / 4));
    const double caught = static_cast<double>(seen_caught) / seen;
    EXPECT_GT(caught, 0.4);
    EXPECT_LT(caught, 0.95);  // some drops look like real returns, as in the field
    EXPECT_LT(static_cast<double>(surface_caught) / surface, 0.001);
  }
}

// Close-range noise stays on the edge channels of a bank, the fixed echo band in its two windows.
TEST(SimulatorTruthTest, WindowedNoiseKeepsToItsWindowAndRange) {
  struct Case {
    NoiseKind noise;
    TruthKind truth;
    double rate, tolerance, minDistance, maxDistance, maxPulse;
    std::function<bool(const _ori_point&)> inWindow;
  };
  const Case cases[] = {
      {NoiseKind::kCloseRange, TruthKind::kCloseRange, 0.2, 0.02, 0.0, 5.0, 5.5,
       [](const _ori_point& p) { return (p.channel - 1) % 64 < 6 || (p.channel - 1) % 64 >= 58; }},
      {NoiseKind::kFixedEcho, TruthKind::kFixedEcho, 0.5, 0.05, 62.0, 70.0, 1e9,
       [](const _ori_point& p) {
         return (p.channel >= 25 && p.channel <= 32 && p.hor_angle >= 45.0 &&
                 p.hor_angle <= 60.0) ||
                (p.channel >= 95 && p.channel <= 105 && p.hor_angle >= 125.0 &&
                 p.hor_angle <= 135.0);
       }}};
  for (const Case& c : cases) {
    SimulationSettings s = Settings("Marlo128", "empty", 5);
    s.noise[c.noise] = c.rate;
    int inWindow = 0;
    int seen = 0;
    for (const _ori_point& p : Generate(s)) {
      inWindow += c.inWindow(p);
      if (TruthKindOf(p) == c.truth) {
        ASSERT_TRUE(c.inWindow(p)) << p.channel << " " << p.hor_angle;
        ASSERT_GE(p.distance, c.minDistance);
        ASSERT_LE(p.distance, c.maxDistance);
        ASSERT_LE(p.pulse_width, c.maxPulse);
        ++seen;
      }
    }
    ASSERT_GT(inWindow, 0);
    EXPECT_NEAR(static_cast<double>(seen) / inWindow, c.rate, c.tolerance)
        << TruthKindName(c.truth);
  }
}

std::vector<_ori_point> WithAllOf(const std::string& model, NoiseKind kind, uint64_t seed) {
  SimulationSettings s = Settings(model, "city", seed);
  s.noise[kind] = 1.0;
  return Generate(s);
}

// Every ghost sits where its model's filter looks for it, beside a strong return of its group:
// HighRef128 and HighrefFilterZepT, fed the packets of the model, remove each one.
TEST(SimulatorTruthTest, GhostsAreWhereTheirModelsFilterFindsThem) {
  for (const auto& [model, id] : {std::pair<std::string, int>{"Marlo128", 24}, {"ZephelT", 33}}) {
    const SensorModel& m = *FindSensorModel(model);
    std::vector<_ori_point> frame = WithAllOf(model, NoiseKind::kGhost, 9);
    const std::vector<std::size_t> ghosts = IndicesOf(frame, TruthKind::kGhost);
    EXPECT_GT(ghosts.size(), 0u) << model;
    auto filter = test::MakeAlgo(id, m.type);
    for (auto at = frame.begin(); at != frame.end(); at += m.packetPoints) {
      std::vector<_ori_point> packet(at, at + m.packetPoints);
      filter->Process(packet);
      std::copy(packet.begin(), packet.end(), at);
    }
    for (std::size_t i : ghosts) {
      EXPECT_EQ(frame[i].distance, 0.0) << model << " ghost at " << i;
      EXPECT_LE(frame[i].pulse_width, 40.0) << model << " ghost at " << i;
    }
  }
}

TEST(SimulatorTruthTest, DragPointsLieJustBehindANearEdgeInTheNextColumn) {
  const std::vector<_ori_point> frame = WithAllOf("ZephelB2/B3/MP", NoiseKind::kDrag, 12);
  const std::vector<std::size_t> drag = IndicesOf(frame, TruthKind::kDrag);
  EXPECT_GT(drag.size(), 50u);
  for (std::size_t i : drag) {
    bool edgeFound = false;
    for (std::size_t j : {i - 64, i + 64}) {
      if (j < frame.size() && IsSurfaceTruth(TruthKindOf(frame[j]))) {
        const double depth = frame[i].distance - frame[j].distance;
        edgeFound = edgeFound || (depth > 0.0 && depth < 1.8 + 0.1);
      }
    }
    EXPECT_TRUE(edgeFound) << "drag point " << i;
  }
}

// Nearest entry into any box along the beam of `p`, over every box of the scene, placed at the
// point's own time. Flat road assumed.
double NearestBoxHit(const std::vector<SceneBox>& boxes, const SensorModel& m, double egoSpeed,
                     const _ori_point& p) {
  const double el = m.elevationDeg[p.channel - m.firstChannel] * M_PI / 180.0;
  const double az = p.hor_angle * M_PI / 180.0;
  const double d[3] = {std::cos(el) * std::cos(az), std::cos(el) * std::sin(az), std::sin(el)};
  const double t = 1e-9 * static_cast<double>(p.timestamp);
  const double none = std::numeric_limits<double>::infinity();
  double best = none;
  for (const SceneBox& b : boxes) {
    const double lo[3] = {b.minX + b.vx * t, b.minY + (b.vy - egoSpeed) * t,
                          b.minZ - m.mountHeight};
    const double hi[3] = {b.maxX + b.vx * t, b.maxY + (b.vy - egoSpeed) * t,
                          b.maxZ - m.mountHeight};
    double enter = 0.0;
    double leave = none;
    for (int a = 0; a < 3; ++a) {
      if (d[a] == 0.0) {
        enter = (lo[a] > 0.0 || hi[a] < 0.0) ? none : enter;
        continue;
      }
      enter = std::max(enter, std::min(lo[a] / d[a], hi[a] / d[a]));
      leave = std::min(leave, std::max(lo[a] / d[a], hi[a] / d[a]));
    }
    if (enter <= leave && enter > 0.0) {
      best = std::min(best, enter);
    }
  }
  return best;
}

// The per-column candidate lists of the scene must never hide an object: for a mirror sensor,
// and for a full-turn sensor driving forward and reversing (objects behind as well).
TEST(SceneTest, EveryObjectInTheFieldIsSeen) {
  const std::tuple<const char*, double, std::size_t> cases[] = {
      {"ZephelT", 6.0, 5}, {"Orvik16", 8.0, 1}, {"Orvik16", -6.0, 1}};
  for (const auto& [model, egoSpeed, stride] : cases) {
    SimulationSettings s = Settings(model, "city", 31);
    s.scene.egoSpeed = egoSpeed;
    const SensorModel& m = *FindSensorModel(model);
    Simulator simulator(s);
    std::vector<_ori_point> frame;
    simulator.GenerateFrame(1, frame);
    int checked = 0;
    int hits = 0;
    for (std::size_t i = 0; i < frame.size(); i += stride) {
      const _ori_point& p = frame[i];
      const double box = NearestBoxHit(simulator.World().Boxes(), m, egoSpeed, p);
      if (box > m.maxRange || !m.SlotSeesRange(static_cast<uint32_t>(i / m.PointsPerFace()), box)) {
        continue;
      }
      ++checked;
      ASSERT_GT(p.distance, 0.0) << model << " beam " << i << " missed a box at " << box;
      ASSERT_LT(p.distance, box + 0.1) << model << " beam " << i << " looked through " << box;
      hits += std::fabs(p.distance - box) < 0.1;
    }
    EXPECT_GT(checked, 1000) << model;
    EXPECT_GT(hits, checked / 2) << model;
  }
}

}  // namespace
}  // namespace sim
}  // namespace velmar
