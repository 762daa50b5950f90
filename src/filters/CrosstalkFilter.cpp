#include "filters/CrosstalkFilter.h"

#include "framework/about.h"

namespace velmar {
namespace {

constexpr StrongReturnFilter::Window kWindow = StrongReturnFilter::Window::kColumn;
constexpr StrongReturnFilter::Defaults kDefaults{28.0, 0.3, 0.2, 0.5, 5, 0};
constexpr const char* kClassName = "CrosstalkFilter";
constexpr const char* kNoDeleteHeightKey = "crosstalkNoDeleteHeigh";
constexpr double kNoHeightLimit = 1000.0;

}  // namespace

CrosstalkFilter::CrosstalkFilter(const std::string& name, const std::string& desc, LidarType type)
    : StrongReturnFilter(name, desc, type, kClassName, kWindow, kDefaults),
      crosstalkNoDeleteHeigh(kNoHeightLimit) {}

std::size_t CrosstalkFilter::TableBytes(LidarType type, const NumberParams& params) {
  return BufferBytes(type, params, kWindow, kDefaults);
}

bool CrosstalkFilter::IsSupported(const std::string& lidarTypeName) {
  return IsTwoColumnMirrorModel(lidarTypeName) || lidarTypeName == kZephelT;
}

void CrosstalkFilter::ParseParams() {
  StrongReturnFilter::ParseParams();
  ReadBounded(kNoDeleteHeightKey, crosstalkNoDeleteHeigh, -kNoHeightLimit, kNoHeightLimit,
              kNoHeightLimit);
}

bool CrosstalkFilter::MayRemove(const _ori_point& leak) const {
  return !(leak.z > crosstalkNoDeleteHeigh);
}

}  // namespace velmar
