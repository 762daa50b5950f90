#include "sim/Scene.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "sim/Random.h"

namespace velmar {
namespace sim {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRadToDeg = 180.0 / kPi;
constexpr double kFullTurnDeg = 360.0;
// The layout starts a little behind the sensor and reaches past its range at the last frame.
constexpr double kLayoutBehind = 40.0;
constexpr double kLayoutAhead = 40.0;
// Angular margin when sorting boxes into columns: covers the beam's own width and the
// movement of objects within one sweep.
constexpr double kBinMarginDeg = 0.5;

constexpr double kRoadReflectivity = 0.12;
constexpr double kPavementReflectivity = 0.18;
constexpr double kCurbReflectivity = 0.25;

constexpr double kCityRoadHalfWidth = 7.0;
constexpr double kCurbHeight = 0.15;
constexpr double kHighwayRoadHalfWidth = 12.0;
// The empty scene has no curb: its road reaches farther than any beam.
constexpr double kEndlessRoad = 1e9;

constexpr double kCarLength = 4.5;
constexpr double kCarWidth = 1.8;
constexpr double kPedestrianSize = 0.5;
constexpr double kPedestrianHeight = 1.75;
constexpr double kWalkingSpeed = 1.4;
constexpr double kSignWidth = 0.8;
constexpr double kSignDepth = 0.06;

SceneBox MakeBox(double x0, double x1, double y0, double y1, double z0, double z1,
                 double reflectivity) {
  SceneBox box{};
  box.minX = std::min(x0, x1);
  box.maxX = std::max(x0, x1);
  box.minY = std::min(y0, y1);
  box.maxY = std::max(y0, y1);
  box.minZ = z0;
  box.maxZ = z1;
  box.reflectivity = reflectivity;
  return box;
}

SceneBox MovingBox(SceneBox box, double vx, double vy) {
  box.vx = vx;
  box.vy = vy;
  box.moving = true;
  return box;
}

SceneBox Car(double centreX, double y, Rng& rng) {
  return MakeBox(centreX - kCarWidth / 2, centreX + kCarWidth / 2, y, y + kCarLength, 0.0,
                 rng.Uniform(1.4, 1.8), rng.Uniform(0.3, 0.8));
}

SceneBox Pedestrian(double centreX, double y) {
  return MakeBox(centreX - kPedestrianSize / 2, centreX + kPedestrianSize / 2, y,
                 y + kPedestrianSize, 0.0, kPedestrianHeight, 0.25);
}

SceneBox Sign(double nearX, double farX, double y, double bottom, double top) {
  SceneBox box = MakeBox(nearX, farX, y, y + kSignDepth, bottom, top, 1.0);
  box.retro = true;
  return box;
}

// Slab test of a beam from the origin; returns the entry distance or infinity.
double IntersectBox(double minX, double maxX, double minY, double maxY, double minZ, double maxZ,
                    double dx, double dy, double dz) {
  double tNear = 0.0;
  double tFar = std::numeric_limits<double>::infinity();
  const double mins[3] = {minX, minY, minZ};
  const double maxs[3] = {maxX, maxY, maxZ};
  const double dirs[3] = {dx, dy, dz};
  for (int axis = 0; axis < 3; ++axis) {
    if (std::fabs(dirs[axis]) < 1e-12) {
      if (mins[axis] > 0.0 || maxs[axis] < 0.0) {
        return std::numeric_limits<double>::infinity();
      }
      continue;
    }
    double t1 = mins[axis] / dirs[axis];
    double t2 = maxs[axis] / dirs[axis];
    if (t1 > t2) {
      std::swap(t1, t2);
    }
    tNear = std::max(tNear, t1);
    tFar = std::min(tFar, t2);
    if (tNear > tFar) {
      return std::numeric_limits<double>::infinity();
    }
  }
  // A box around the sensor itself is not seen.
  return tNear > 0.0 ? tNear : std::numeric_limits<double>::infinity();
}

}  // namespace

Scene::Scene(const SceneSettings& settings, const SensorModel& model, double durationSec,
             uint64_t seed)
    : settings_(settings),
      model_(model),
      yawRateRad_(settings.yawRate * kPi / 180.0),
      durationSec_(durationSec) {
  // The layout covers what the sensor can see from every point of its drive, backwards too.
  const double travel = settings.egoSpeed * durationSec;
  const double yStart = std::min(0.0, travel) - kLayoutBehind;
  const double yEnd = std::max(0.0, travel) + model.maxRange + kLayoutAhead;
  if (settings.name == "city") {
    roadHalfWidth_ = kCityRoadHalfWidth;
    curbHeight_ = kCurbHeight;
    LayOutCity(seed, yStart, yEnd);
  } else if (settings.name == "highway") {
    roadHalfWidth_ = kHighwayRoadHalfWidth;
    curbHeight_ = 0.0;
    LayOutHighway(seed, yStart, yEnd);
  } else if (settings.name == "empty") {
    roadHalfWidth_ = kEndlessRoad;
    curbHeight_ = 0.0;
  } else {
    throw std::invalid_argument("unknown scene \"" + settings.name + "\"");
  }
  columnBoxes_.resize(model.ColumnsPerFace());
  placed_.reserve(boxes_.size());
}

void Scene::LayOutCity(uint64_t seed, double yStart, double yEnd) {
  Rng rng(seed);
  for (double side : {-1.0, 1.0}) {
    // Buildings behind the pavement, with gaps between them.
    for (double y = yStart; y < yEnd;) {
      const double length = rng.Uniform(12.0, 35.0);
      if (rng.Chance(0.8)) {
        boxes_.push_back(MakeBox(side * rng.Uniform(12.0, 14.0), side * 22.0, y, y + length, 0.0,
                                 rng.Uniform(6.0, 25.0), rng.Uniform(0.25, 0.5)));
      }
      y += length + rng.Uniform(2.0, 10.0);
    }
    // Parked cars along the curb.
    for (double y = yStart + rng.Uniform(0.0, 10.0); y < yEnd;) {
      if (rng.Chance(0.6)) {
        boxes_.push_back(Car(side * 5.9, y, rng));
      }
      y += kCarLength + rng.Uniform(1.0, 8.0);
    }
    // Pedestrians walking along the pavement.
    for (double y = yStart + rng.Uniform(0.0, 10.0); y < yEnd; y += rng.Uniform(8.0, 30.0)) {
      const double speed = kWalkingSpeed * rng.Uniform(0.7, 1.2) * (rng.Chance(0.5) ? 1 : -1);
      boxes_.push_back(MovingBox(Pedestrian(side * rng.Uniform(8.0, 10.5), y), 0.0, speed));
    }
  }
  // Traffic: oncoming on the left, same direction in the lane to the right of the sensor.
  const double ownSpeed = settings_.egoSpeed > 0.0 ? settings_.egoSpeed : 10.0;
  for (double y = rng.Uniform(5.0, 40.0); y < yEnd + 200.0; y += rng.Uniform(25.0, 60.0)) {
    boxes_.push_back(MovingBox(Car(-3.7, y, rng), 0.0, -rng.Uniform(8.0, 14.0)));
  }
  for (double y = rng.Uniform(8.0, 30.0); y < yEnd; y += rng.Uniform(30.0, 70.0)) {
    boxes_.push_back(MovingBox(Car(3.7, y, rng), 0.0, ownSpeed + rng.Uniform(-4.0, 4.0)));
  }
  // Pedestrians crossing the street ahead.
  for (double y = 15.0; y < yEnd; y += rng.Uniform(40.0, 90.0)) {
    boxes_.push_back(MovingBox(Pedestrian(rng.Uniform(-7.5, -2.0), y), kWalkingSpeed, 0.0));
  }
  // Reflective signs at the right edge of the road, facing the traffic.
  for (double y = 22.0; y < yEnd; y += 60.0) {
    boxes_.push_back(Sign(6.6, 6.6 + kSignWidth, y, 1.8, 2.6));
  }
}

void Scene::LayOutHighway(uint64_t seed, double yStart, double yEnd) {
  Rng rng(seed);
  constexpr double kRailLength = 40.0;
  for (double side : {-1.0, 1.0}) {
    for (double y = yStart; y < yEnd; y += kRailLength + 0.5) {
      boxes_.push_back(MakeBox(side * 12.5, side * 12.8, y, y + kRailLength, 0.0, 0.8, 0.4));
    }
  }
  const double ownSpeed = settings_.egoSpeed > 0.0 ? settings_.egoSpeed : 25.0;
  for (double lane : {-9.5, -6.0, -2.5}) {
    for (double y = rng.Uniform(10.0, 80.0); y < yEnd + 600.0; y += rng.Uniform(40.0, 120.0)) {
      boxes_.push_back(MovingBox(Car(lane, y, rng), 0.0, -rng.Uniform(22.0, 33.0)));
    }
  }
  for (double lane : {3.5, 7.0}) {
    for (double y = rng.Uniform(10.0, 60.0); y < yEnd; y += rng.Uniform(40.0, 100.0)) {
      boxes_.push_back(MovingBox(Car(lane, y, rng), 0.0, ownSpeed + rng.Uniform(-5.0, 8.0)));
    }
  }
  for (double y = 50.0; y < yEnd; y += 150.0) {
    boxes_.push_back(Sign(13.0, 14.5, y, 3.0, 4.5));
  }
}

SensorPose Scene::PoseAt(double t) const {
  SensorPose pose;
  pose.y = settings_.egoSpeed * t;
  if (yawRateRad_ != 0.0) {
    const double startHeading = -0.5 * yawRateRad_ * durationSec_;
    const double radius = settings_.egoSpeed / yawRateRad_;
    pose.heading = startHeading + yawRateRad_ * t;
    pose.x = radius * (std::cos(pose.heading) - std::cos(startHeading));
    pose.y = radius * (std::sin(pose.heading) - std::sin(startHeading));
  }
  pose.z = settings_.groundSlope * pose.y;
  return pose;
}

Scene::PlacedBox Scene::Place(const SceneBox& box, double t, const SensorPose& sensor) const {
  PlacedBox placed;
  placed.minX = box.minX + box.vx * t - sensor.x;
  placed.maxX = box.maxX + box.vx * t - sensor.x;
  placed.minY = box.minY + box.vy * t - sensor.y;
  placed.maxY = box.maxY + box.vy * t - sensor.y;
  // The box stands on the (possibly sloped) road under its centre; the sensor rides on the road
  // as well, so heights relative to the sensor depend only on the distance ahead.
  const double base =
      settings_.groundSlope * 0.5 * (placed.minY + placed.maxY) - model_.mountHeight;
  placed.minZ = base + box.minZ;
  placed.maxZ = base + box.maxZ;
  const double gapX = std::max({placed.minX, -placed.maxX, 0.0});
  const double gapY = std::max({placed.minY, -placed.maxY, 0.0});
  placed.nearest = std::hypot(gapX, gapY);
  placed.index = 0;
  return placed;
}

bool Scene::AngularExtent(const SceneBox& box, double t0, double t1, double& low,
                          double& high) const {
  const SensorPose poses[2] = {PoseAt(t0), PoseAt(t1)};
  const PlacedBox start = Place(box, t0, poses[0]);
  const PlacedBox end = Place(box, t1, poses[1]);
  if (start.nearest > model_.maxRange && end.nearest > model_.maxRange) {
    return false;
  }
  if (start.nearest == 0.0 || end.nearest == 0.0) {
    low = -kFullTurnDeg;  // the sensor stands inside the footprint: every direction
    high = kFullTurnDeg;
    return true;
  }
  // Corner angles in the sensor's axes, relative to the direction of the box's centre, so that
  // the interval stays continuous whichever way the box lies.
  const double centre =
      std::atan2(0.5 * (start.minY + start.maxY), 0.5 * (start.minX + start.maxX)) -
      poses[0].heading;
  low = std::numeric_limits<double>::infinity();
  high = -low;
  for (int i = 0; i < 2; ++i) {
    const PlacedBox* p = i == 0 ? &start : &end;
    for (double x : {p->minX, p->maxX}) {
      for (double y : {p->minY, p->maxY}) {
        const double delta =
            std::remainder(std::atan2(y, x) - poses[i].heading - centre, 2.0 * kPi);
        low = std::min(low, delta);
        high = std::max(high, delta);
      }
    }
  }
  low = (centre + low) * kRadToDeg - kBinMarginDeg;
  high = (centre + high) * kRadToDeg + kBinMarginDeg;
  return true;
}

void Scene::PrepareSweep(double t0, double t1) {
  for (std::vector<uint32_t>& list : columnBoxes_) {
    list.clear();
  }
  const int lastColumn = static_cast<int>(model_.ColumnsPerFace()) - 1;
  const double origin = model_.ColumnAngleDeg(0) - 0.5 * model_.columnStepDeg;
  for (uint32_t i = 0; i < boxes_.size(); ++i) {
    double low = 0.0;
    double high = 0.0;
    if (!AngularExtent(boxes_[i], t0, t1, low, high)) {
      continue;
    }
    if (high - low >= kFullTurnDeg) {
      low = origin;
      high = origin + kFullTurnDeg;
    }
    // The same directions one turn earlier or later may fall into the sweep as well.
    int covered = -1;
    for (double turn : {-kFullTurnDeg, 0.0, kFullTurnDeg}) {
      const int first = std::max(
          covered + 1, static_cast<int>(std::floor((low + turn - origin) / model_.columnStepDeg)));
      const int last = std::min(
          lastColumn, static_cast<int>(std::floor((high + turn - origin) / model_.columnStepDeg)));
      for (int c = std::max(first, 0); c <= last; ++c) {
        columnBoxes_[c].push_back(i);
        covered = c;
      }
    }
  }
}

void Scene::PrepareColumn(uint32_t column, double t) {
  columnPose_ = PoseAt(t);
  headingCos_ = std::cos(columnPose_.heading);
  headingSin_ = std::sin(columnPose_.heading);
  placed_.clear();
  for (uint32_t index : columnBoxes_[column]) {
    PlacedBox p = Place(boxes_[index], t, columnPose_);
    p.index = index;
    placed_.push_back(p);
  }
  std::sort(placed_.begin(), placed_.end(),
            [](const PlacedBox& a, const PlacedBox& b) { return a.nearest < b.nearest; });
}

void Scene::CastGround(double dx, double dy, double dz, SurfaceHit& hit) const {
  // Road surface: z = slope * y - mountHeight, pavement curbHeight above it.
  const double descent = dz - settings_.groundSlope * dy;
  if (descent >= 0.0) {
    return;
  }
  const double roadRange = -model_.mountHeight / descent;
  double range = roadRange;
  double reflectivity = kRoadReflectivity;
  TruthKind kind = TruthKind::kGround;
  // Road edges are at world x = +-roadHalfWidth_; the sensor may have drifted off the centre.
  const double sensorX = columnPose_.x;
  if (std::fabs(sensorX + roadRange * dx) > roadHalfWidth_) {
    const double pavementRange = -(model_.mountHeight - curbHeight_) / descent;
    if (std::fabs(sensorX + pavementRange * dx) > roadHalfWidth_) {
      range = pavementRange;
      reflectivity = kPavementReflectivity;
    } else {
      // The beam passes the road edge between the two levels: it meets the curb's face.
      const double edge = sensorX + roadRange * dx > 0.0 ? roadHalfWidth_ : -roadHalfWidth_;
      range = (edge - sensorX) / dx;
      reflectivity = kCurbReflectivity;
      kind = TruthKind::kReal;
    }
  }
  if (range < hit.range || hit.range == 0.0) {
    hit.range = range;
    hit.kind = kind;
    hit.reflectivity = reflectivity;
    hit.object = SurfaceHit::kGroundObject;
  }
}

SurfaceHit Scene::Cast(double sensorDx, double sensorDy, double dz) const {
  double dx = sensorDx;
  double dy = sensorDy;
  if (yawRateRad_ != 0.0) {
    dx = headingCos_ * sensorDx - headingSin_ * sensorDy;
    dy = headingSin_ * sensorDx + headingCos_ * sensorDy;
  }
  SurfaceHit hit;
  CastGround(dx, dy, dz, hit);
  double best = hit.range > 0.0 ? hit.range : std::numeric_limits<double>::infinity();
  for (const PlacedBox& p : placed_) {
    if (p.nearest >= best) {
      break;
    }
    const double t = IntersectBox(p.minX, p.maxX, p.minY, p.maxY, p.minZ, p.maxZ, dx, dy, dz);
    if (t < best) {
      best = t;
      const SceneBox& box = boxes_[p.index];
      hit.range = t;
      hit.kind = TruthKind::kReal;
      hit.retro = box.retro;
      hit.reflectivity = box.reflectivity;
      hit.object = static_cast<int>(p.index);
    }
  }
  if (hit.range > model_.maxRange) {
    hit = SurfaceHit();
  }
  return hit;
}

}  // namespace sim
}  // namespace velmar
