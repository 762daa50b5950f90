#include "filters/HighrefFilterOVP48.h"

#include "framework/about.h"

namespace velmar {

HighrefFilterOVP48::HighrefFilterOVP48(const std::string& name, const std::string& desc,
                                       LidarType type)
    : StrongReturnFilter(name, desc, type, "HighrefFilterOVP48", Window::kHalo,
                         {40.0, 0.4, 0.2, 0.5, 1, 3}) {}

bool HighrefFilterOVP48::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kOrvik48 || lidarTypeName == kOrvik48_Depth;
}

}  // namespace velmar
