// The channel x column structure of a scanning sensor's returns, found from the records
// themselves, so that an algorithm can find a return's neighbours by index whatever the model.
//
// Rows are channels, ordered by the elevation their returns show (z / range): models whose
// channel numbers do not follow elevation (two interleaved banks, uneven beams of an imported
// sensor) still get their true vertical neighbours. Columns are steps of the horizontal angle
// over the full turn; the step is the one the sensor's own columns show, the most common angle
// between consecutive returns of one channel. Both are learned from a whole frame before it is
// indexed, or, when a frame arrives in packets, from the previous frame (and, for channels not
// seen before, from their first returns).
//
// Every cell keeps a list of its returns, so several returns of one direction (second echoes,
// the faces of a mirror sensor sweeping the same field) are all neighbours of each other. The
// image keeps a compact copy of each return, so the records are read once per frame.
#ifndef VELMAR_FRAMEWORK_RANGE_IMAGE_H
#define VELMAR_FRAMEWORK_RANGE_IMAGE_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {

// A cell of the grid: its first return, and the nearest and farthest range among its returns,
// so that a search can pass over a cell that cannot hold a neighbour close enough.
struct ImageCell {
  int32_t head = -1;
  float nearest = 0.0f;
  float farthest = 0.0f;
};

// Whether some return of `cell` may lie within sqrt(radiusSq) of a return at `range`: two
// returns are at least their difference in range apart.
inline bool InReach(const ImageCell& cell, float range, float radiusSq) {
  const float gap = std::max(cell.nearest - range, range - cell.farthest);
  return gap <= 0.0f || gap * gap < radiusSq;
}

// A return as the neighbourhood searches read it.
struct ImageReturn {
  float x, y, z;
  float range;
  float intensity;
  float echo;      // echo strength, pulse width x 0.15 x range
  float angle;     // horizontal angle, degrees
  float time;      // seconds after the first return of the frame (from `timestamp`, in ns)
  uint32_t index;  // position in the points of the call that brought it
  int32_t next;    // next return of the same cell, or -1
  uint32_t cell;
  uint16_t channel;
  uint16_t column;
};

class RangeImage {
 public:
  // Channels from this number on are outside every table: their returns are left alone.
  static constexpr uint32_t kChannelLimit = 1024;
  // Cells of the grid at most; a finer column step is coarsened to stay within it.
  static constexpr std::size_t kMaxCells = std::size_t{1} << 22;
  // A call of up to this many points that closes no frame is a packet of a frame.
  static constexpr std::size_t kLargestPacket = 4096;
  static constexpr double kMinColumnStepDeg = 0.01;
  // Rows a neighbourhood may reach above and below a return.
  static constexpr int kMaxRowSteps = 4;
  static constexpr double kMaxColumnStepDeg = 2.0;
  // Held by an image before its first frame (the channel order); the grid, at most kMaxCells
  // cells, is sized by the first frame's channels and column step, the returns by its size.
  static constexpr std::size_t kTableBytes = kChannelLimit * sizeof(uint16_t);

  // `columnStepDeg` 0 learns the step from the data (starting from a fifth of a degree);
  // otherwise it is the fixed step.
  explicit RangeImage(double columnStepDeg = 0.0);

  // Adds the points of one call, cut into pieces after every point that closes a frame (`mark`),
  // and calls judge(first) after each piece is added, `first` being the position in Returns()
  // of the piece's first return. A piece is a whole frame when nothing of its frame came before
  // and it closes the frame or is larger than any packet; its frame is closed after it. Other
  // pieces are packets: they join the returns of their frame seen so far, which stay
  // neighbours until the frame closes.
  template <typename Judge>
  void AddCall(const std::vector<_ori_point>& points, Judge&& judge) {
    if (points.size() > UINT32_MAX) {
      return;  // no sensor frame comes near; the positions would not fit the index
    }
    std::size_t begin = 0;
    while (begin < points.size()) {
      std::size_t end = begin;
      while (end < points.size() && points[end].mark == 0) {
        ++end;
      }
      const bool closes = end < points.size();
      end += closes ? 1 : 0;
      const bool whole = Empty() && (closes || end - begin > kLargestPacket);
      const std::size_t first = returns_.size();
      try {
        Add(points, begin, end, whole);
        judge(first);
      } catch (...) {
        Abandon();
        throw;
      }
      if (closes || whole) {
        EndFrame();
      }
      begin = end;
    }
  }

  // Adds the returns of points[begin, end) to the current frame. A whole frame is learned from
  // before it is indexed; a packet is indexed with what earlier frames taught.
  void Add(const std::vector<_ori_point>& points, std::size_t begin, std::size_t end,
           bool wholeFrame);
  // Closes the frame: what it taught is kept for the next, its returns are forgotten.
  void EndFrame();
  // Forgets everything learned as well.
  void Reset();
  // Forgets the frame's returns and empties every cell, whatever state an interrupted Add left
  // (memory ran out): allocates nothing, so it cannot fail itself.
  void Abandon();

