#include "filters/SunlightNoise.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "filters/SunlightCommon.h"
#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

// Echoes stronger than this are trusted without looking for support. These stay fixed: the
// configured reflect thresholds are recorded but deliberately do not steer the filter.
constexpr double kStrongSecondEcho = 100.0;
constexpr double kStrongFirstEcho = 400.0;

// The same channel one column earlier or later lies this many points away in the frame.
constexpr std::size_t kColumnStride = 128;

constexpr bool kWithPulseTest = true;
constexpr bool kWithoutPulseTest = false;

constexpr const char* kClassName = "SunlightNoise";
// A point's index neighbours lie within one column (128 positions); and the history holds no more
// frames than its window. A wider search reads nothing more, it only costs time per point. A
// window beyond its bound is read as a missing one: 0, with the range message.
constexpr ParamBound kWindowVBound{"filterWindowV", static_cast<uint32_t>(kColumnStride)};
constexpr ParamBound kWindowHBound{"filterWindowH",
                                   static_cast<uint32_t>(SunlightNoise::kWindowFrames)};

// Ranges and pulse widths are compared in whole units: the difference truncated toward zero,
// without sign. A difference that no 32-bit integer holds, or NaN, is beyond any tolerance.
double WholeUnitGap(double difference) {
  const double whole = std::trunc(difference);
  return HoldsWhole<int32_t>(whole) ? std::fabs(whole) : std::numeric_limits<double>::infinity();
}

}  // namespace

SunlightNoise::SunlightNoise(const std::string& name, const std::string& desc, LidarType type)
    : Algorithm(name, desc, type), skip_mirror_one(SkipsMirrorOne(type)), history_(kWindowFrames) {}

bool SunlightNoise::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo256 || lidarTypeName == kMarlo256_SmallBlind ||
         lidarTypeName == kMarlo128H;
}

void SunlightNoise::ParseParams() {
  // A missing key is recorded as 0 and read as 0, so the map shows what the filter ran with.
  left_reflect_threshold = ParamOrInsertZero("leftReflectThreshold");
  right_reflect_threshold = ParamOrInsertZero("rightReflectThreshold");
  valid_distance = ParamOrInsertZero("validDistance");
  filter_window_v = WithinBoundOr(kClassName, kWindowVBound,
                                  TruncateToInt32(ParamOrInsertZero(kWindowVBound.key)), 0);
  filter_window_h = WithinBoundOr(kClassName, kWindowHBound,
                                  TruncateToInt32(ParamOrInsertZero(kWindowHBound.key)), 0);
}

void SunlightNoise::ClearCache() {
  history_.Clear();
}

void SunlightNoise::Process(std::vector<_ori_point>& frame) {
  const std::size_t half = kWindowFrames / 2;
  const bool history_ready = history_.Size() + 1 > half;
  std::size_t centre = 0;
  if (history_ready) {
    // The incoming frame only needs to be kept, so the history takes its storage over, and the
    // frame from the middle of the window is copied out in its place (the frame already in the
    // middle stays at that age once the new one is appended).
    centre = half - 1;
    history_.PushTakingOver(frame, centre);
  } else {
    history_.PushCopy(frame);
    centre = history_.Size() - 1;
  }
  FilterFrame(frame, centre, history_ready);
  if (history_.Size() >= kWindowFrames) {
    history_.DropOldest();
  }
}

void SunlightNoise::FilterFrame(Frame& frame, std::size_t centre, bool history_ready) {
  for (std::size_t i = 0; i < frame.size(); ++i) {
    _ori_point& p = frame[i];
    if (skip_mirror_one && IsOnMirrorOne(p)) {
      continue;
    }
    const double d = p.distance;
    const double energy = d * p.intensity;
    if (energy <= energy_floor) {
      p.distance = 0.0;
      continue;
    }
    if (d <= 0.0 || !history_ready) {
      continue;
    }
    const bool strong =
        (energy > kStrongSecondEcho && p.echo == 1) || (energy > kStrongFirstEcho && p.echo == 0);
    if (strong || d >= valid_distance) {
      continue;
    }
    if (!HasEnoughSupport(frame, i, centre)) {
      p.distance = 0.0;
    }
  }
}

