#include "filters/FixedNoise128.h"

#include "framework/about.h"

namespace velmar {
namespace {

// A window of channels and horizontal angles in which the false echo appears; all bounds
// inclusive.
struct NoiseWindow {
  int32_t first_channel;
  int32_t last_channel;
  double min_angle;
  double max_angle;
};

constexpr NoiseWindow kNoiseWindows[] = {
    {25, 32, 45.0, 60.0},
    {95, 105, 125.0, 135.0},
};

constexpr double kNoiseMinDistance = 62.0;
constexpr double kNoiseMaxDistance = 70.0;

bool InNoiseWindow(const _ori_point& p) {
  const int32_t channel = static_cast<int32_t>(p.channel);
  for (const NoiseWindow& w : kNoiseWindows) {
    if (channel >= w.first_channel && channel <= w.last_channel) {
      return p.hor_angle >= w.min_angle && p.hor_angle <= w.max_angle;
    }
  }
  return false;
}

}  // namespace

bool FixedNoise128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128;
}

void FixedNoise128::Process(std::vector<_ori_point>& frame) {
  for (_ori_point& p : frame) {
    if (InNoiseWindow(p) && p.distance >= kNoiseMinDistance && p.distance <= kNoiseMaxDistance) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