  std::vector<ImageReturn>& Returns() { return returns_; }
  const std::vector<ImageReturn>& Returns() const { return returns_; }
  bool Empty() const { return returns_.empty(); }
  double ColumnStepRad() const { return stepRad_; }
  uint32_t Columns() const { return columns_; }

  // First return of the cell of `channel` `rowSteps` rows away (negative: higher elevation, at
  // most kMaxRowSteps) and `columnSteps` columns away from `column`, or -1; `separationSq`
  // receives the square of the angle (radians) between the two directions, at least one
  // column step (the returns of one cell are a step apart as far as anyone can tell).
  int32_t Neighbour(uint16_t channel, uint16_t column, int rowSteps, int columnSteps,
                    float& separationSq) const {
    const ImageCell* cell = NeighbourCell(channel, column, rowSteps, columnSteps, separationSq);
    return cell == nullptr ? -1 : cell->head;
  }
  // The same, as the cell itself (null past the top or bottom).
  const ImageCell* NeighbourCell(uint16_t channel, uint16_t column, int rowSteps, int columnSteps,
                                 float& separationSq) const {
    int32_t other = channel;
    float riseSq = 0.0f;
    if (rowSteps != 0) {
      if (rowSteps < -kMaxRowSteps || rowSteps > kMaxRowSteps) {
        return nullptr;
      }
      const RowStep& step =
          rows_[channel * kRowSpan + static_cast<uint32_t>(rowSteps + kMaxRowSteps)];
      other = step.channel;
      riseSq = step.riseSq;
    }
    if (other < 0 || static_cast<uint32_t>(other) >= rowCapacity_) {
      return nullptr;
    }
    const float across = static_cast<float>(columnSteps) * stepRadF_;
    separationSq = std::max(riseSq + across * across, stepRadF_ * stepRadF_);
    int32_t target = static_cast<int32_t>(column) + columnSteps;
    if (target < 0 || target >= static_cast<int32_t>(columns_)) {
      target = WrappedColumn(target);
    }
    return &cells_[static_cast<std::size_t>(target) * rowCapacity_ + static_cast<uint32_t>(other)];
  }
  // The channel `rowSteps` rows from `channel` (negative: up), or -1 past the top or bottom.
  int32_t ChannelAt(uint16_t channel, int rowSteps) const;
  // Channels from the highest elevation to the lowest.
  const std::vector<uint16_t>& ChannelsTopDown() const { return order_; }
  int32_t CellHead(uint16_t channel, uint16_t column) const;
  int32_t WrappedColumn(int32_t column) const;

 private:
  struct ChannelStats {
    double sinElevationSum = 0.0;
    uint32_t count = 0;
  };
  // The channel a few rows above or below another, and the square of the angle between them.
  struct RowStep {
    int32_t channel = -1;
    float riseSq = 0.0f;
  };
  static constexpr uint32_t kRowSpan = 2 * kMaxRowSteps + 1;
  static constexpr std::size_t kStepBins = 2000;  // 0.001 degree bins up to 2 degrees

  void Learn(const ImageReturn& r);
  void SortByCell();
  void LearnedEnough();  // turns this frame's statistics into rows and step
  void AdoptNewChannels();
  void RebuildOrder();
  // Sizes the grid for the step and `channels`; true when it re-indexed every return.
  bool Shape(uint32_t channels);
  void Index(std::size_t first);
  static bool Usable(const _ori_point& p);

  double fixedStepDeg_;
  double stepDeg_;
  double stepRad_ = 0.0;
  float stepRadF_ = 0.0f;
  uint32_t columns_ = 0;
  uint32_t rowCapacity_ = 0;  // channels per column in the grid
  uint64_t firstTimestamp_ = 0;
  std::vector<ImageCell> cells_;
  std::vector<ImageReturn> returns_;
  std::vector<ImageReturn> sorted_;  // the other buffer of SortByCell

  // Learned: elevation per channel, and the channel order.
  std::array<float, kChannelLimit> elevation_{};
  std::array<uint8_t, kChannelLimit> known_{};
  std::array<int16_t, kChannelLimit> rank_{};
  std::array<RowStep, kChannelLimit * kRowSpan> rows_{};
  std::vector<uint16_t> order_;
  bool orderStale_ = false;

  // This frame's statistics.
  std::array<ChannelStats, kChannelLimit> stats_{};
  std::array<float, kChannelLimit> lastAngle_{};
  std::array<uint32_t, kStepBins> stepVotes_{};
  std::array<double, kStepBins> stepSums_{};
  uint32_t stepSamples_ = 0;
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_RANGE_IMAGE_H
