// Removes horizontal crosstalk: the weak returns a strong return induces in its own channel in
// the columns before and after it, at its range. Columns after a packet's last one come with the
// next packets, so packets are handed back late (see StrongReturnFilter).
#ifndef VELMAR_FILTERS_CROSSTALK_FILTER2_H
#define VELMAR_FILTERS_CROSSTALK_FILTER2_H

#include <string>

#include "filters/StrongReturnFilter.h"

namespace velmar {

class CrosstalkFilter2 : public StrongReturnFilter {
 public:
  CrosstalkFilter2(const std::string& name, const std::string& desc, LidarType type);

  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_CROSSTALK_FILTER2_H
