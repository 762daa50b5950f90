#include "filters/SunlightNoise3.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {

bool SunlightNoise3::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kZephelB1;
}

void SunlightNoise3::Process(std::vector<_ori_point>& frame) {
  for (_ori_point& p : frame) {
    if (max_distance > p.distance && p.pulse_width < max_pulse_width &&
        strength_threshold > EchoStrength(p)) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
