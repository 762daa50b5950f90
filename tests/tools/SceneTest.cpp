// Ray casting against the scene: the per-column candidate lists must never hide an object.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ToolsTestSupport.h"
#include "sim/Scene.h"
#include "sim/Truth.h"

namespace velmar {
namespace sim {
namespace {

constexpr double kNone = std::numeric_limits<double>::infinity();

// Nearest entry into any box along the beam of `p`, over every box of the scene, placed at the
// point's own time. Flat road assumed.
double NearestBoxHit(const std::vector<SceneBox>& boxes, const SensorModel& m, double egoSpeed,
                     const _ori_point& p, double dx, double dy, double dz) {
  const double t = 1e-9 * static_cast<double>(p.timestamp);
  double best = kNone;
  for (const SceneBox& b : boxes) {
    const double lo[3] = {b.minX + b.vx * t, b.minY + (b.vy - egoSpeed) * t,
                          b.minZ - m.mountHeight};
    const double hi[3] = {b.maxX + b.vx * t, b.maxY + (b.vy - egoSpeed) * t,
                          b.maxZ - m.mountHeight};
    const double d[3] = {dx, dy, dz};
    double enter = 0.0;
    double leave = kNone;
    for (int a = 0; a < 3; ++a) {
      if (d[a] == 0.0) {
        if (lo[a] > 0.0 || hi[a] < 0.0) {
          enter = kNone;
        }
        continue;
      }
      const double t1 = lo[a] / d[a];
      const double t2 = hi[a] / d[a];
      enter = std::max(enter, std::min(t1, t2));
      leave = std::min(leave, std::max(t1, t2));
    }
    if (enter <= leave && enter > 0.0) {
      best = std::min(best, enter);
    }
  }
  return best;
}

void ExpectNoHiddenObject(const std::string& model, double egoSpeed, std::size_t stride) {
  SimulationSettings s = test::Settings(model, "city", 31);
  s.scene.egoSpeed = egoSpeed;
  const SensorModel& m = *FindSensorModel(model);
  Simulator simulator(s);
  std::vector<_ori_point> frame;
  simulator.GenerateFrame(1, frame);
  const std::vector<SceneBox>& boxes = simulator.World().Boxes();
  int checked = 0;
  int hits = 0;
  for (std::size_t i = 0; i < frame.size(); i += stride) {
    const _ori_point& p = frame[i];
    const double el = m.elevationDeg[p.channel - m.firstChannel] * M_PI / 180.0;
    const double az = p.hor_angle * M_PI / 180.0;
    const double dx = std::cos(el) * std::cos(az);
    const double dy = std::cos(el) * std::sin(az);
    const double dz = std::sin(el);
    const double box = NearestBoxHit(boxes, m, egoSpeed, p, dx, dy, dz);
    const bool faceSeesIt = m.SlotSeesRange(static_cast<uint32_t>(i / m.PointsPerFace()), box);
    if (box > m.maxRange || !faceSeesIt) {
      continue;
    }
    ++checked;
    ASSERT_GT(p.distance, 0.0) << "beam " << i << " missed a box at " << box;
    ASSERT_LT(p.distance, box + 0.1) << "beam " << i << " looked through a box at " << box;
    hits += std::fabs(p.distance - box) < 0.1;
  }
  EXPECT_GT(checked, 1000);
  EXPECT_GT(hits, checked / 2);
}

TEST(SceneTest, MirrorSensorSeesEveryObjectInItsField) {
  ExpectNoHiddenObject("ZephelT", 6.0, 5);
}

TEST(SceneTest, FullTurnSensorSeesObjectsBehindAsWell) {
  ExpectNoHiddenObject("Orvik16", 8.0, 1);
}

TEST(SceneTest, ObjectsAroundTheSensorAreSeenWhileReversing) {
  ExpectNoHiddenObject("Orvik16", -6.0, 1);
}

}  // namespace
}  // namespace sim
}  // namespace velmar
