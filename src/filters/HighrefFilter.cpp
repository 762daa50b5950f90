#include "filters/HighrefFilter.h"

#include "framework/about.h"

namespace velmar {
namespace {

constexpr StrongReturnFilter::Window kWindow = StrongReturnFilter::Window::kPartnerChannels;
constexpr StrongReturnFilter::Defaults kDefaults{40.0, 1.0, 0.08, 1.0, 0, 0};

}  // namespace

HighrefFilter::HighrefFilter(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, "HighrefFilter", kWindow, kDefaults) {}

std::size_t HighrefFilter::TableBytes(LidarType type, const NumberParams& params) {
  return BufferBytes(type, params, kWindow, kDefaults);
}

bool HighrefFilter::IsSupported(const std::string& lidarTypeName) {
  return IsTwoColumnMirrorModel(lidarTypeName);
}

}  // namespace velmar
