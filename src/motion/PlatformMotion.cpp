#include "motion/PlatformMotion.h"

#include <cmath>

namespace velmar {
namespace {

// Below this angle (radians) the series of the exponential replace its closed form, which would
// divide by nearly zero.
constexpr double kSmallAngle = 1e-6;

Eigen::Matrix3d Skew(const Eigen::Vector3d& w) {
  Eigen::Matrix3d k;
  k << 0.0, -w.z(), w.y(), w.z(), 0.0, -w.x(), -w.y(), w.x(), 0.0;
  return k;
}

}  // namespace

RigidMotion MotionOver(const PlatformMotion& motion, double seconds) {
  const Eigen::Vector3d rotation_vector = motion.angular * seconds;
  const Eigen::Vector3d travel = motion.linear * seconds;
  const double angle = rotation_vector.norm();
  const Eigen::Matrix3d k = Skew(rotation_vector);
  const Eigen::Matrix3d k2 = k * k;
  // R = I + a K + b K^2 and, for the translation along the arc, V = I + b K + c K^2.
  double a = 1.0;
  double b = 0.5;
  double c = 1.0 / 6.0;
  if (angle > kSmallAngle) {
    const double sine = std::sin(angle);
    const double cosine = std::cos(angle);
    a = sine / angle;
    b = (1.0 - cosine) / (angle * angle);
    c = (angle - sine) / (angle * angle * angle);
  }
  RigidMotion result;
  result.rotation = Eigen::Matrix3d::Identity() + a * k + b * k2;
  result.translation = (Eigen::Matrix3d::Identity() + b * k + c * k2) * travel;
  return result;
}

}  // namespace velmar
