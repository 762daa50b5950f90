#include "filters/HighrefFilter128.h"

#include "framework/about.h"

namespace velmar {
namespace {

constexpr StrongReturnFilter::Window kWindow = StrongReturnFilter::Window::kHalo;
constexpr StrongReturnFilter::Defaults kDefaults{40.0, 0.4, 0.2, 0.5, 3, 3};

}  // namespace

HighrefFilter128::HighrefFilter128(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, "HighrefFilter128", kWindow, kDefaults) {}

std::size_t HighrefFilter128::TableBytes(LidarType type, const NumberParams& params) {
  return BufferBytes(type, params, kWindow, kDefaults);
}

bool HighrefFilter128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128 || lidarTypeName == kMarlo128H || lidarTypeName == kMarlo128F;
}

}  // namespace velmar
