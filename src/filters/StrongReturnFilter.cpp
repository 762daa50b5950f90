#include "filters/StrongReturnFilter.h"

#include <algorithm>
#include <cmath>

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr double kMaxPulseWidth = 1000.0;
constexpr double kMaxRangeTolerance = 10.0;
// The ghost rule of the mirror models: two channels above and two below.
constexpr int32_t kPartnerChannelStep = 2;
constexpr double kFullTurnDeg = 360.0;
// Smallest and largest packets: they bound how many packets the held strong returns span.
constexpr int64_t kSmallestPacket = static_cast<int64_t>(kPacketPoints96);
constexpr int64_t kLargestPacket = static_cast<int64_t>(kPacketPoints192);
// Largest host vector (in points) whose buffer a held packet trades places with.
constexpr std::size_t kMaxTradedPoints = 16 * kPacketPoints192;

int64_t CeilDiv(int64_t a, int64_t b) {
  return (a + b - 1) / b;
}

}  // namespace

StrongReturnFilter::StrongReturnFilter(const std::string& name, const std::string& desc,
                                       LidarType type, const char* className, Window window,
                                       const Defaults& defaults)
    : Algorithm(name, desc, type),
      strongPulseWidth(defaults.strongPulseWidth),
      echoRatio(defaults.echoRatio),
      intensityRatio(defaults.intensityRatio),
      rangeTolerance(defaults.rangeTolerance),
      channelReach(defaults.channelReach),
      columnReach(defaults.columnReach),
      class_name_(className),
      window_kind_(window),
      defaults_(defaults),
      layout_(ColumnLayout::Of(type)) {
  BuildWindow();
  SizeBuffers();
}

bool StrongReturnFilter::IsTwoColumnMirrorModel(const std::string& lidarTypeName) {
  return lidarTypeName == kZephelB1 || lidarTypeName == kZephelB2_B3_MP ||
         lidarTypeName == kZephelB2_64 || lidarTypeName == kQuillA4;
}

void StrongReturnFilter::ReadBounded(const char* key, double& field, double low, double high,
                                     double fallback) {
  if (ReadParam(key, field) && !(field >= low && field <= high)) {
    field = fallback;
    PrintParamOutOfRange(class_name_, key);
  }
}

void StrongReturnFilter::ReadBounded(const char* key, int32_t& field, int32_t low, int32_t high,
                                     int32_t fallback) {
  double value = 0.0;
  if (!ReadParam(key, value)) {
    return;
  }
  field = TruncateToInt32(value);
  if (!(value >= low && value < high + 1.0)) {
    field = fallback;
    PrintParamOutOfRange(class_name_, key);
  }
}

void StrongReturnFilter::ParseParams() {
  ReadBounded("strongPulseWidth", strongPulseWidth, 0.0, kMaxPulseWidth,
              defaults_.strongPulseWidth);
  ReadBounded("echoRatio", echoRatio, 0.0, 1.0, defaults_.echoRatio);
  ReadBounded("intensityRatio", intensityRatio, 0.0, 1.0, defaults_.intensityRatio);
  ReadBounded("rangeTolerance", rangeTolerance, 0.0, kMaxRangeTolerance, defaults_.rangeTolerance);
  if (window_kind_ == Window::kColumn || window_kind_ == Window::kHalo) {
    ReadBounded("channelReach", channelReach, 0, kMaxChannelReach, defaults_.channelReach);
  }
  if (window_kind_ == Window::kSweep || window_kind_ == Window::kHalo) {
    ReadBounded("columnReach", columnReach, 0, kMaxColumnReach, defaults_.columnReach);
  }
  ReadParam("debug_using_echo", debug_using_echo);
  BuildWindow();
  SizeBuffers();
}

void StrongReturnFilter::BuildWindow() {
  window_.clear();
  const int32_t columns = window_kind_ == Window::kSweep || window_kind_ == Window::kHalo
                              ? std::clamp(columnReach, 0, kMaxColumnReach)
                              : 0;
  const int32_t ranks = window_kind_ == Window::kColumn || window_kind_ == Window::kHalo
                            ? std::clamp(channelReach, 0, kMaxChannelReach)
                            : 0;
  for (int32_t dc = -columns; dc <= columns; ++dc) {
    for (int32_t dr = -ranks; dr <= ranks; ++dr) {
      if (dc != 0 || dr != 0) {
        window_.push_back({dc, dr});
      }
    }
  }
  if (window_kind_ == Window::kPartnerChannels) {
    window_ = {{0, -kPartnerChannelStep}, {0, kPartnerChannelStep}};
  }
  window_columns_ = columns;
}

