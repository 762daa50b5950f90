// Removes single near returns with a short, weak pulse, the usual footprint of direct sunlight.
#ifndef VELMAR_FILTERS_SUNLIGHT_NOISE3_H
#define VELMAR_FILTERS_SUNLIGHT_NOISE3_H

#include "framework/Algorithm.h"

namespace velmar {

class SunlightNoise3 : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  // No ParseParams: the thresholds are tuned for the one supported model.

  double max_distance = 3.0;
  double strength_threshold = 0.9;
  double max_pulse_width = 3.0;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_SUNLIGHT_NOISE3_H
