// Removes near returns of the edge channels that see the sensor's own housing.
#ifndef VELMAR_FILTERS_DELETE_POINT_H
#define VELMAR_FILTERS_DELETE_POINT_H

#include "framework/AlgoBase.h"

namespace velmar {

class DeletePoint : public AlgoBase {
 public:
  using AlgoBase::AlgoBase;

  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override {}
  void ClearCache() override {}
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_DELETE_POINT_H
