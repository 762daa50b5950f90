#include "filters/HighrefFilterZepT.h"

#include <algorithm>
#include <cmath>

#include "framework/about.h"

namespace velmar {
namespace {

// The channels that share optics and so echo each other's strong returns.
constexpr int32_t
    kChannelGroups[HighrefFilterZepT::kGroupCount][HighrefFilterZepT::kChannelsPerGroup] = {
        {10, 25, 81}, {9, 26, 89},  {12, 27, 82}, {11, 28, 90}, {14, 29, 83}, {13, 30, 91},
        {16, 31, 84}, {15, 32, 92}, {18, 33, 85}, {17, 34, 93}, {20, 35, 86}, {19, 36, 94},
        {22, 37, 87}, {21, 38, 95}, {24, 39, 88}, {23, 40, 96}, {42, 65, 1},  {41, 73, 57},
        {44, 66, 2},  {43, 74, 58}, {46, 67, 3},  {45, 75, 59}, {48, 68, 4},  {47, 76, 60},
        {50, 69, 5},  {49, 77, 61}, {52, 70, 6},  {51, 78, 62}, {54, 71, 7},  {53, 79, 63},
        {56, 72, 8},  {55, 80, 64}};

}  // namespace

HighrefFilterZepT::HighrefFilterZepT(const std::string& name, const std::string& desc,
                                     LidarType type)
    : Algorithm(name, desc, type) {
  BuildChannelTable();
}

bool HighrefFilterZepT::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kZephelT;
}

void HighrefFilterZepT::ParseParams() {
  BuildChannelTable();
  ReadParam("noisePulseWidthThreshold", noisePulseWidthThreshold);
  ReadParam("highRefThreshold", highRefThreshold);
  ReadParam("distanceThreshold", distanceThreshold);
}

void HighrefFilterZepT::BuildChannelTable() {
  channel_to_group_.fill(-1);
  for (std::size_t group = 0; group < kGroupCount; ++group) {
    for (int32_t channel : kChannelGroups[group]) {
      channel_to_group_[static_cast<std::size_t>(channel)] = static_cast<int32_t>(group);
    }
  }
}

int32_t HighrefFilterZepT::GroupOf(uint32_t channel) const {
  return (channel < kChannelTableSize) ? channel_to_group_[channel] : -1;
}

void HighrefFilterZepT::Process(std::vector<_ori_point>& points) {
  CollectStrongReturns(points);
  for (_ori_point& p : points) {
    const int32_t group = GroupOf(p.channel);
    if (group >= 0 && IsGhost(p, group)) {
      p.distance = 0.0;
      p.echo = 1;
    }
  }
}

void HighrefFilterZepT::CollectStrongReturns(const std::vector<_ori_point>& points) {
  channel_has_strong_.fill(false);
  for (std::vector<float>& ranges : strong_ranges_) {
    ranges.clear();
  }
  for (const _ori_point& p : points) {
    const int32_t group = GroupOf(p.channel);
    if (group < 0 || !(p.pulse_width > static_cast<double>(highRefThreshold))) {
      continue;
    }
    channel_has_strong_[p.channel] = true;
    const float range = static_cast<float>(p.distance);
    // A NaN range matches no point and would break the ordering the search relies on.
    if (!std::isnan(range)) {
      strong_ranges_[static_cast<std::size_t>(group)].push_back(range);
    }
  }
  for (std::vector<float>& ranges : strong_ranges_) {
    std::sort(ranges.begin(), ranges.end());
  }
}

// A channel that had a strong return itself is never taken for a ghost, nor is a wide pulse.
// Otherwise the point is a ghost when some strong range of its group lies within the tolerance.
// d - v only falls as v grows, so the first sorted v with d - v <= tolerance is the one closest
// from above and alone decides whether any v lies within the tolerance.
bool HighrefFilterZepT::IsGhost(const _ori_point& point, int32_t group) const {
  if (channel_has_strong_[point.channel] ||
      point.pulse_width >= static_cast<double>(noisePulseWidthThreshold)) {
    return false;
  }
  const std::vector<float>& ranges = strong_ranges_[static_cast<std::size_t>(group)];
  const double d = point.distance;
  const double tolerance = static_cast<double>(distanceThreshold);
  const auto first_not_far_below = std::partition_point(ranges.begin(), ranges.end(), [&](float v) {
    return !(d - static_cast<double>(v) <= tolerance);
  });
  return first_not_far_below != ranges.end() &&
         std::fabs(d - static_cast<double>(*first_not_far_below)) <= tolerance;
}

}  // namespace velmar
