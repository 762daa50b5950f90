#include "filters/CrosstalkFilter2.h"

#include "framework/about.h"

namespace velmar {
namespace {

constexpr StrongReturnFilter::Window kWindow = StrongReturnFilter::Window::kSweep;
constexpr StrongReturnFilter::Defaults kDefaults{28.0, 0.3, 0.2, 0.5, 0, 2};

}  // namespace

CrosstalkFilter2::CrosstalkFilter2(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, "CrosstalkFilter2", kWindow, kDefaults) {}

std::size_t CrosstalkFilter2::TableBytes(LidarType type, const NumberParams& params) {
  return BufferBytes(type, params, kWindow, kDefaults);
}

bool CrosstalkFilter2::IsSupported(const std::string& lidarTypeName) {
  return IsTwoColumnMirrorModel(lidarTypeName) || lidarTypeName == kZephelT;
}

}  // namespace velmar
