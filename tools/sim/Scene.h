// The simulated world: a road (flat or sloped, with curbs), buildings, parked and moving cars,
// pedestrians and reflective signs, laid out from a seed, seen from a sensor that may drive
// forward. Objects are axis-aligned boxes; the sensor's forward axis is y.
#ifndef VELMAR_TOOLS_SIM_SCENE_H
#define VELMAR_TOOLS_SIM_SCENE_H

#include <cstdint>
#include <vector>

#include "sim/SensorModel.h"
#include "sim/Settings.h"
#include "sim/Truth.h"

namespace velmar {
namespace sim {

// An object: extent in world metres at time 0 (z measured up from the road under its centre),
// velocity, and how it reflects.
struct SceneBox {
  double minX, maxX, minY, maxY, minZ, maxZ;
  double vx, vy;
  double reflectivity;  // 0..1 for diffuse surfaces
  bool retro;           // retro-reflective: saturates the receiver
  bool moving;
};

// Where the sensor is at a moment of the drive: world position (metres; z follows the sloped
// road) and heading (radians, counter-clockwise from the world's forward axis y).
struct SensorPose {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  double heading = 0.0;
};

// The first surface a beam meets. range 0 means nothing within the sensor's range.
struct SurfaceHit {
  double range = 0.0;
  TruthKind kind = TruthKind::kNoReturn;
  bool retro = false;
  double reflectivity = 0.0;
  int object = kNoObject;  // which box was hit, or kGroundObject
  static constexpr int kNoObject = -1;
  static constexpr int kGroundObject = -2;
};

class Scene {
 public:
  // Throws std::invalid_argument for an unknown scene name. `durationSec` bounds how far the
  // layout must reach ahead of the sensor.
  Scene(const SceneSettings& settings, const SensorModel& model, double durationSec, uint64_t seed);

  const std::vector<SceneBox>& Boxes() const { return boxes_; }

  // The sensor drives at the ego speed along its own forward axis and turns at the yaw rate. A
  // turning drive is an arc whose heading crosses the road's direction halfway through the
  // drive, so that the sensor stays near the middle of the (straight) road as long as it can.
  SensorPose PoseAt(double t) const;

  // Sorts the boxes that can be seen during one face sweep [t0, t1] into the sweep's columns.
  void PrepareSweep(double t0, double t1);
  // Places the candidate boxes of `column` where they are at time t, relative to the sensor.
  void PrepareColumn(uint32_t column, double t);
  // Casts a beam of unit direction (dx, dy, dz), in the sensor's axes, from the sensor against
  // the prepared column.
  SurfaceHit Cast(double sensorDx, double sensorDy, double dz) const;

 private:
  struct PlacedBox {
    double minX, maxX, minY, maxY, minZ, maxZ;
    double nearest;  // horizontal distance from the sensor: no hit can be nearer
    uint32_t index;
  };

  void LayOutCity(uint64_t seed, double yStart, double yEnd);
  void LayOutHighway(uint64_t seed, double yStart, double yEnd);
  // Box at time t relative to the sensor's position, in world axes.
  PlacedBox Place(const SceneBox& box, double t, const SensorPose& sensor) const;
  // Horizontal angles (degrees, low <= high, margin included) that the box covers during
  // [t0, t1]; false when it stays out of range.
  bool AngularExtent(const SceneBox& box, double t0, double t1, double& low, double& high) const;
  void CastGround(double dx, double dy, double dz, SurfaceHit& hit) const;

  SceneSettings settings_;
  const SensorModel& model_;
  double yawRateRad_;  // radians per second; 0 for a straight drive
  double durationSec_;
  // The prepared column's view: beams turn from the sensor's axes into world axes.
  SensorPose columnPose_;
  double headingCos_ = 1.0;
  double headingSin_ = 0.0;
  double roadHalfWidth_;
  double curbHeight_;
  std::vector<SceneBox> boxes_;
  std::vector<std::vector<uint32_t>> columnBoxes_;
  std::vector<PlacedBox> placed_;
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_SCENE_H
