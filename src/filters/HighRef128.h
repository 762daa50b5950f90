// Removes the ghost that a strong (wide-pulse) Marlo128 return casts into a partner channel of its
// 32-channel group, a fixed range behind the strong return.
#ifndef VELMAR_FILTERS_HIGH_REF128_H
#define VELMAR_FILTERS_HIGH_REF128_H

#include "framework/Algorithm.h"

namespace velmar {

class HighRef128 : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  // No ClearCache: the group count describes the sensor's packet shape, not the scene.

  int32_t pulse_threshold = 40;  // a pulse width above this marks a strong return
  float ghost_distance = 67.0f;  // metres between a strong return and its ghost
  uint32_t group_count = 0;      // 32-point groups of the last packet of a known size

 private:
  void FilterGroup(std::vector<_ori_point>& frame, std::size_t group_start) const;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_HIGH_REF128_H
