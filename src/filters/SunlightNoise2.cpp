#include "filters/SunlightNoise2.h"

#include <algorithm>
#include <cmath>

#include "filters/SunlightCommon.h"
#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr double kMaxRange = 10.0;        // sunlight speckle is only seen nearer than this
constexpr double kMaxSteadySpread = 0.2;  // neighbourhoods spread wider than this are suspect
constexpr double kMaxRangeJump = 0.1;     // a larger jump from the previous column is noise
constexpr std::size_t kNeighbourChannels = 3;
constexpr float kSpreadMaxStart = 0.0f;
constexpr float kSpreadMinStart = 200.0f;

}  // namespace

SunlightNoise2::SunlightNoise2(const std::string& name, const std::string& desc, LidarType type)
    : AlgoBase(name, desc, type), skip_mirror_one(SkipsMirrorOne(type)) {}

bool SunlightNoise2::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo256 || lidarTypeName == kMarlo256_SmallBlind;
}

void SunlightNoise2::ClearCache() {
  previous_.clear();
}

void SunlightNoise2::Process(std::vector<_ori_point>& frame) {
  if (previous_.empty()) {
    KeepRanges(frame, previous_);
    return;
  }
  KeepRanges(frame, current_);
  // Two columns of 64 share one echo index; a single column is continued by the previous frame.
  two_columns_ = frame.size() > kColumnPoints64 && frame[0].echo == frame[kColumnPoints64].echo;

  for (std::size_t i = 0; i < frame.size(); ++i) {
    _ori_point& p = frame[i];
    if (skip_mirror_one && IsOnMirrorOne(p)) {
      continue;
    }
    // Only this point is ever cleared, so its own range is still the unfiltered one. Near
    // returns are rare, so the range is tested before the neighbourhood is gathered.
    const double d = p.distance;
    if (!(0.0 < d && d < kMaxRange)) {
      continue;
    }
    const ColumnSpread around = GetPreColumAndCurColumRange(i);
    const bool unsettled =
        static_cast<double>(around.spread) > kMaxSteadySpread || around.count <= 1;
    if (!unsettled) {
      continue;
    }
    const double* before = GetPreColumRange(i);
    if (before != nullptr && std::fabs(*before - current_[i]) > kMaxRangeJump) {
      p.x = 0.0;
      p.y = 0.0;
      p.z = 0.0;
      p.distance = 0.0;
    }
  }
  previous_.swap(current_);
}

void SunlightNoise2::KeepRanges(const std::vector<_ori_point>& frame, std::vector<double>& ranges) {
  ranges.resize(frame.size());
  for (std::size_t i = 0; i < frame.size(); ++i) {
    ranges[i] = frame[i].distance;
  }
}

const double* SunlightNoise2::GetPreColumRange(std::size_t index) const {
  if (!two_columns_) {
    return index < previous_.size() ? &previous_[index] : nullptr;
  }
  if (index >= kColumnPoints64) {
    return &current_[index - kColumnPoints64];
  }
  const std::size_t in_previous = index + kColumnPoints64;
  return in_previous < previous_.size() ? &previous_[in_previous] : nullptr;
}

SunlightNoise2::ColumnSpread SunlightNoise2::GetPreColumAndCurColumRange(std::size_t index) const {
  float max = kSpreadMaxStart;
  float min = kSpreadMinStart;
  int32_t count = 0;
  const auto account = [&](double range) {
    if (range > 0.0) {
      const float narrowed = static_cast<float>(range);
      max = std::max(max, narrowed);
      min = std::min(min, narrowed);
      ++count;
    }
  };
  const std::size_t first = index >= kNeighbourChannels ? index - kNeighbourChannels : 0;
  const std::size_t last = std::min(index + kNeighbourChannels, current_.size() - 1);
  for (std::size_t j = first; j <= last; ++j) {
    account(current_[j]);
    if (const double* partner = GetPreColumRange(j)) {
      account(*partner);
    }
  }
  return {std::fabs(max - min), count};
}

}  // namespace velmar
