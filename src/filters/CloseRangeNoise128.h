// Removes near returns with a short pulse from whole Marlo128 frames.
#ifndef VELMAR_FILTERS_CLOSE_RANGE_NOISE128_H
#define VELMAR_FILTERS_CLOSE_RANGE_NOISE128_H

#include "framework/Algorithm.h"

namespace velmar {

class CloseRangeNoise128 : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  float min_distance = 5.0f;  // metres; a point at this range or nearer is a candidate
  float min_pulse = 5.5f;     // a candidate with this pulse width or less is removed
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_CLOSE_RANGE_NOISE128_H
