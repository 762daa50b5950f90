// Removes the ghosts that a strong (wide-pulse) return casts into the other channels of its
// channel group on the "ZephelT": a weak return of the group at about the same range.
#ifndef VELMAR_FILTERS_HIGHREF_FILTER_ZEP_T_H
#define VELMAR_FILTERS_HIGHREF_FILTER_ZEP_T_H

#include <array>
#include <cstddef>
#include <vector>

#include "framework/Algorithm.h"

namespace velmar {

class HighrefFilterZepT : public Algorithm {
 public:
  static constexpr std::size_t kGroupCount = 32;
  static constexpr std::size_t kChannelsPerGroup = 3;
  static constexpr std::size_t kChannelTableSize = 97;  // channels 0..96

  HighrefFilterZepT(const std::string& name, const std::string& desc, LidarType type);

  void Process(std::vector<_ori_point>& points) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  // The group of `channel`, or -1 for channel 0 and channels beyond the table.
  int32_t GroupOf(uint32_t channel) const;

  float highRefThreshold = 40.0f;          // pulse width above which a return is strong
  float noisePulseWidthThreshold = 43.0f;  // a ghost's pulse width is below this
  float distanceThreshold = 1.0f;          // metres between a ghost and its strong return

 private:
  void BuildChannelTable();
  void CollectStrongReturns(const std::vector<_ori_point>& points);
  bool IsGhost(const _ori_point& point, int32_t group) const;

  std::array<int32_t, kChannelTableSize> channel_to_group_{};

  // Per-frame scratch, kept between calls so that a running filter does not allocate.
  std::array<bool, kChannelTableSize> channel_has_strong_{};
  std::array<std::vector<float>, kGroupCount> strong_ranges_;  // sorted after collection
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_HIGHREF_FILTER_ZEP_T_H
