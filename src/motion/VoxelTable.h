// Which voxels of a cubic grid are occupied, each with a dense index 0, 1, 2, ... in the order
// they were first met. Open addressing over a table sized once for a fixed number of voxels;
// emptying it only starts a new generation, so a frame costs no allocation and no clearing.
#ifndef VELMAR_MOTION_VOXEL_TABLE_H
#define VELMAR_MOTION_VOXEL_TABLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmar {

class VoxelTable {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  // Room for `capacity` voxels of edge `size` metres. Allocates; call once, not per frame.
  void Configure(uint32_t capacity, double size);
  // The bytes Configure(capacity, ...) allocates.
  static std::size_t TableBytes(uint32_t capacity);
  void Clear();

  uint32_t Size() const { return size_; }
  uint32_t Capacity() const { return capacity_; }
  double VoxelSize() const { return voxel_size_; }

  // The key of the voxel holding (x, y, z), or false when the point is not finite or too far
  // from the origin for the grid (beyond about a million voxels).
  bool KeyOf(double x, double y, double z, uint64_t& key) const;
  // The key of the voxel `dx`, `dy`, `dz` steps from the voxel of `key`.
  static uint64_t Neighbour(uint64_t key, int dx, int dy, int dz);

  // The index of the voxel of `key`, or kNone.
  uint32_t Find(uint64_t key) const;
  // The index of the voxel of `key`, adding it when new; kNone when it is new and the table is
  // full. `added` tells whether it was new.
  uint32_t FindOrAdd(uint64_t key, bool& added);

 private:
  struct Slot {
    uint64_t key = 0;
    uint32_t generation = 0;
    uint32_t index = 0;
  };

  std::size_t Home(uint64_t key) const;

  std::vector<Slot> slots_;
  std::size_t mask_ = 0;
  int shift_ = 63;
  uint32_t generation_ = 1;
  uint32_t size_ = 0;
  uint32_t capacity_ = 0;
  double voxel_size_ = 1.0;
  double inverse_size_ = 1.0;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_VOXEL_TABLE_H
