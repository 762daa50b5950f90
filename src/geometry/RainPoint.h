// Removes weak, short-pulse near returns typical of rain drops.
#ifndef VELMAR_GEOMETRY_RAIN_POINT_H
#define VELMAR_GEOMETRY_RAIN_POINT_H

#include "framework/Algorithm.h"

namespace velmar {

class RainPoint : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  double valid_distance = 6.0;
  double reflection_threshold = 40.0;
  double intensity_threshold = 299.0;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_RAIN_POINT_H
