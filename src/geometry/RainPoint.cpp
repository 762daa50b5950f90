#include "geometry/RainPoint.h"

#include <limits>

#include "framework/Messages.h"

namespace velmar {

bool RainPoint::IsSupported(const std::string& /*lidarTypeName*/) {
  return true;
}

void RainPoint::ParseParams() {
  // The three values belong together: one bad value refuses the whole set.
  double distance = 0.0;
  double reflection = 0.0;
  double intensity = 0.0;
  const bool present = ReadParam("validDistance", distance) &&
                       ReadParam("reflectionThreshold", reflection) &&
                       ReadParam("intensityThreshold", intensity);
  const bool valid = present && distance > 0.0 && distance <= 50.0 && reflection > 0.0 &&
                     intensity >= 0.0 && intensity <= 300.0;
  if (!valid) {
    PrintLine("[algo]: RainPoint algo param is invalid!");
    return;
  }
  valid_distance = distance;
  reflection_threshold = reflection;
  intensity_threshold = intensity;
}

void RainPoint::Process(std::vector<_ori_point>& frame) {
  if (frame.empty() ||
      frame.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) {
    return;
  }
  for (_ori_point& p : frame) {
    const double pulse = p.pulse_width * 0.15;
    const double strength = p.distance * pulse;
    // A long pulse at short range is as suspicious as a weak echo, hence the disjunction.
    if (valid_distance > p.distance &&
        (reflection_threshold > strength || intensity_threshold < pulse)) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
