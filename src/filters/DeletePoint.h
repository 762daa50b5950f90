// Removes near returns of the edge channels that see the sensor's own housing.
#ifndef VELMAR_FILTERS_DELETE_POINT_H
#define VELMAR_FILTERS_DELETE_POINT_H

#include "framework/Algorithm.h"

namespace velmar {

class DeletePoint : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_DELETE_POINT_H
