#include "geometry/CalculateRotateAllPointCloud.h"

#include <cmath>

namespace velmar {
namespace {

using Vector3 = CalculateRotateAllPointCloud::Vector3;
using Matrix3 = CalculateRotateAllPointCloud::Matrix3;

// Rz * Ry * Rx from the sines and cosines of the three angles.
Matrix3 RotationZYX(double sx, double cx, double sy, double cy, double sz, double cz) {
  return {{{cy * cz, sx * sy * cz - cx * sz, cx * sy * cz + sx * sz},
           {cy * sz, sx * sy * sz + cx * cz, cx * sy * sz - sx * cz},
           {-sy, sx * cy, cx * cy}}};
}

Vector3 Apply(const Matrix3& m, const Vector3& v) {
  return {m[0][0] * v[0] + m[0][1] * v[1] + m[0][2] * v[2],
          m[1][0] * v[0] + m[1][1] * v[1] + m[1][2] * v[2],
          m[2][0] * v[0] + m[2][1] * v[1] + m[2][2] * v[2]};
}

Matrix3 Multiply(const Matrix3& left, const Matrix3& right) {
  Matrix3 product{};
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) {
      product[row][col] = left[row][0] * right[0][col] + left[row][1] * right[1][col] +
                          left[row][2] * right[2][col];
    }
  }
  return product;
}

bool IsIdentity(const Matrix3& m) {
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) {
      if (m[row][col] != (row == col ? 1.0 : 0.0)) {
        return false;
      }
    }
  }
  return true;
}

bool IsZero(const Vector3& v) {
  return v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0;
}

// A missing angle or offset is neutral: it reads as 0, rounded like every other value.
float ParamOrZero(const std::map<std::string, double>& params, const char* key) {
  const auto it = params.find(key);
  return it == params.end() ? 0.0f : static_cast<float>(it->second);
}

}  // namespace

void CalculateRotateAllPointCloud::ParseParams() {
  double flag = 0.0;
  if (ReadParam("x_forward_flag", flag)) {
    x_forward = flag != 0.0;
  }
  const auto value = [this](const char* key) { return ParamOrZero(num_params, key); };
  SetXYZRotateAngle(value("transformRotateX"), value("transformRotateY"),
                    value("transformRotateZ"));
  SetXYZTransVec(value("transformMoveX"), value("transformMoveY"), value("transformMoveZ"));
  SetSecondTransform(value("secondTransformRotateX"), value("secondTransformRotateY"),
                     value("secondTransformRotateZ"), value("secondTransformMoveX"),
                     value("secondTransformMoveY"), value("secondTransformMoveZ"));
}

void CalculateRotateAllPointCloud::SetXYZRotateAngle(float rx, float ry, float rz) {
  const double ax = rx * deg_to_rad;
  const double ay = ry * deg_to_rad;
  const double az = rz * deg_to_rad;
  sin_x = std::sin(ax);
  cos_x = std::cos(ax);
  sin_y = std::sin(ay);
  cos_y = std::cos(ay);
  sin_z = std::sin(az);
  cos_z = std::cos(az);
  rot = RotationZYX(sin_x, cos_x, sin_y, cos_y, sin_z, cos_z);
}

void CalculateRotateAllPointCloud::SetXYZTransVec(float tx, float ty, float tz) {
  trans = {tx, ty, tz};
}

void CalculateRotateAllPointCloud::SetSecondTransform(float rx2, float ry2, float rz2, float tx2,
                                                      float ty2, float tz2) {
  // p -> R2 * (R1 * p + t1) + t2, folded into one rotation and one translation.
  const Matrix3 second = RotationFromDegrees(rx2, ry2, rz2);
  rot = Multiply(second, rot);
  const Vector3 moved = Apply(second, trans);
  trans = {moved[0] + tx2, moved[1] + ty2, moved[2] + tz2};
}

CalculateRotateAllPointCloud::Matrix3 CalculateRotateAllPointCloud::RotationFromDegrees(
    float rx, float ry, float rz) const {
  const double ax = rx * deg_to_rad;
  const double ay = ry * deg_to_rad;
  const double az = rz * deg_to_rad;
  return RotationZYX(std::sin(ax), std::cos(ax), std::sin(ay), std::cos(ay), std::sin(az),
                     std::cos(az));
}

void CalculateRotateAllPointCloud::Process(std::vector<_ori_point>& frame) {
  // The axis swap is part of the rotation step on purpose: with an identity rotation installed
  // configurations expect the points unswapped.
  const bool rotate = !IsIdentity(rot);
  const bool translate = !IsZero(trans);
  if (!rotate && !translate) {
    return;
  }
  for (_ori_point& p : frame) {
    if (rotate) {
      const Vector3 source = x_forward ? Vector3{p.y, -p.x, p.z} : Vector3{p.x, p.y, p.z};
      const Vector3 turned = Apply(rot, source);
      p.x = turned[0];
      p.y = turned[1];
      p.z = turned[2];
    }
    if (translate) {
      p.x += trans[0];
      p.y += trans[1];
      p.z += trans[2];
    }
  }
}

}  // namespace velmar