// A window that reaches `columns` columns ahead needs that many columns of later packets, and a
// whole further column when packets cut columns apart. Strong returns are kept from
// (columns + 2) columns before the oldest held packet on.
StrongReturnFilter::Capacities StrongReturnFilter::CapacitiesFor(const ColumnLayout& layout,
                                                                 int64_t columns) {
  const int64_t column = layout.columnPoints;
  const int64_t packet = layout.packetPoints;
  const int64_t ahead = columns * column + (packet % column == 0 ? 0 : column - 1);
  const int64_t delay = CeilDiv(ahead, packet);
  const int64_t behind = CeilDiv((columns + 2) * column, kSmallestPacket) + 1;
  return {static_cast<uint32_t>(delay),
          static_cast<std::size_t>((delay + 1 + behind) * kLargestPacket)};
}

std::size_t StrongReturnFilter::BufferBytes(LidarType type, const NumberParams& params,
                                            Window window, const Defaults& defaults) {
  int64_t columns = 0;
  int64_t ranks = 0;
  if (window == Window::kSweep || window == Window::kHalo) {
    columns = defaults.columnReach;
    const auto it = params.find("columnReach");
    if (it != params.end() && it->second >= 0.0 && it->second < kMaxColumnReach + 1.0) {
      columns = std::max<int64_t>(columns, static_cast<int64_t>(it->second));
    }
  }
  if (window == Window::kColumn || window == Window::kHalo) {
    ranks = kMaxChannelReach;
  }
  // The window may have grown by doubling, and the constructor's buffers stay when parameters
  // shrink them.
  std::size_t bytes =
      2 * static_cast<std::size_t>((2 * columns + 1) * (2 * ranks + 1) + 2) * sizeof(Offset);
  const ColumnLayout* layout = ColumnLayout::Of(type);
  if (layout == nullptr) {
    return bytes;
  }
  const Capacities capacities = CapacitiesFor(*layout, columns);
  bytes += (capacities.delayPackets + 1) * kPacketPoints192 * sizeof(_ori_point);
  bytes += capacities.delayPackets * (sizeof(std::vector<_ori_point>) + sizeof(int64_t));
  bytes += capacities.strongReturns * sizeof(StrongReturn);
  return bytes;
}

void StrongReturnFilter::SizeBuffers() {
  ClearCache();
  delay_packets_ = 0;
  if (layout_ == nullptr) {
    return;
  }
  const Capacities capacities = CapacitiesFor(*layout_, window_columns_);
  delay_packets_ = capacities.delayPackets;
  held_.resize(delay_packets_);
  held_start_.assign(delay_packets_, 0);
  for (std::vector<_ori_point>& slot : held_) {
    slot.reserve(kPacketPoints192);
  }
  handover_.reserve(kPacketPoints192);
  strong_.reserve(capacities.strongReturns);
}

void StrongReturnFilter::ClearCache() {
  held_count_ = 0;
  oldest_ = 0;
  next_position_ = 0;
  strong_.clear();
}

void StrongReturnFilter::Process(std::vector<_ori_point>& points) {
  if (layout_ == nullptr || points.empty()) {
    return;
  }
  if (delay_packets_ > 0 && IsPacketSize(points.size())) {
    ProcessDelayed(points);
  } else {
    JudgeInPlace(points);
  }
}

bool StrongReturnFilter::ReadStrong(const _ori_point& point, int64_t position,
                                    StrongReturn& strong) const {
  const uint32_t index = point.channel - layout_->firstChannel;
  if (!(point.pulse_width > strongPulseWidth) || !(point.distance > 0.0) ||
      !std::isfinite(point.distance) || index >= layout_->columnPoints) {
    return false;
  }
  strong = {position - index, layout_->rankOfIndex[index], point.hor_angle,
            point.distance,   EchoStrength(point),         point.intensity};
  return true;
}

void StrongReturnFilter::JudgeInPlace(std::vector<_ori_point>& frame) {
  StrongReturn strong;
  for (std::size_t i = 0; i < frame.size(); ++i) {
    if (!ReadStrong(frame[i], static_cast<int64_t>(i), strong)) {
      continue;
    }
    if (debug_using_echo >= 0) {
      frame[i].label = debug_using_echo + 1;
    }
    RemoveLeaks(strong, frame, 0);
  }
}

