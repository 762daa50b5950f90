#include "motion/MotionGrid.h"

#include <algorithm>
#include <cmath>

namespace velmar {

MotionGrid::MotionGrid(int32_t rows, int32_t sub_cells)
    : rows_(rows),
      sub_cells_(sub_cells),
      cell_count_(kColumns * rows * sub_cells),
      current_(static_cast<std::size_t>(cell_count_), 0.0f),
      history_(static_cast<std::size_t>(cell_count_) * kHistoryDepth, 0.0f) {}

int32_t MotionGrid::ComputeGridID(double hor_angle, double row_value, int64_t sub) const {
  const double col = std::floor((hor_angle - kAngleOrigin) / kAngleStep);
  const double row = std::floor((row_value - kRowOrigin) / kRowStep);
  // Bounds are checked on the doubles, so NaN and huge angles fall outside the grid instead of
  // overflowing an integer conversion.
  if (!(col >= 0.0 && col < kColumns && row >= 0.0 && row < rows_) || sub < 0) {
    return kNoCell;
  }
  const int64_t position = static_cast<int64_t>(col) + kColumns * static_cast<int64_t>(row);
  const int64_t cell = sub + position * sub_cells_;
  // A face index beyond the sub-cells of the last position would address past the grid.
  return InGrid(cell) ? static_cast<int32_t>(cell) : kNoCell;
}

void MotionGrid::FillCurrent(float value) {
  std::fill(current_.begin(), current_.end(), value);
}

HistoryVotes MotionGrid::Vote(int32_t id, double range, double r_thred) const {
  HistoryVotes votes;
  const float* entries = history_.data() + static_cast<std::size_t>(id) * kHistoryDepth;
  const float tolerance = static_cast<float>(range * kRangeTolerance * kToleranceWeight);
  const auto count = [&](float v) {
    if (v > 0.0f) {
      ++votes.positive;
      if (range != 0.0) {
        const float d = static_cast<float>(std::fabs(static_cast<double>(v) - range));
        if (d < r_thred || tolerance > d) {
          ++votes.agreeing;
        }
      }
    } else if (v == 0.0f) {
      ++votes.zero;
    }
  };
  // Oldest first.
  for (int32_t slot = oldest_; slot < kHistoryDepth; ++slot) {
    count(entries[slot]);
  }
  for (int32_t slot = 0; slot < oldest_; ++slot) {
    count(entries[slot]);
  }
  return votes;
}

bool MotionGrid::PushOnce() {
  if (pushed_) {
    return false;
  }
  pushed_ = true;
  float* slot = history_.data() + oldest_;
  for (const float range : current_) {
    *slot = range;
    slot += kHistoryDepth;
  }
  oldest_ = (oldest_ + 1) % kHistoryDepth;
  if (frames_seen_ <= kHistoryDepth) {
    ++frames_seen_;
  }
  return true;
}

}  // namespace velmar
