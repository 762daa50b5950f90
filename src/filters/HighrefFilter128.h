// Removes the halo a saturated retro-reflector blooms into on the 128-channel models: weak
// returns at its range in the channels and columns around it, which make signs look larger than
// they are. The sign's own returns are saturated themselves and always stay.
#ifndef VELMAR_FILTERS_HIGHREF_FILTER128_H
#define VELMAR_FILTERS_HIGHREF_FILTER128_H

#include <string>

#include "filters/StrongReturnFilter.h"

namespace velmar {

class HighrefFilter128 : public StrongReturnFilter {
 public:
  HighrefFilter128(const std::string& name, const std::string& desc, LidarType type);

  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_HIGHREF_FILTER128_H