// The packet handed back is judged once every packet its windows reach has been seen. A packet
// handed back has the host's vector's size of that packet, so a change of packet size travels
// with the packets.
void StrongReturnFilter::ProcessDelayed(std::vector<_ori_point>& packet) {
  const int64_t start = next_position_;
  next_position_ += static_cast<int64_t>(packet.size());
  StrongReturn strong;
  for (std::size_t i = 0; i < packet.size(); ++i) {
    if (ReadStrong(packet[i], start + static_cast<int64_t>(i), strong)) {
      strong_.push_back(strong);
    }
  }
  if (held_count_ < delay_packets_) {
    const uint32_t slot = (oldest_ + held_count_) % delay_packets_;
    held_[slot].assign(packet.begin(), packet.end());
    held_start_[slot] = start;
    ++held_count_;
    return;
  }
  std::vector<_ori_point>& released = held_[oldest_];
  JudgeReleased(released, held_start_[oldest_]);
  Exchange(packet, released);
  held_start_[oldest_] = start;
  oldest_ = (oldest_ + 1) % delay_packets_;
  // Strong returns whose windows end before the next packet to hand back are done with.
  const int64_t next_release = held_start_[oldest_];
  const int64_t reach = (window_columns_ + 1) * static_cast<int64_t>(layout_->columnPoints);
  const auto done = std::find_if(strong_.begin(), strong_.end(), [&](const StrongReturn& s) {
    return s.columnStart + reach > next_release;
  });
  strong_.erase(strong_.begin(), done);
}

// Copying packets in and out would cost twice a copy of the frame, more than the judging itself,
// so the host's vector and the held one trade buffers. The host's vector never loses capacity by
// that, so a host that refills it allocates no more than before: a held buffer smaller than the
// host's grows to its size once (up to kMaxTradedPoints), and a host that reserved more than that
// gets the points copied instead.
void StrongReturnFilter::Exchange(std::vector<_ori_point>& packet,
                                  std::vector<_ori_point>& released) {
  if (released.capacity() < packet.capacity() && packet.capacity() <= kMaxTradedPoints) {
    released.reserve(packet.capacity());
  }
  if (released.capacity() >= packet.capacity()) {
    packet.swap(released);
    return;
  }
  handover_.assign(packet.begin(), packet.end());
  packet.assign(released.begin(), released.end());
  released.swap(handover_);
}

void StrongReturnFilter::JudgeReleased(std::vector<_ori_point>& packet, int64_t start) {
  const int64_t column = layout_->columnPoints;
  const int64_t reach = window_columns_ * column;
  const int64_t end = start + static_cast<int64_t>(packet.size());
  for (const StrongReturn& strong : strong_) {
    if (strong.columnStart + column + reach <= start || strong.columnStart - reach >= end) {
      continue;
    }
    const int64_t own = strong.columnStart + layout_->indexOfRank[strong.rank] - start;
    if (debug_using_echo >= 0 && own >= 0 && own < end - start) {
      packet[static_cast<std::size_t>(own)].label = debug_using_echo + 1;
    }
    RemoveLeaks(strong, packet, start);
  }
}

void StrongReturnFilter::RemoveLeaks(const StrongReturn& strong, std::vector<_ori_point>& unit,
                                     int64_t start) const {
  const int64_t column = layout_->columnPoints;
  const int64_t size = static_cast<int64_t>(unit.size());
  for (const Offset& offset : window_) {
    const int64_t rank = static_cast<int64_t>(strong.rank) + offset.ranks;
    if (rank < 0 || rank >= column) {
      continue;
    }
    const uint32_t index = layout_->indexOfRank[static_cast<std::size_t>(rank)];
    const int64_t at = strong.columnStart + offset.columns * column + index - start;
    if (at < 0 || at >= size) {
      continue;
    }
    _ori_point& point = unit[static_cast<std::size_t>(at)];
    // The range test settles most cells; the angle test comes after it.
    if (IsLeak(strong, point) && InCell(strong, point, offset.columns, index) && MayRemove(point)) {
      point.distance = 0.0;
      if (debug_using_echo >= 0) {
        point.label = debug_using_echo;
      }
    }
  }
}

// The point found by counting must be the cell meant: the channel expected, and in the same
// column, or no more than the columns counted away (and not in the same column). This keeps
// neighbours out that a repeated or reordered packet, a new sweep or a malformed frame would
// otherwise bring in.
bool StrongReturnFilter::InCell(const StrongReturn& strong, const _ori_point& point,
                                int32_t columns, uint32_t index) const {
  if (point.channel != layout_->firstChannel + index) {
    return false;
  }
  const double step = layout_->columnStepDeg;
  const double apart = std::fabs(std::remainder(point.hor_angle - strong.angle, kFullTurnDeg));
  if (columns == 0) {
    return apart <= 0.5 * step;
  }
  return apart >= 0.5 * step && apart <= (std::abs(columns) + 0.5) * step;
}

// A leak is a return at the strong return's range whose echo and intensity are small shares of
// its own; a strong return itself never is one.
bool StrongReturnFilter::IsLeak(const StrongReturn& strong, const _ori_point& point) const {
  return point.distance > 0.0 && std::fabs(point.distance - strong.range) <= rangeTolerance &&
         !(point.pulse_width > strongPulseWidth) &&
         EchoStrength(point) <= echoRatio * strong.echo &&
         point.intensity <= intensityRatio * strong.intensity;
}

}  // namespace velmar
