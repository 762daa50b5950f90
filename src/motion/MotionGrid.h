// The angle-by-row range grid that the motion algorithms share: which cell a return falls in, the
// ranges seen in each cell over the last revolutions, and the vote of that history on whether a
// return is static.
#ifndef VELMAR_MOTION_MOTION_GRID_H
#define VELMAR_MOTION_MOTION_GRID_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "framework/AlgoCommon.h"

namespace velmar {

// Angles that open and close a revolution: a face's sweep starts before the grid's first column
// and ends beyond 150 degrees.
constexpr double kRevolutionStartAngle = kSweepGridFirstAngle;
constexpr double kRevolutionEndAngle = 150.0;

// How the history of one cell judges a range.
struct HistoryVotes {
  int32_t positive = 0;  // revolutions that saw a return in the cell
  int32_t agreeing = 0;  // of those, revolutions whose range matches the one judged
  int32_t zero = 0;      // revolutions that saw the cell empty
};

// Cells are named by an id that runs sub-cell first, then column, then row: the algorithms find a
// return's partner cells by adding small offsets to it. Their values are stored in another order,
// row first, then sub-cell, then column, so that the channels of one column, which arrive one
// after the other, read and write neighbouring memory. `Cell` carries both.
class MotionGrid {
 public:
  static constexpr int32_t kNoCell = -1;
  static constexpr int32_t kColumns = kSweepGridColumns;
  static constexpr int32_t kHistoryDepth = 10;
  static constexpr double kAngleOrigin = kSweepGridFirstAngle;
  static constexpr double kAngleStep = kSweepGridColumnStep;
  static constexpr double kRowOrigin = 0.0;
  static constexpr double kRowStep = 1.0;
  // Two column steps in radians: a target this far off at the same range still counts as the
  // same surface, weighted down because neighbouring columns rarely see exactly the same range.
  static constexpr double kRangeTolerance = 0.00582936669;
  static constexpr double kToleranceWeight = 0.3;

  struct Cell {
    int32_t id = kNoCell;
    int32_t index = kNoCell;  // where the cell's values are stored
    bool Valid() const { return id >= 0; }
  };

  MotionGrid(int32_t rows, int32_t sub_cells);

  static std::size_t CellCountFor(int32_t rows, int32_t sub_cells) {
    return static_cast<std::size_t>(kColumns) * rows * sub_cells;
  }
  // The bytes of the current map and the history of a grid of this shape.
  static std::size_t TableBytes(int32_t rows, int32_t sub_cells) {
    return CellCountFor(rows, sub_cells) * (1 + kHistoryDepth) * sizeof(float);
  }

  // The cell of a return; invalid when it lies outside the grid.
  Cell Locate(double hor_angle, double row_value, int64_t sub) const;
  int32_t ComputeGridID(double hor_angle, double row_value, int64_t sub) const {
    return Locate(hor_angle, row_value, sub).id;
  }
  // The storage index of a cell id, kNoCell outside the grid.
  int32_t IndexOf(int64_t id) const;
  bool InGrid(int64_t id) const { return id >= 0 && id < cell_count_; }
  int32_t CellCount() const { return cell_count_; }

  // The range map of the revolution under way.
  void Record(const Cell& cell, double range) {
    current_[static_cast<std::size_t>(cell.index)] = static_cast<float>(range);
  }
  void Record(int32_t id, double range) { Record(Cell{id, IndexOf(id)}, range); }
  float Current(int32_t id) const { return current_[static_cast<std::size_t>(IndexOf(id))]; }
  void FillCurrent(float value);

  // Until the history has been pushed more than its depth, every return counts as static.
  bool WarmingUp() const { return frames_seen_ <= kHistoryDepth; }
  HistoryVotes Vote(const Cell& cell, double range, double r_thred) const;
  HistoryVotes Vote(int32_t id, double range, double r_thred) const {
    return Vote(Cell{id, IndexOf(id)}, range, r_thred);
  }
  static bool IsStatic(const HistoryVotes& votes, int32_t num_thred, int32_t num_thred_neigh) {
    return votes.positive > num_thred && votes.agreeing > num_thred_neigh;
  }

  // Pushes the current map as the newest history entry, once per revolution: a second call is
  // ignored until Rearm() marks the start of the next revolution. Returns whether it pushed.
  bool PushOnce() {
    if (pushed_) {
      return false;
    }
    Push();
    return true;
  }
  void Rearm() { pushed_ = false; }
  int32_t FramesSeen() const { return frames_seen_; }

 private:
  void Push();

  int32_t rows_;
  int32_t sub_cells_;
  int32_t cell_count_;
  std::vector<float> current_;
  // kHistoryDepth maps of the whole grid one after the other, used as a ring whose oldest map is
  // `oldest_`: a push copies the current map over the oldest one and moves the ring on. A vote
  // counts all maps alike, so their order does not matter to it.
  std::vector<float> history_;
  int32_t oldest_ = 0;
  int32_t frames_seen_ = 0;
  bool pushed_ = false;
};

// Locate and Vote run for every return: defined here so that they inline into the per-point
// loops, and the votes stay in registers instead of being packed into a returned struct.
inline MotionGrid::Cell MotionGrid::Locate(double hor_angle, double row_value, int64_t sub) const {
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

inline HistoryVotes MotionGrid::Vote(const Cell& cell, double range, double r_thred) const {
  const float tolerance = static_cast<float>(range * kRangeTolerance * kToleranceWeight);
  // A past range agrees when its narrowed difference d has d < r_thred or tolerance > d: both
  // bounds folded into one float comparison. A zero range agrees with nothing; a NaN bound
  // admits nothing, and a NaN tolerance comes only with a NaN range, whose d is NaN anyway.
  const float within = FloatCeiling(r_thred);
  float limit = std::isnan(within) || tolerance > within ? tolerance : within;
  if (range == 0.0) {
    limit = -std::numeric_limits<float>::infinity();
  }
  HistoryVotes votes;
  const float* entry = history_.data() + cell.index;
  // Counted without branches: whether a past range agrees is as good as random.
  for (int32_t map = 0; map < kHistoryDepth; ++map, entry += cell_count_) {
    const float v = *entry;
    const float d = static_cast<float>(std::fabs(static_cast<double>(v) - range));
    const bool positive = v > 0.0f;
    votes.positive += positive;
    votes.agreeing += positive & (d < limit);
    votes.zero += v == 0.0f;
  }
  return votes;
}

}  // namespace velmar

#endif  // VELMAR_MOTION_MOTION_GRID_H
