// Removes vertical crosstalk: the weak returns a strong return induces in the other channels of
// its column, at its range, in a smear above and below it. A wall at the same range answers
// with an echo of its own, and stays.
#ifndef VELMAR_FILTERS_CROSSTALK_FILTER_H
#define VELMAR_FILTERS_CROSSTALK_FILTER_H

#include <string>

#include "filters/StrongReturnFilter.h"

namespace velmar {

class CrosstalkFilter : public StrongReturnFilter {
 public:
  CrosstalkFilter(const std::string& name, const std::string& desc, LidarType type);

  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  // Crosstalk candidates higher than this (metres, the frame's z) are never removed, for hosts
  // that keep everything overhead (gantries, bridges).
  double crosstalkNoDeleteHeigh;

 protected:
  bool MayRemove(const _ori_point& leak) const override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_CROSSTALK_FILTER_H
