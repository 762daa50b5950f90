// Removes weak, short-pulse near returns typical of rain drops.
#ifndef VELMAR_GEOMETRY_RAIN_POINT_H
#define VELMAR_GEOMETRY_RAIN_POINT_H

#include "framework/AlgoBase.h"

namespace velmar {

class RainPoint : public AlgoBase {
 public:
  using AlgoBase::AlgoBase;

  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  void ClearCache() override {}

  double valid_distance = 6.0;
  double reflection_threshold = 40.0;
  double intensity_threshold = 299.0;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_RAIN_POINT_H
