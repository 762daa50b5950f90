#include "motion/VoxelTable.h"

#include <algorithm>
#include <cmath>

namespace velmar {
namespace {

// Each voxel coordinate takes 21 bits of the key, offset so that it is never negative; two
// voxels of margin keep every neighbour of a valid voxel valid.
constexpr int kAxisBits = 21;
constexpr int64_t kAxisOffset = int64_t{1} << (kAxisBits - 1);
constexpr double kAxisLimit = static_cast<double>(kAxisOffset - 2);
constexpr uint64_t kAxisMask = (uint64_t{1} << kAxisBits) - 1;
// Slots per voxel of capacity, rounded up to a power of two: keeps probe runs short.
constexpr std::size_t kSlotsPerVoxel = 2;
constexpr uint64_t kHashMultiplier = 0x9E3779B97F4A7C15ull;

uint64_t Pack(int64_t x, int64_t y, int64_t z) {
  return (static_cast<uint64_t>(x + kAxisOffset) << (2 * kAxisBits)) |
         (static_cast<uint64_t>(y + kAxisOffset) << kAxisBits) |
         static_cast<uint64_t>(z + kAxisOffset);
}

// floor() as a conversion and a correction: without SSE4.1 the library call would dominate.
int64_t FloorToInt(double v) {
  const int64_t truncated = static_cast<int64_t>(v);
  return truncated - (v < static_cast<double>(truncated) ? 1 : 0);
}

int64_t Unpack(uint64_t key, int shift) {
  return static_cast<int64_t>((key >> shift) & kAxisMask) - kAxisOffset;
}

}  // namespace

// The slots for `capacity` voxels: a power of two, 2^bits.
std::size_t SlotCount(uint32_t capacity, int& bits) {
  std::size_t slots = 1;
  bits = 0;
  while (slots < kSlotsPerVoxel * std::max<uint32_t>(capacity, 1)) {
    slots <<= 1;
    ++bits;
  }
  return slots;
}

std::size_t VoxelTable::TableBytes(uint32_t capacity) {
  int bits = 0;
  return SlotCount(capacity, bits) * sizeof(Slot);
}

void VoxelTable::Configure(uint32_t capacity, double size) {
  int bits = 0;
  const std::size_t slots = SlotCount(capacity, bits);
  slots_.assign(slots, Slot());
  mask_ = slots - 1;
  shift_ = 64 - bits;
  capacity_ = capacity;
  voxel_size_ = size;
  inverse_size_ = 1.0 / size;
  generation_ = 1;
  size_ = 0;
}

void VoxelTable::Clear() {
  size_ = 0;
  if (++generation_ == 0) {
    std::fill(slots_.begin(), slots_.end(), Slot());
    generation_ = 1;
  }
}

bool VoxelTable::KeyOf(double x, double y, double z, uint64_t& key) const {
  const double sx = x * inverse_size_;
  const double sy = y * inverse_size_;
  const double sz = z * inverse_size_;
  // Written so that NaN fails too; within the limit the conversions below are defined.
  if (!(std::fabs(sx) < kAxisLimit && std::fabs(sy) < kAxisLimit && std::fabs(sz) < kAxisLimit)) {
    return false;
  }
  key = Pack(FloorToInt(sx), FloorToInt(sy), FloorToInt(sz));
  return true;
}

uint64_t VoxelTable::Neighbour(uint64_t key, int dx, int dy, int dz) {
  return Pack(Unpack(key, 2 * kAxisBits) + dx, Unpack(key, kAxisBits) + dy, Unpack(key, 0) + dz);
}

std::size_t VoxelTable::Home(uint64_t key) const {
  // The high bits of the product mix all three coordinates.
  return static_cast<std::size_t>((key * kHashMultiplier) >> shift_);
}

uint32_t VoxelTable::Find(uint64_t key) const {
  if (slots_.empty()) {
    return kNone;
  }
  for (std::size_t i = Home(key);; i = (i + 1) & mask_) {
    const Slot& slot = slots_[i];
    if (slot.generation != generation_) {
      return kNone;
    }
    if (slot.key == key) {
      return slot.index;
    }
  }
}

uint32_t VoxelTable::FindOrAdd(uint64_t key, bool& added) {
  added = false;
  if (slots_.empty()) {
    return kNone;
  }
  for (std::size_t i = Home(key);; i = (i + 1) & mask_) {
    Slot& slot = slots_[i];
    if (slot.generation != generation_) {
      if (size_ >= capacity_) {
        return kNone;
      }
      slot.key = key;
      slot.generation = generation_;
      slot.index = size_++;
      added = true;
      return slot.index;
    }
    if (slot.key == key) {
      return slot.index;
    }
  }
}

}  // namespace velmar
