#include "motion/MotionGrid.h"

#include <algorithm>

namespace velmar {

MotionGrid::MotionGrid(int32_t rows, int32_t sub_cells)
    : rows_(rows),
      sub_cells_(sub_cells),
      cell_count_(kColumns * rows * sub_cells),
      current_(static_cast<std::size_t>(cell_count_), 0.0f),
      history_(static_cast<std::size_t>(cell_count_) * kHistoryDepth, 0.0f) {}

int32_t MotionGrid::IndexOf(int64_t id) const {
  if (!InGrid(id)) {
    return kNoCell;
  }
  const int64_t sub = id % sub_cells_;
  const int64_t position = id / sub_cells_;
  const int64_t column = position % kColumns;
  const int64_t row = position / kColumns;
  return static_cast<int32_t>(row + rows_ * (sub + sub_cells_ * column));
}

void MotionGrid::FillCurrent(float value) {
  std::fill(current_.begin(), current_.end(), value);
}

void MotionGrid::Push() {
  pushed_ = true;
  std::copy(current_.begin(), current_.end(),
            history_.begin() + static_cast<std::ptrdiff_t>(oldest_) * cell_count_);
  oldest_ = (oldest_ + 1) % kHistoryDepth;
  if (frames_seen_ <= kHistoryDepth) {
    ++frames_seen_;
  }
}

}  // namespace velmar
