#include "filters/HighrefFilter.h"

#include "framework/about.h"

namespace velmar {

HighrefFilter::HighrefFilter(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, "HighrefFilter", Window::kPartnerChannels,
                         {40.0, 1.0, 0.08, 1.0, 0, 0}) {}

bool HighrefFilter::IsSupported(const std::string& lidarTypeName) {
  return IsTwoColumnMirrorModel(lidarTypeName);
}

}  // namespace velmar
