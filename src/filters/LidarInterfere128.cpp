#include "filters/LidarInterfere128.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr double kChannelOrigin = 0.0;
constexpr double kChannelStep = 1.0;
constexpr std::size_t kRingSlots = LidarInterfere128::kHistoryFrames + 1;

// The floor of `value` as a grid coordinate, or -1 when it falls outside [0, limit) or is NaN.
int32_t GridCoordinate(double value, int32_t limit) {
  const double index = std::floor(value);
  if (!(index >= 0.0 && index < limit)) {
    return -1;
  }
  return static_cast<int32_t>(index);
}

}  // namespace

std::size_t LidarInterfere128::TableBytes(LidarType /*type*/, const NumberParams& /*params*/) {
  return kRingSlots * kGridCells * sizeof(float);
}

LidarInterfere128::LidarInterfere128(const std::string& name, const std::string& desc,
                                     LidarType type)
    : Algorithm(name, desc, type), grids_(kRingSlots * kGridCells, 0.0f) {}

bool LidarInterfere128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128;
}

void LidarInterfere128::ParseParams() {
  ReadParam("presencepoint", presencepoint);
  ReadParam("nearpoint", nearpoint);
  ReadParam("distance_thred", distance_thred);
}

// The history describes the scene in front of the sensor, not the host's stream, so a clear keeps
// it and the warm-up is not repeated: restarting would let interference through for six frames.
void LidarInterfere128::ClearCache() {}

bool LidarInterfere128::CellOf(const _ori_point& p, Cell& cell) {
  const double channel = static_cast<int32_t>(p.channel);
  cell.column =
      GridCoordinate((p.hor_angle - kSweepGridFirstAngle) / kSweepGridColumnStep, kColumns);
  cell.row = GridCoordinate((channel - kChannelOrigin) / kChannelStep, kRows);
  return cell.column >= 0 && cell.row >= 0;
}

void LidarInterfere128::Process(std::vector<_ori_point>& frame) {
  Cell cell{};
  for (_ori_point& p : frame) {
    if (CellOf(p, cell) && p.distance > 0.0) {
      // A removed return is still remembered: it was a return all the same.
      float& first_return = Grid(current_)[StorageIndex(cell.column, cell.row)];
      if (first_return == 0.0f) {
        first_return = static_cast<float>(p.distance);
      }
      if (!IsSupportedByHistory(cell, p.distance)) {
        p.distance = 0.0;
      }
    }
    if (p.mark != 0) {
      EndFrame();
    }
  }
}

std::size_t LidarInterfere128::NearbyCells(const Cell& cell, std::size_t (&nearby)[kNearbyCells]) {
  // The neighbours are the cells two before and two after in the order column first, then row: a
  // row's last columns neighbour the next row's first. A cell before the first of the grid is
  // absent; the cells past the last row's end are the spare row, always empty.
  constexpr int32_t kOffsets[] = {0, -1, 1, -2, 2};
  static_assert(std::size(kOffsets) == kNearbyCells, "one offset per nearby cell");
  std::size_t count = 0;
  for (const int32_t offset : kOffsets) {
    int32_t column = cell.column + offset;
    int32_t row = cell.row;
    if (column < 0) {
      column += kColumns;
      --row;
    } else if (column >= kColumns) {
      column -= kColumns;
      ++row;
    }
    if (row >= 0) {
      nearby[count++] = StorageIndex(column, row);
    }
  }
  return count;
}

bool LidarInterfere128::IsSupportedByHistory(const Cell& cell, double distance) const {
  // Until six frame ends have passed, the history still holds empty start-up grids.
  if (frames_seen_ <= kHistoryFrames) {
    return true;
  }
  // Its own cell first, then outwards: a real return usually finds its support there, in the
  // newest frame, and the search stops as soon as the counts suffice (they only grow, so
  // stopping early never changes the verdict).
  std::size_t nearby[kNearbyCells];
  const std::size_t count = NearbyCells(cell, nearby);
  // A past range counts as near when its gap, narrowed to float, is below the threshold: the
  // same test as a float comparison with the threshold's float ceiling.
  const float near_limit = FloatCeiling(distance_thred);
  int32_t present = 0;
  int32_t near = 0;
  for (std::size_t age = kHistoryFrames; age >= 1; --age) {
    const float* grid = Grid((current_ + age) % kRingSlots);
    for (std::size_t i = 0; i < count; ++i) {
      const float range = grid[nearby[i]];
      if (range > 0.0f) {
        ++present;
        const float gap = static_cast<float>(std::fabs(static_cast<double>(range) - distance));
        near += gap < near_limit;
        if (present >= presencepoint && near >= nearpoint) {
          return true;
        }
      }
    }
  }
  return present >= presencepoint && near >= nearpoint;
}

void LidarInterfere128::EndFrame() {
  // The finished grid joins the history where it lies; the oldest grid becomes the next current
  // one and is emptied in place.
  current_ = (current_ + 1) % kRingSlots;
  float* next = Grid(current_);
  std::fill(next, next + kGridCells, 0.0f);
  if (frames_seen_ <= kHistoryFrames) {
    ++frames_seen_;
  }
}

}  // namespace velmar
