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

MotionGrid::Cell MotionGrid::Locate(double hor_angle, double row_value, int64_t sub) const {
  const double col = (hor_angle - kAngleOrigin) / kAngleStep;
  const double row = (row_value - kRowOrigin) / kRowStep;
  // The grid bounds are whole numbers, so testing the quotients is testing their floors, and the
  // truncating conversions below are floors. Testing the doubles also keeps NaN and huge angles
  // out of the grid instead of overflowing an integer conversion.
  if (!(col >= 0.0 && col < kColumns && row >= 0.0 && row < rows_) || sub < 0) {
    return Cell{};
  }
  const int64_t column = static_cast<int64_t>(col);
  const int64_t row_index = static_cast<int64_t>(row);
  const int64_t position = column + kColumns * row_index;
  const int64_t id = sub + position * sub_cells_;
  // A face index beyond the sub-cells of the last position would address past the grid.
  if (!InGrid(id)) {
    return Cell{};
  }
  if (sub >= sub_cells_) {
    // The id spills into a later position: only the id says which.
    return Cell{static_cast<int32_t>(id), IndexOf(id)};
  }
  const int64_t index = row_index + rows_ * (sub + sub_cells_ * column);
  return Cell{static_cast<int32_t>(id), static_cast<int32_t>(index)};
}

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

HistoryVotes MotionGrid::Vote(const Cell& cell, double range, double r_thred) const {
  const float tolerance = static_cast<float>(range * kRangeTolerance * kToleranceWeight);
  const bool judged = range != 0.0;
  HistoryVotes votes;
  const float* entry = history_.data() + cell.index;
  // Counted without branches: whether a past range agrees is as good as random.
  for (int32_t map = 0; map < kHistoryDepth; ++map, entry += cell_count_) {
    const float v = *entry;
    const float d = static_cast<float>(std::fabs(static_cast<double>(v) - range));
    const bool close = (d < r_thred) | (tolerance > d);
    const bool positive = v > 0.0f;
    votes.positive += positive;
    votes.agreeing += positive & judged & close;
    votes.zero += v == 0.0f;
  }
  return votes;
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
