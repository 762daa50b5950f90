#include "filters/HighrefFilterOVP48.h"

#include "framework/about.h"

namespace velmar {
namespace {

constexpr StrongReturnFilter::Window kWindow = StrongReturnFilter::Window::kHalo;
constexpr StrongReturnFilter::Defaults kDefaults{40.0, 0.4, 0.2, 0.5, 1, 3};

}  // namespace

HighrefFilterOVP48::HighrefFilterOVP48(const std::string& name, const std::string& desc,
                                       LidarType type)
    : StrongReturnFilter(name, desc, type, "HighrefFilterOVP48", kWindow, kDefaults) {}

std::size_t HighrefFilterOVP48::TableBytes(LidarType type, const NumberParams& params) {
  return BufferBytes(type, params, kWindow, kDefaults);
}

bool HighrefFilterOVP48::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kOrvik48 || lidarTypeName == kOrvik48_Depth;
}

}  // namespace velmar
