#include "filters/CloseRangeNoiseFilter.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

// Packets taken before this angle come from the part of the sweep that never sees the near
// housing reflections this filter targets.
constexpr double kMinStartAngle = 30.0;

constexpr double kColumnChannels = 64.0;
// Inner channels up to this one guard the low edge of their column.
constexpr double kLowEdgeLastMarker = 23.0;
// Inner channels from this one on guard the high edge of their column.
constexpr double kHighEdgeFirstMarker = 42.0;

}  // namespace

bool CloseRangeNoiseFilter::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kQuillA4 || lidarTypeName == kZephelB2_B3_MP;
}

void CloseRangeNoiseFilter::ParseParams() {
  ReadParam("filter_channel_range", filter_channel_range);
  ReadParam("filter_farthest_distance", filter_farthest_distance);
  ReadParam("filter_closest_distance", filter_closest_distance);
  ReadParam("filter_distance_threshold", filter_distance_threshold);
}

void CloseRangeNoiseFilter::Process(std::vector<_ori_point>& frame) {
  if (frame.size() < kPacketPoints128 || !(frame[0].hor_angle >= kMinStartAngle) ||
      !(frame[kColumnPoints64].hor_angle >= kMinStartAngle)) {
    return;
  }
  FilterColumn(frame, 0);
  FilterColumn(frame, kColumnPoints64);
}

bool CloseRangeNoiseFilter::IsMarkingRange(double distance) const {
  return filter_closest_distance <= distance && distance <= filter_farthest_distance;
}

void CloseRangeNoiseFilter::DeleteIfFarBehind(_ori_point& edge, const _ori_point& marker) const {
  if (edge.distance - marker.distance > filter_distance_threshold) {
    edge.distance = 0.0;
  }
}

void CloseRangeNoiseFilter::FilterColumn(std::vector<_ori_point>& frame, std::size_t base) const {
  const double range = filter_channel_range;
  for (std::size_t k = base; k < base + kColumnPoints64; ++k) {
    const _ori_point& marker = frame[k];
    // Channels arrive unsigned but are judged as signed numbers, so a wrapped value stays out.
    const double channel = static_cast<double>(static_cast<int32_t>(marker.channel));
    if (!(range + 1.0 <= channel && channel <= kColumnChannels - range)) {
      continue;
    }
    if (channel > range && channel <= kLowEdgeLastMarker) {
      if (IsMarkingRange(marker.distance) && range > 0.0) {
        // The marker lies above the guarded positions (channel > range, at most 23), so the walk
        // stays inside the column; the bound only documents that.
        for (std::size_t m = 0; m < kColumnPoints64 && static_cast<double>(m) < range; ++m) {
          DeleteIfFarBehind(frame[base + m], marker);
        }
      }
      continue;
    }
    if (channel >= kHighEdgeFirstMarker && channel < kColumnChannels - range &&
        IsMarkingRange(marker.distance)) {
      // channel >= 42 and channel < 64 - range put the first guarded position in [42, 63].
      const int32_t first = TruncateToInt32(kColumnChannels - range);
      if (first < static_cast<int32_t>(kColumnPoints64)) {
        for (std::size_t m = static_cast<std::size_t>(first); m < kColumnPoints64; ++m) {
          DeleteIfFarBehind(frame[base + m], marker);
        }
      }
      // Only the first near object on a high channel acts; the rest of the column is left as is.
      return;
    }
  }
}

}  // namespace velmar
