// Removes returns below the configured ground depth.
#ifndef VELMAR_GEOMETRY_UNDER_GROUND_POINT_H
#define VELMAR_GEOMETRY_UNDER_GROUND_POINT_H

#include "framework/Algorithm.h"

namespace velmar {

class UnderGroundPoint : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
  void ParseParams() override;

  float filter_ground_height = 0.87f;  // metres below the sensor; held in single precision
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_UNDER_GROUND_POINT_H
