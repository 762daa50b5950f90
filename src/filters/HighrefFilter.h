// Removes the ghosts a strong return casts into the channels two above and two below it on the
// mirror models with 64-channel columns: returns at about its range whose intensity is a few
// percent of its own.
#ifndef VELMAR_FILTERS_HIGHREF_FILTER_H
#define VELMAR_FILTERS_HIGHREF_FILTER_H

#include <string>

#include "filters/StrongReturnFilter.h"

namespace velmar {

class HighrefFilter : public StrongReturnFilter {
 public:
  HighrefFilter(const std::string& name, const std::string& desc, LidarType type);

  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_HIGHREF_FILTER_H
