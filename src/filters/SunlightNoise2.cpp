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
    : Algorithm(name, desc, type), skip_mirror_one(SkipsMirrorOne(type)) {}

bool SunlightNoise2::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo256 || lidarTypeName == kMarlo256_SmallBlind;
}

void SunlightNoise2::ClearCache() {
  previous_.clear();
}

void SunlightNoise2::Process(std::vector<_ori_point>& frame) {
  if (previous_.empty()) {
    CopyRanges(frame, previous_);
    return;
  }
  // Two columns of 64 share one echo index; a single column is continued by the previous frame.
  two_columns_ = frame.size() > kColumnPoints64 && frame[0].echo == frame[kColumnPoints64].echo;
  GatherRanges(frame);

  // The frame itself is only read again where a point may have to be cleared.
  for (std::size_t i = 0; i < current_.size(); ++i) {
    if (skip_mirror_one && IsOnMirrorOne(frame[i])) {
      continue;
    }
    // The range is tested before the neighbourhood is combined, which it often spares.
    const double d = current_[i];
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
    if (before != nullptr && std::fabs(*before - d) > kMaxRangeJump) {
      _ori_point& p = frame[i];
      p.x = 0.0;
      p.y = 0.0;
      p.z = 0.0;
      p.distance = 0.0;
    }
  }
  previous_.swap(current_);
}

void SunlightNoise2::CopyRanges(const std::vector<_ori_point>& frame, std::vector<double>& ranges) {
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

// Keeps the frame's ranges and, for every place, the valid ranges of the point and of its
// previous-column partner, narrowed: a neighbourhood then combines seven places instead of
// re-reading and re-narrowing fourteen ranges.
void SunlightNoise2::GatherRanges(const std::vector<_ori_point>& frame) {
  current_.resize(frame.size());
  bands_.resize(frame.size());
  for (std::size_t j = 0; j < frame.size(); ++j) {
    // A partner in this frame lies 64 places back, so it is already kept.
    current_[j] = frame[j].distance;
    RangeBand band{kSpreadMinStart, kSpreadMaxStart, 0};
    const auto account = [&band](double range) {
      if (range > 0.0) {
        const float narrowed = static_cast<float>(range);
        band.high = std::max(band.high, narrowed);
        band.low = std::min(band.low, narrowed);
        ++band.count;
      }
    };
    account(current_[j]);
    if (const double* partner = GetPreColumRange(j)) {
      account(*partner);
    }
    bands_[j] = band;
  }
}

// Ranges are positive, never NaN, so the order in which the bands are combined cannot change
// the extremes.
SunlightNoise2::ColumnSpread SunlightNoise2::GetPreColumAndCurColumRange(std::size_t index) const {
  float max = kSpreadMaxStart;
  float min = kSpreadMinStart;
  int32_t count = 0;
  const std::size_t first = index >= kNeighbourChannels ? index - kNeighbourChannels : 0;
  const std::size_t last = std::min(index + kNeighbourChannels, bands_.size() - 1);
  for (std::size_t j = first; j <= last; ++j) {
    const RangeBand& band = bands_[j];
    max = std::max(max, band.high);
    min = std::min(min, band.low);
    count += band.count;
  }
  return {std::fabs(max - min), count};
}

}  // namespace velmar
