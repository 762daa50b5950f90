// Removes the fixed false echo that the Marlo128 sees at 62 to 70 m in two small windows of
// channels and horizontal angles.
#ifndef VELMAR_FILTERS_FIXED_NOISE128_H
#define VELMAR_FILTERS_FIXED_NOISE128_H

#include "framework/AlgoBase.h"

namespace velmar {

class FixedNoise128 : public AlgoBase {
 public:
  using AlgoBase::AlgoBase;

  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override {}
  void ClearCache() override {}
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_FIXED_NOISE128_H
