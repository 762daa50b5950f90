// Removes the fixed false echo that the Marlo128 sees at 62 to 70 m in two small windows of
// channels and horizontal angles.
#ifndef VELMAR_FILTERS_FIXED_NOISE128_H
#define VELMAR_FILTERS_FIXED_NOISE128_H

#include "framework/Algorithm.h"

namespace velmar {

class FixedNoise128 : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_FIXED_NOISE128_H
