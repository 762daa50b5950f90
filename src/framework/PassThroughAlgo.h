// An algorithm that leaves every frame as it is. It stands for the ids whose algorithm this
// library does not provide, so that configurations naming them still load and run.
#ifndef VELMAR_FRAMEWORK_PASS_THROUGH_ALGO_H
#define VELMAR_FRAMEWORK_PASS_THROUGH_ALGO_H

#include "framework/Algorithm.h"

namespace velmar {

class PassThroughAlgo : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& /*frame*/) override {}
  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_PASS_THROUGH_ALGO_H
