#include "framework/RangeImage.h"

#include <algorithm>
#include <cmath>
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

// The image keeps its returns in single precision: a value beyond the float range (finite as a
// double) would become an infinity there, and an angle that is not a number has no column.
bool FitsFloat(double value) {
  return std::fabs(value) <= static_cast<double>(std::numeric_limits<float>::max());
}

double WrappedAngle(double degrees) {
  if (degrees >= 0.0 && degrees < kFullTurnDeg) {
    return degrees;
  }
  const double a = std::fmod(degrees, kFullTurnDeg);
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
  return p.distance > 0.0 && FitsFloat(p.distance) && FitsFloat(p.x) && FitsFloat(p.y) &&
         FitsFloat(p.z) && FitsFloat(p.hor_angle) && p.channel < kChannelLimit;
}

void RangeImage::Learn(const ImageReturn& r) {
  float& last = lastAngle_[r.channel];
  const double step = std::fabs(static_cast<double>(r.angle) - static_cast<double>(last));
  if (step > kSmallestStepDeg && step < kMaxColumnStepDeg) {
    const std::size_t bin = static_cast<std::size_t>(step / kStepBinDeg);
    ++stepVotes_[bin];
    stepSums_[bin] += step;
    ++stepSamples_;
  }
  last = r.angle;
  ChannelStats& s = stats_[r.channel];
  s.sinElevationSum += std::clamp(r.z / r.range, -1.0f, 1.0f);
  ++s.count;
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
  rows_.fill(RowStep{});
  const int count = static_cast<int>(order_.size());
  for (int r = 0; r < count; ++r) {
    const uint16_t channel = order_[static_cast<std::size_t>(r)];
    rank_[channel] = static_cast<int16_t>(r);
    for (int k = -kMaxRowSteps; k <= kMaxRowSteps; ++k) {
      if (r + k < 0 || r + k >= count) {
        continue;
      }
      const uint16_t other = order_[static_cast<std::size_t>(r + k)];
      const float rise = elevation_[other] - elevation_[channel];
      rows_[channel * kRowSpan + static_cast<uint32_t>(k + kMaxRowSteps)] =
          RowStep{other, rise * rise};
    }
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
  stepRadF_ = static_cast<float>(stepRad_);
  if (rows == rowCapacity_ && columns == columns_) {
    return false;
  }
  // The grid first: should it fail, the image keeps the shape its cells have.
  cells_.assign(static_cast<std::size_t>(rows) * columns, ImageCell{});
  rowCapacity_ = rows;
  columns_ = columns;
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
    ImageCell& cell = cells_[r.cell];
    if (cell.head < 0) {
      cell.nearest = r.range;
      cell.farthest = r.range;
    }
    cell.nearest = std::min(cell.nearest, r.range);
    cell.farthest = std::max(cell.farthest, r.range);
    r.next = cell.head;
    cell.head = static_cast<int32_t>(i);
  }
}

void RangeImage::Add(const std::vector<_ori_point>& points, std::size_t begin, std::size_t end,
                     bool wholeFrame) {
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
  for (std::size_t i = first; i < returns_.size(); ++i) {
    Learn(returns_[i]);
  }
  if (wholeFrame) {
    LearnedEnough();
  } else {
    AdoptNewChannels();
  }
  if (!Shape(channels)) {
    Index(first);
  }
  if (wholeFrame) {
    SortByCell();
  }
}

// A whole frame's returns are stored cell after cell, column after column, so that the
// returns a search reads next to each other lie next to each other in memory.
void RangeImage::SortByCell() {
  sorted_.clear();
  for (const ImageCell& cell : cells_) {
    for (int32_t n = cell.head; n >= 0; n = returns_[static_cast<std::size_t>(n)].next) {
      sorted_.push_back(returns_[static_cast<std::size_t>(n)]);
    }
  }
  for (std::size_t i = 0; i < sorted_.size(); ++i) {
    ImageReturn& r = sorted_[i];
    if (i == 0 || sorted_[i - 1].cell != r.cell) {
      cells_[r.cell].head = static_cast<int32_t>(i);
    }
    const bool more = i + 1 < sorted_.size() && sorted_[i + 1].cell == r.cell;
    r.next = more ? static_cast<int32_t>(i + 1) : -1;
  }
  returns_.swap(sorted_);
}

void RangeImage::EndFrame() {
  for (const ImageReturn& r : returns_) {
    cells_[r.cell].head = -1;
  }
  returns_.clear();
  LearnedEnough();
}

void RangeImage::Abandon() {
  returns_.clear();
  sorted_.clear();
  std::fill(cells_.begin(), cells_.end(), ImageCell{});
}

void RangeImage::Reset() {
  EndFrame();
  known_.fill(0);
  order_.clear();
  rank_.fill(-1);
  rows_.fill(RowStep{});
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
  if (columns == 0) {
    return 0;
  }
  column %= columns;
  return column < 0 ? column + columns : column;
}

int32_t RangeImage::CellHead(uint16_t channel, uint16_t column) const {
  if (channel >= rowCapacity_ || column >= columns_) {
    return -1;
  }
  return cells_[static_cast<std::size_t>(column) * rowCapacity_ + channel].head;
}

}  // namespace velmar
