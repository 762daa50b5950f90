#include "filters/RainfogFilter.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

// Tuned threshold sets for increasingly heavy weather; a preset wins over configured values.
struct RainfogPreset {
  double valid_distance_range;
  double small_blind_distance;
  double big_reflection;
  double small_blind_reflection;
  double far_pulse_limit;
  double near_pulse_limit;
};

constexpr RainfogPreset kPresets[] = {
    {30.0, 2.5, 2.88, 0.98, 10.0, 6.0},  // mode 1
    {30.0, 2.5, 3.0, 2.98, 10.0, 6.0},   // mode 2
    {30.0, 2.5, 8.9, 2.98, 10.0, 6.0},   // mode 3
    {30.0, 2.5, 8.9, 2.98, 15.0, 6.0},   // mode 4
    {30.0, 2.5, 10.0, 5.0, 25.0, 10.0},  // mode 5
};
constexpr int32_t kPresetCount = static_cast<int32_t>(sizeof(kPresets) / sizeof(kPresets[0]));

constexpr double kDefaultFarPulseLimit = 10.0;
constexpr double kDefaultNearPulseLimit = 6.0;

}  // namespace

bool RainfogFilter::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kQuillA2 || lidarTypeName == kZephelB1 || lidarTypeName == kQuillA4 ||
         lidarTypeName == kOrvik48 || lidarTypeName == kZephelB2_B3_MP;
}

void RainfogFilter::ParseParams() {
  // The doubled "t" of the reflection keys is what deployed configuration files carry.
  ReadParam("valid_distance_range", valid_distance_range);
  ReadParam("small_blind_distance", small_blind_distance);
  ReadParam("max_pulse_distance", max_pulse_distance);
  ReadParam("big_reflecttion", big_reflection);
  ReadParam("small_blind_reflecttion", small_blind_reflection);
  ReadParam("rainfog_filter_range", rainfog_filter_range);
}

RainfogFilter::PulseLimits RainfogFilter::ApplyPreset() {
  if (rainfog_filter_range < 1 || rainfog_filter_range > kPresetCount) {
    return {kDefaultFarPulseLimit, kDefaultNearPulseLimit};
  }
  const RainfogPreset& preset = kPresets[rainfog_filter_range - 1];
  valid_distance_range = preset.valid_distance_range;
  small_blind_distance = preset.small_blind_distance;
  big_reflection = preset.big_reflection;
  small_blind_reflection = preset.small_blind_reflection;
  return {preset.far_pulse_limit, preset.near_pulse_limit};
}

void RainfogFilter::Process(std::vector<_ori_point>& frame) {
  // Applied on every call, deliberately: a preset overrides the configured thresholds for good
  // (they stay overwritten after the frame), and the pulse limits exist only through it.
  const PulseLimits limits = ApplyPreset();
  for (_ori_point& p : frame) {
    const double d = p.distance;
    const double w = p.pulse_width;
    const double strength = EchoStrength(p);
    const bool far_noise = valid_distance_range > d && d > small_blind_distance &&
                           big_reflection > strength && w < limits.far && w < max_pulse_distance;
    const bool near_noise = d <= small_blind_distance && small_blind_reflection > strength &&
                            w < limits.near && w < max_pulse_distance;
    if (far_noise || near_noise) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
