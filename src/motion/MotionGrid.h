// The angle-by-row range grid that the motion algorithms share: which cell a return falls in, the
// ranges seen in each cell over the last revolutions, and the vote of that history on whether a
// return is static.
#ifndef VELMAR_MOTION_MOTION_GRID_H
#define VELMAR_MOTION_MOTION_GRID_H

#include <cstdint>
#include <vector>

namespace velmar {

// Angles that open and close a revolution: a sweep starts below 30 degrees and ends beyond 150.
constexpr double kRevolutionStartAngle = 30.0;
constexpr double kRevolutionEndAngle = 150.0;

// How the history of one cell judges a range.
struct HistoryVotes {
  int32_t positive = 0;  // revolutions that saw a return in the cell
  int32_t agreeing = 0;  // of those, revolutions whose range matches the one judged
  int32_t zero = 0;      // revolutions that saw the cell empty
};

class MotionGrid {
 public:
  static constexpr int32_t kNoCell = -1;
  static constexpr int32_t kColumns = 720;
  static constexpr int32_t kHistoryDepth = 10;
  static constexpr double kAngleOrigin = 30.0;  // degrees
  static constexpr double kAngleStep = 0.167;   // degrees per column
  static constexpr double kRowOrigin = 0.0;
  static constexpr double kRowStep = 1.0;
  // Two column steps in radians: a target this far off at the same range still counts as the
  // same surface, weighted down because neighbouring columns rarely see exactly the same range.
  static constexpr double kRangeTolerance = 0.00582936669;
  static constexpr double kToleranceWeight = 0.3;

  MotionGrid(int32_t rows, int32_t sub_cells);

  // The cell of a return, or kNoCell when it lies outside the grid.
  int32_t ComputeGridID(double hor_angle, double row_value, int64_t sub) const;
  bool InGrid(int64_t id) const { return id >= 0 && id < cell_count_; }
  int32_t CellCount() const { return cell_count_; }

  // The range map of the revolution under way.
  void Record(int32_t id, double range) { current_[id] = static_cast<float>(range); }
  float Current(int32_t id) const { return current_[id]; }
  void FillCurrent(float value);

  // Until the history has been pushed more than its depth, every return counts as static.
  bool WarmingUp() const { return frames_seen_ <= kHistoryDepth; }
  HistoryVotes Vote(int32_t id, double range, double r_thred) const;
  static bool IsStatic(const HistoryVotes& votes, int32_t num_thred, int32_t num_thred_neigh) {
    return votes.positive > num_thred && votes.agreeing > num_thred_neigh;
  }

  // Pushes the current map as the newest history entry, once per revolution: a second call is
  // ignored until Rearm() marks the start of the next revolution. Returns whether it pushed.
  bool PushOnce();
  void Rearm() { pushed_ = false; }
  bool Pushed() const { return pushed_; }
  int32_t FramesSeen() const { return frames_seen_; }

 private:
  int32_t rows_;
  int32_t sub_cells_;
  int32_t cell_count_;
  std::vector<float> current_;
  // The kHistoryDepth ranges of a cell lie side by side, so judging one return reads one short
  // run of memory. Each cell's run is a ring whose oldest slot is `oldest_`: a push overwrites
  // that slot in every cell and moves the ring on, without moving or reallocating anything.
  std::vector<float> history_;
  int32_t oldest_ = 0;
  int32_t frames_seen_ = 0;
  bool pushed_ = false;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_MOTION_GRID_H
