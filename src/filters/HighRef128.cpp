#include "filters/HighRef128.h"

#include <cmath>

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr std::size_t kGroupPoints = 32;
// Inside a group the ghost of position i lands 16 positions further for the first half and 12
// positions back for the second half; position 0 casts none.
constexpr std::size_t kForwardPartner = 16;
constexpr std::size_t kBackwardPartner = 12;
constexpr float kGhostTolerance = 2.0f;

uint32_t GroupsOfPacket(std::size_t points) {
  switch (points) {
    case kPacketPoints96:
      return 3;
    case kPacketPoints128:
      return 4;
    case kPacketPoints192:
      return 6;
    default:
      return 0;
  }
}

}  // namespace

bool HighRef128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128;
}

void HighRef128::ParseParams() {
  ReadParam("highreferror_128_pulse", pulse_threshold);
  ReadParam("highreferror_128_distance", ghost_distance);
}

void HighRef128::Process(std::vector<_ori_point>& frame) {
  const uint32_t packet_groups = GroupsOfPacket(frame.size());
  if (packet_groups != 0) {
    group_count = packet_groups;
  }
  if (group_count == 0) {
    return;
  }
  // A frame of another size is read with the last known packet shape; one too short for it is
  // left alone rather than half filtered.
  const std::size_t covered = static_cast<std::size_t>(group_count) * kGroupPoints;
  if (frame.size() < covered) {
    return;
  }
  for (std::size_t start = 0; start < covered; start += kGroupPoints) {
    FilterGroup(frame, start);
  }
}

void HighRef128::FilterGroup(std::vector<_ori_point>& frame, std::size_t group_start) const {
  const double strong_pulse = pulse_threshold;
  for (std::size_t i = 1; i < kGroupPoints; ++i) {
    const _ori_point& strong = frame[group_start + i];
    if (!(strong.pulse_width > strong_pulse)) {
      continue;
    }
    const std::size_t partner_pos =
        i < kForwardPartner ? i + kForwardPartner : i - kBackwardPartner;
    _ori_point& partner = frame[group_start + partner_pos];
    const float gap = static_cast<float>(partner.distance - strong.distance);
    if (std::fabs(gap - ghost_distance) < kGhostTolerance) {
      partner.distance = 0.0;
    }
  }
}

}  // namespace velmar
