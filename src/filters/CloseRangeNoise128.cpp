#include "filters/CloseRangeNoise128.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {

bool CloseRangeNoise128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128;
}

void CloseRangeNoise128::ParseParams() {
  ReadParam("CloseRange_128_mindistance", min_distance);
  ReadParam("CloseRange_128_minpulse", min_pulse);
}

void CloseRangeNoise128::Process(std::vector<_ori_point>& frame) {
  // Single packets of 128 or 192 points pass: the rule is meant for assembled frames only.
  if (frame.empty() || frame.size() == kPacketPoints128 || frame.size() == kPacketPoints192) {
    return;
  }
  const double max_distance = min_distance;
  const double max_pulse = min_pulse;
  for (_ori_point& p : frame) {
    if (p.distance <= max_distance && p.pulse_width <= max_pulse) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
