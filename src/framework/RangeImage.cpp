#include "framework/RangeImage.h"

#include <algorithm>
#include <limits>

#include "framework/AlgoCommon.h"

namespace velmar {
namespace {

constexpr double kFullTurnDeg = 360.0;
constexpr double kStartStepDeg = 0.2;
constexpr double kStepBinDeg = 0.001;
// Angles between consecutive returns of a channel below this are repeats of one direction
// (second echoes), not a column step.
constexpr double kSmallestStepDeg = 0.005;
// A step is trusted once this many consecutive pairs voted.
constexpr uint32_t kStepQuorum = 32;
constexpr float kUnseen = std::numeric_limits<float>::quiet_NaN();

double WrappedAngle(double degrees) {
  double a = std::fmod(degrees, kFullTurnDeg);
  return a < 0.0 ? a + kFullTurnDeg : a;
}

}  // namespace

RangeImage::RangeImage(double columnStepDeg)
    : fixedStepDeg_(columnStepDeg), stepDeg_(columnStepDeg > 0.0 ? columnStepDeg : kStartStepDeg) {
  order_.reserve(kChannelLimit);
  lastAngle_.fill(kUnseen);
  rank_.fill(-1);
}

bool RangeImage::Usable(const _ori_point& p) {
  return p.distance > 0.0 && std::isfinite(p.distance) && std::isfinite(p.x) &&
         std::isfinite(p.y) && std::isfinite(p.z) && std::isfinite(p.hor_angle) &&
         p.channel < kChannelLimit;
}

void RangeImage::Learn(const _ori_point& p) {
  if (p.channel >= kChannelLimit || !std::isfinite(p.hor_angle)) {
    return;
  }
  float& last = lastAngle_[p.channel];
  const double step = std::fabs(p.hor_angle - static_cast<double>(last));
  if (step > kSmallestStepDeg && step < kMaxColumnStepDeg) {
    const std::size_t bin = static_cast<std::size_t>(step / kStepBinDeg);
    ++stepVotes_[bin];
    stepSums_[bin] += step;
    ++stepSamples_;
  }
  last = static_cast<float>(p.hor_angle);
  if (Usable(p)) {
    ChannelStats& s = stats_[p.channel];
    s.sinElevationSum += std::clamp(p.z / p.distance, -1.0, 1.0);
    ++s.count;
  }
}

void RangeImage::LearnedEnough() {
  for (uint32_t c = 0; c < kChannelLimit; ++c) {
    if (stats_[c].count > 0) {
      elevation_[c] = static_cast<float>(std::asin(stats_[c].sinElevationSum / stats_[c].count));
      known_[c] = 1;
      orderStale_ = true;
    }
  }
  if (fixedStepDeg_ <= 0.0 && stepSamples_ >= kStepQuorum) {
    const auto mode = std::max_element(stepVotes_.begin(), stepVotes_.end());
    const std::size_t bin = static_cast<std::size_t>(mode - stepVotes_.begin());
    stepDeg_ = stepSums_[bin] / *mode;
  }
  stats_.fill(ChannelStats{});
  lastAngle_.fill(kUnseen);
  stepVotes_.fill(0);
  stepSums_.fill(0.0);
  stepSamples_ = 0;
  if (orderStale_) {
    RebuildOrder();
  }
}

void RangeImage::AdoptNewChannels() {
  for (uint32_t c = 0; c < kChannelLimit; ++c) {
    if (!known_[c] && stats_[c].count > 0) {
      elevation_[c] = static_cast<float>(std::asin(stats_[c].sinElevationSum / stats_[c].count));
      known_[c] = 1;
      orderStale_ = true;
    }
  }
  if (orderStale_) {
    RebuildOrder();
  }
}

void RangeImage::RebuildOrder() {
  order_.clear();
  for (uint32_t c = 0; c < kChannelLimit; ++c) {
    if (known_[c]) {
      order_.push_back(static_cast<uint16_t>(c));
    }
  }
  // Highest first; equal elevations keep channel order, so the result never depends on the sort.
  std::sort(order_.begin(), order_.end(), [this](uint16_t a, uint16_t b) {
    return elevation_[a] > elevation_[b] || (elevation_[a] == elevation_[b] && a < b);
  });
  rank_.fill(-1);
  for (std::size_t r = 0; r < order_.size(); ++r) {
    rank_[order_[r]] = static_cast<int16_t>(r);
  }
  orderStale_ = false;
}

bool RangeImage::Shape(uint32_t channels) {
  const uint32_t rows = std::max(rowCapacity_, channels);
  // Whole columns over the turn, so that the column of an angle is a plain product; rounded down,
  // so that no column of the grid falls between two of the sensor's and breaks a surface apart
  // (two of the sensor's columns sharing one of the grid's now and then does no harm).
  uint32_t columns = std::max(1u, static_cast<uint32_t>(std::floor(kFullTurnDeg / stepDeg_)));
  if (rows > 0 && static_cast<std::size_t>(columns) * rows > kMaxCells) {
    columns = static_cast<uint32_t>(kMaxCells / rows);
  }
  stepRad_ = kFullTurnDeg / columns * kDegToRad;
  if (rows == rowCapacity_ && columns == columns_) {
    return false;
  }
  rowCapacity_ = rows;
  columns_ = columns;
  heads_.assign(static_cast<std::size_t>(rows) * columns, -1);
  Index(0);
  return true;
}

void RangeImage::Index(std::size_t first) {
  const double columnsPerDeg = columns_ / kFullTurnDeg;
  for (std::size_t i = first; i < returns_.size(); ++i) {
    ImageReturn& r = returns_[i];
    uint32_t column = static_cast<uint32_t>(WrappedAngle(r.angle) * columnsPerDeg);
    column = std::min(column, columns_ - 1);
    r.column = static_cast<uint16_t>(column);
    r.cell = column * rowCapacity_ + r.channel;
    r.next = heads_[r.cell];
    heads_[r.cell] = static_cast<int32_t>(i);
  }
}

void RangeImage::Add(const std::vector<_ori_point>& points, std::size_t begin, std::size_t end,
                     bool wholeFrame) {
  if (wholeFrame) {
    for (std::size_t i = begin; i < end; ++i) {
      Learn(points[i]);
    }
    LearnedEnough();
  } else {
    for (std::size_t i = begin; i < end; ++i) {
      Learn(points[i]);
    }
    AdoptNewChannels();
  }
  const std::size_t first = returns_.size();
  uint32_t channels = 0;
  constexpr double kSecondsPerTick = 1e-9;
  for (std::size_t i = begin; i < end; ++i) {
    const _ori_point& p = points[i];
    if (!Usable(p)) {
      continue;
    }
    ImageReturn r;
    r.x = static_cast<float>(p.x);
    r.y = static_cast<float>(p.y);
    r.z = static_cast<float>(p.z);
    r.range = static_cast<float>(p.distance);
    r.intensity = static_cast<float>(p.intensity);
    r.echo = static_cast<float>(EchoStrength(p));
    r.angle = static_cast<float>(p.hor_angle);
    if (returns_.empty()) {
      firstTimestamp_ = p.timestamp;
    }
    // Signed: a host may stamp points in any order, or not at all.
    r.time = static_cast<float>(
        static_cast<double>(static_cast<int64_t>(p.timestamp - firstTimestamp_)) * kSecondsPerTick);
    r.index = static_cast<uint32_t>(i);
    r.next = -1;
    r.cell = 0;
    r.channel = static_cast<uint16_t>(p.channel);
    r.column = 0;
    returns_.push_back(r);
    channels = std::max(channels, p.channel + 1);
  }
  if (!Shape(channels)) {
    Index(first);
  }
}

void RangeImage::EndFrame() {
  for (const ImageReturn& r : returns_) {
    heads_[r.cell] = -1;
  }
  returns_.clear();
  LearnedEnough();
}

void RangeImage::Reset() {
  EndFrame();
  known_.fill(0);
  order_.clear();
  rank_.fill(-1);
  stepDeg_ = fixedStepDeg_ > 0.0 ? fixedStepDeg_ : kStartStepDeg;
}

int32_t RangeImage::ChannelAt(uint16_t channel, int rowSteps) const {
  const int rank = rank_[channel] + rowSteps;
  if (rank_[channel] < 0 || rank < 0 || rank >= static_cast<int>(order_.size())) {
    return -1;
  }
  return order_[static_cast<std::size_t>(rank)];
}

int32_t RangeImage::WrappedColumn(int32_t column) const {
  const int32_t columns = static_cast<int32_t>(columns_);
  column %= columns;
  return column < 0 ? column + columns : column;
}

int32_t RangeImage::CellHead(uint16_t channel, uint16_t column) const {
  if (channel >= rowCapacity_ || column >= columns_) {
    return -1;
  }
  return heads_[static_cast<std::size_t>(column) * rowCapacity_ + channel];
}

int32_t RangeImage::Neighbour(uint16_t channel, uint16_t column, int rowSteps, int columnSteps,
                              float& separationRad) const {
  const int32_t other = rowSteps == 0 ? channel : ChannelAt(channel, rowSteps);
  if (other < 0 || static_cast<uint32_t>(other) >= rowCapacity_) {
    return -1;
  }
  const double rise = static_cast<double>(elevation_[other]) - elevation_[channel];
  const double across = columnSteps * stepRad_;
  separationRad = static_cast<float>(std::max(std::hypot(rise, across), stepRad_));
  const int32_t target = WrappedColumn(static_cast<int32_t>(column) + columnSteps);
  return heads_[static_cast<std::size_t>(target) * rowCapacity_ + static_cast<uint32_t>(other)];
}

}  // namespace velmar
