// An algorithm that leaves every frame as it is. It stands for the ids whose algorithm this
// library does not provide, so that configurations naming them still load and run.
#ifndef VELMAR_FRAMEWORK_PASS_THROUGH_ALGO_H
#define VELMAR_FRAMEWORK_PASS_THROUGH_ALGO_H

#include "framework/AlgoBase.h"

namespace velmar {

class PassThroughAlgo : public AlgoBase {
 public:
  using AlgoBase::AlgoBase;

  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& /*frame*/) override {}
  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
  void ParseParams() override {}
  void ClearCache() override {}
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_PASS_THROUGH_ALGO_H
