#include "filters/HighrefFilter128.h"

#include "framework/about.h"

namespace velmar {

HighrefFilter128::HighrefFilter128(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, "HighrefFilter128", Window::kHalo,
                         {40.0, 0.4, 0.2, 0.5, 3, 3}) {}

bool HighrefFilter128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128 || lidarTypeName == kMarlo128H || lidarTypeName == kMarlo128F;
}

}  // namespace velmar
