// Removes Marlo128 returns that the recent past does not support. Interference from other sensors
// lands at random from one frame to the next, while real surfaces return at nearly the same range
// in the same direction frame after frame.
#ifndef VELMAR_FILTERS_LIDAR_INTERFERE128_H
#define VELMAR_FILTERS_LIDAR_INTERFERE128_H

#include <cstddef>

#include "framework/AlgoCommon.h"
#include "framework/Algorithm.h"

namespace velmar {

class LidarInterfere128 : public Algorithm {
 public:
  // Cells of one grid: the sweep grid's columns by 129 channel rows (one spare row past the last
  // channel, so the neighbour cells of the last row stay inside the grid).
  static constexpr int32_t kColumns = kSweepGridColumns;
  static constexpr int32_t kRows = 128;
  static constexpr std::size_t kGridCells = static_cast<std::size_t>(kColumns) * (kRows + 1);
  static constexpr int32_t kHistoryFrames = 5;
  static constexpr int32_t kStoredRows = kRows + 1;

  LidarInterfere128(const std::string& name, const std::string& desc, LidarType type);

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  void ClearCache() override;
  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  int32_t presencepoint = 1;     // least occupied nearby cells over the remembered frames
  int32_t nearpoint = 1;         // least of those within distance_thred of the return
  double distance_thred = 10.0;  // metres

 private:
  // A cell by its column and row: the neighbours of a cell are the cells two before and two after
  // it in the order column first, then row, so that the last columns of a row neighbour the
  // first columns of the next row.
  struct Cell {
    int32_t column;
    int32_t row;
  };
  // Whether a point has a cell, and which.
  static bool CellOf(const _ori_point& p, Cell& cell);
  // Cells are stored channel first, column by column: the returns of a column arrive channel
  // after channel and read neighbouring memory.
  static std::size_t StorageIndex(int32_t column, int32_t row) {
    return static_cast<std::size_t>(row) + static_cast<std::size_t>(kStoredRows) * column;
  }
  // A cell and the two on each side of it, as storage indices; returns how many exist.
  static constexpr std::size_t kNearbyCells = 5;
  static std::size_t NearbyCells(const Cell& cell, std::size_t (&nearby)[kNearbyCells]);
  bool IsSupportedByHistory(const Cell& cell, double distance) const;
  void EndFrame();
  float* Grid(std::size_t slot) { return grids_.data() + slot * kGridCells; }
  const float* Grid(std::size_t slot) const { return grids_.data() + slot * kGridCells; }

  // One ring of kHistoryFrames + 1 grids, allocated once: the slot `current_` collects the frame
  // being scanned, the others are the last kHistoryFrames finished frames. A cell holds the range
  // of the first return of its frame in it, or 0 when it had none.
  std::vector<float> grids_;
  std::size_t current_ = 0;
  // Frame ends seen, held once the history is full of real frames.
  int32_t frames_seen_ = 0;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_LIDAR_INTERFERE128_H
