// Removes the halo a saturated retro-reflector blooms into on the 48-channel spinning models,
// whose columns run across packet boundaries: weak returns at its range in the channels and
// columns around it. The sign's own returns are saturated themselves and always stay.
#ifndef VELMAR_FILTERS_HIGHREF_FILTER_OVP48_H
#define VELMAR_FILTERS_HIGHREF_FILTER_OVP48_H

#include <string>

#include "filters/StrongReturnFilter.h"

namespace velmar {

class HighrefFilterOVP48 : public StrongReturnFilter {
 public:
  HighrefFilterOVP48(const std::string& name, const std::string& desc, LidarType type);

  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_HIGHREF_FILTER_OVP48_H