bool SunlightNoise::HasEnoughSupport(const Frame& frame, std::size_t index, std::size_t centre) {
  const _ori_point& p = frame[index];
  current_range_tolerance = p.distance * range_factor_a * range_factor_b;
  min_range_tolerance = std::min(min_range_tolerance, current_range_tolerance);

  Support support;
  SearchIndexNeighbours(frame, index, support);
  SearchColumnNeighbours(frame, index, support);
  SearchHistory(p, index, centre, support);
  return IsValidPoint(p, support);
}

void SunlightNoise::SearchIndexNeighbours(const Frame& frame, std::size_t index,
                                          Support& support) const {
  const _ori_point& p = frame[index];
  const int64_t at = static_cast<int64_t>(index);
  const int64_t last_index = static_cast<int64_t>(frame.size()) - 1;
  // The window reaches back `filter_window_v` points but forward one fewer.
  const int64_t first = std::max<int64_t>(at - filter_window_v, 0);
  const int64_t last = std::min<int64_t>(at + filter_window_v - 1, last_index);
  for (int64_t j = first; j <= last; ++j) {
    if (IsValidPoint(p, support)) {
      return;
    }
    if (j == at) {
      continue;
    }
    IsNearbyPoint(p, frame[static_cast<std::size_t>(j)], kWithPulseTest, support);
    if (j == at - 1) {
      AddMidpointSupport(frame, index, support);
    }
  }
}

void SunlightNoise::AddMidpointSupport(const Frame& frame, std::size_t index,
                                       Support& support) const {
  const _ori_point& p = frame[index];
  // A second echo lying between its two index neighbours continues a surface that the
  // neighbours themselves may not match closely.
  if (p.echo != 1 || index == 0 || index + 1 >= frame.size()) {
    return;
  }
  const float midpoint =
      static_cast<float>((frame[index + 1].distance + frame[index - 1].distance) * 0.5);
  if (WholeUnitGap(static_cast<double>(midpoint) - p.distance) < current_range_tolerance) {
    ++support.count;
  }
}

void SunlightNoise::SearchColumnNeighbours(const Frame& frame, std::size_t index,
                                           Support& support) const {
  const _ori_point& p = frame[index];
  if (index >= kColumnStride) {
    if (IsValidPoint(p, support)) {
      return;
    }
    IsNearbyPoint(p, frame[index - kColumnStride], kWithPulseTest, support);
  }
  if (index + kColumnStride < frame.size()) {
    if (IsValidPoint(p, support)) {
      return;
    }
    IsNearbyPoint(p, frame[index + kColumnStride], kWithPulseTest, support);
  }
}

void SunlightNoise::SearchHistory(const _ori_point& p, std::size_t index, std::size_t centre,
                                  Support& support) const {
  const int64_t middle = static_cast<int64_t>(centre);
  const int64_t first = std::max<int64_t>(middle - filter_window_h, 0);
  const int64_t last =
      std::min<int64_t>(middle + filter_window_h, static_cast<int64_t>(history_.Size()) - 1);
  // The centre frame itself is included: it is the unfiltered copy of the frame being judged.
  for (int64_t f = first; f <= last; ++f) {
    if (IsValidPoint(p, support)) {
      return;
    }
    const Frame& earlier = history_.At(static_cast<std::size_t>(f));
    if (earlier.size() > index) {
      IsNearbyPoint(p, earlier[index], kWithoutPulseTest, support);
    }
  }
}

bool SunlightNoise::IsValidPoint(const _ori_point& p, Support& support) const {
  if ((support.count > echo0_support && p.echo == 0) ||
      (support.count > echo1_support && p.echo == 1)) {
    support.done = true;
  }
  return support.done;
}

void SunlightNoise::IsNearbyPoint(const _ori_point& p, const _ori_point& q, bool pulse_test,
                                  Support& support) const {
  if (!(q.distance * q.pulse_width > energy_floor && q.distance > 0.0 && q.echo == p.echo)) {
    return;
  }
  const double range_gap = WholeUnitGap(q.distance - p.distance);
  if (range_gap < min_range_tolerance || range_gap < current_range_tolerance) {
    ++support.count;
    return;
  }
  if (pulse_test && WholeUnitGap(q.pulse_width - p.pulse_width) < pulse_tolerance) {
    ++support.count;
  }
}

}  // namespace velmar
