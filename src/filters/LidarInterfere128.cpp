#include "filters/LidarInterfere128.h"

#include <algorithm>
#include <cmath>

#include "framework/about.h"

namespace velmar {
namespace {

constexpr double kAngleOrigin = 30.0;  // degrees
constexpr double kAngleStep = 0.167;   // degrees per column
constexpr double kChannelOrigin = 0.0;
constexpr double kChannelStep = 1.0;
// Cells on each side of a point's own cell, along the flat index, that count as nearby.
constexpr int32_t kNeighbourReach = 2;
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

LidarInterfere128::LidarInterfere128(const std::string& name, const std::string& desc,
                                     LidarType type)
    : AlgoBase(name, desc, type), grids_(kRingSlots * kGridCells, 0.0f) {}

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

int32_t LidarInterfere128::CellOf(const _ori_point& p) {
  const double channel = static_cast<int32_t>(p.channel);
  const int32_t col = GridCoordinate((p.hor_angle - kAngleOrigin) / kAngleStep, kColumns);
  const int32_t row = GridCoordinate((channel - kChannelOrigin) / kChannelStep, kRows);
  if (col < 0 || row < 0) {
    return -1;
  }
  return col + kColumns * row;
}

void LidarInterfere128::Process(std::vector<_ori_point>& frame) {
  for (_ori_point& p : frame) {
    const int32_t cell = CellOf(p);
    if (cell >= 0 && p.distance > 0.0) {
      // A removed return is still remembered: it was a return all the same.
      float& first_return = Grid(current_)[cell];
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

bool LidarInterfere128::IsSupportedByHistory(int32_t cell, double distance) const {
  // Until six frame ends have passed, the history still holds empty start-up grids.
  if (frames_seen_ <= kHistoryFrames) {
    return true;
  }
  const int32_t first = std::max(cell - kNeighbourReach, 0);
  const int32_t last = std::min(cell + kNeighbourReach, static_cast<int32_t>(kGridCells) - 1);
  int32_t present = 0;
  int32_t near = 0;
  for (std::size_t slot = 0; slot < kRingSlots; ++slot) {
    if (slot == current_) {
      continue;
    }
    const float* grid = Grid(slot);
    for (int32_t c = first; c <= last; ++c) {
      const float range = grid[c];
      if (range > 0.0f) {
        ++present;
        const float gap = static_cast<float>(std::fabs(range - distance));
        if (gap < distance_thred) {
          ++near;
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
