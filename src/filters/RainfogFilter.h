// Removes rain drop and fog returns: echoes that are weak for their range and have a short pulse.
#ifndef VELMAR_FILTERS_RAINFOG_FILTER_H
#define VELMAR_FILTERS_RAINFOG_FILTER_H

#include "framework/Algorithm.h"

namespace velmar {

class RainfogFilter : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  double valid_distance_range = 15.0;    // far band: small_blind_distance < d < this
  double small_blind_distance = 4.0;     // near band: d <= this
  double max_pulse_distance = 299.0;     // pulse widths at or above this are never removed
  double big_reflection = 2.66;          // echo-strength threshold of the far band
  double small_blind_reflection = 1.56;  // echo-strength threshold of the near band
  int32_t rainfog_filter_range = -1;     // preset 1..5, anything else keeps the values above

 private:
  struct PulseLimits {
    double far;
    double near;
  };

  // Applies the preset of the mode (if any) to the thresholds and returns the pulse limits.
  PulseLimits ApplyPreset();
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_RAINFOG_FILTER_H
