// The platform's velocity, taken as constant over a frame, and the rigid motion it makes over a
// span of time. Velocities are in the platform's own axes (those the coordinate transform leaves
// the points in: y forward, x right, z up), so that "10 m/s forward while turning left" stays the
// same numbers through a whole turn.
#ifndef VELMAR_MOTION_PLATFORM_MOTION_H
#define VELMAR_MOTION_PLATFORM_MOTION_H

#include <Eigen/Core>

namespace velmar {

struct PlatformMotion {
  Eigen::Vector3d linear = Eigen::Vector3d::Zero();   // m/s
  Eigen::Vector3d angular = Eigen::Vector3d::Zero();  // rad/s, about x, y, z (z: yaw, left > 0)

  bool IsFinite() const { return linear.allFinite() && angular.allFinite(); }
  bool IsZero() const { return linear.isZero(0.0) && angular.isZero(0.0); }
};

// A rotation and a translation, applied as rotation * p + translation.
struct RigidMotion {
  Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();

  Eigen::Vector3d Apply(const Eigen::Vector3d& p) const { return rotation * p + translation; }
};

// Moving at `motion` for `seconds` (negative: back in time), the platform's axes at the start
// see a point p of its axes at the end at MotionOver(motion, seconds).Apply(p): the exponential
// of the constant velocity, so that a turn is an arc, not a chord.
RigidMotion MotionOver(const PlatformMotion& motion, double seconds);

// The rigid motion of the last time asked for, reused while the time stays the same: the
// returns of a column share one time, so a frame needs one motion per column.
class MotionCache {
 public:
  void Reset(const PlatformMotion& motion) {
    motion_ = motion;
    valid_ = false;
  }
  const RigidMotion& At(double seconds) {
    if (!valid_ || seconds != seconds_) {
      current_ = MotionOver(motion_, seconds);
      seconds_ = seconds;
      valid_ = true;
    }
    return current_;
  }

 private:
  PlatformMotion motion_;
  RigidMotion current_;
  double seconds_ = 0.0;
  bool valid_ = false;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_PLATFORM_MOTION_H
