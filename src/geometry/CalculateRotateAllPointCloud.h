// Moves every point from the sensor's frame into the mounting frame: an optional swap of the
// horizontal axes, a rotation and a translation, with an optional second rotation and translation
// folded into the first when the parameters are read.
#ifndef VELMAR_GEOMETRY_CALCULATE_ROTATE_ALL_POINT_CLOUD_H
#define VELMAR_GEOMETRY_CALCULATE_ROTATE_ALL_POINT_CLOUD_H

#include <array>

#include "framework/AlgoCommon.h"
#include "framework/Algorithm.h"

namespace velmar {

class CalculateRotateAllPointCloud : public Algorithm {
 public:
  using Vector3 = std::array<double, 3>;
  using Matrix3 = std::array<Vector3, 3>;  // row-major

  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
  void ParseParams() override;

  // Angles in degrees; the rotation is applied about x first, then y, then z.
  void SetXYZRotateAngle(float rx, float ry, float rz);
  void SetXYZTransVec(float tx, float ty, float tz);
  // Composes a second rotation and translation after the current transform.
  void SetSecondTransform(float rx2, float ry2, float rz2, float tx2, float ty2, float tz2);

  bool x_forward = false;
  Vector3 trans = {0.0, 0.0, 0.0};
  double deg_to_rad = kDegToRadF;  // widened from single precision, see kDegToRadF
  double sin_x = 0.0;
  double cos_x = 1.0;
  double sin_y = 0.0;
  double cos_y = 1.0;
  double sin_z = 0.0;
  double cos_z = 1.0;
  Matrix3 rot = {{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}};

 private:
  Matrix3 RotationFromDegrees(float rx, float ry, float rz) const;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_CALCULATE_ROTATE_ALL_POINT_CLOUD_H
