#include "filters/DeletePoint.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr double kNearRange = 4.0;

bool IsEdgeChannel(uint32_t channel) {
  return channel == 1 || channel == 2 || channel == 62 || channel == 63 || channel == 64;
}

}  // namespace

bool DeletePoint::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kZephelB1;
}

void DeletePoint::Process(std::vector<_ori_point>& frame) {
  for (_ori_point& p : frame) {
    if (p.distance < kNearRange && IsEdgeChannel(p.channel)) {
      ClearMeasures(p);
    }
  }
}

}  // namespace velmar
