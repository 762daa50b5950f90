#include "filters/CrosstalkFilter2.h"

#include "framework/about.h"

namespace velmar {

CrosstalkFilter2::CrosstalkFilter2(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, "CrosstalkFilter2", Window::kSweep,
                         {28.0, 0.3, 0.2, 0.5, 0, 2}) {}

bool CrosstalkFilter2::IsSupported(const std::string& lidarTypeName) {
  return IsTwoColumnMirrorModel(lidarTypeName) || lidarTypeName == kZephelT;
}

}  // namespace velmar
