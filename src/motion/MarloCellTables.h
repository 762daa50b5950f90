// Where each channel of the Marlo models lands in the motion grid. These models fire several
// channels into one grid row, so the channel picks both the row and the sub-cell; returns that
// share a row and differ only in face or echo then sit side by side.
#ifndef VELMAR_MOTION_MARLO_CELL_TABLES_H
#define VELMAR_MOTION_MARLO_CELL_TABLES_H

#include <array>
#include <cstdint>

namespace velmar {
namespace marlo {

constexpr int32_t kNone = -1;
constexpr uint32_t kChannels256 = 256;
constexpr uint32_t kChannels128 = 128;

// Marlo256: the lower half of the channels feeds sub-cells 3 and 2 of rows 1..32, the upper half
// sub-cells 1 and 0 of the same rows; the other two channels of each group of four stay off the
// grid. Rows are 1-based; kNone marks a channel with no cell.
constexpr std::array<int32_t, kChannels256> MakeRows256() {
  std::array<int32_t, kChannels256> rows{};
  for (uint32_t c = 1; c <= kChannels256; ++c) {
    const int32_t q = static_cast<int32_t>((c - 1) % 4);
    const int32_t k = static_cast<int32_t>((c - 1) / 4);
    const bool lower = c <= kChannels128;
    rows[c - 1] = lower ? (q < 2 ? k + 1 : kNone) : (q < 2 ? kNone : k - 31);
  }
  return rows;
}

constexpr std::array<int32_t, kChannels256> MakeSubCells256() {
  constexpr int32_t kLower[4] = {3, 2, kNone, kNone};
  constexpr int32_t kUpper[4] = {kNone, kNone, 1, 0};
  std::array<int32_t, kChannels256> subs{};
  for (uint32_t c = 1; c <= kChannels256; ++c) {
    const uint32_t q = (c - 1) % 4;
    subs[c - 1] = c <= kChannels128 ? kLower[q] : kUpper[q];
  }
  return subs;
}

// Marlo128 and Marlo128H: channel pairs walk down the 32 rows twice.
constexpr std::array<int32_t, kChannels128> MakeRows128() {
  std::array<int32_t, kChannels128> rows{};
  for (uint32_t c = 1; c <= kChannels128; ++c) {
    rows[c - 1] = static_cast<int32_t>(((c - 1) / 2) % 32 + 1);
  }
  return rows;
}

// Marlo128H: the first pass over the rows takes sub-cells 3 (odd channels) and 2 (even), the
// second pass sub-cells 1 and 0.
constexpr std::array<int32_t, kChannels128> MakeSubCells128H() {
  std::array<int32_t, kChannels128> subs{};
  for (uint32_t c = 1; c <= kChannels128; ++c) {
    const bool odd = c % 2 == 1;
    subs[c - 1] = c <= 64 ? (odd ? 3 : 2) : (odd ? 1 : 0);
  }
  return subs;
}

inline constexpr std::array<int32_t, kChannels256> kRows256 = MakeRows256();
inline constexpr std::array<int32_t, kChannels256> kSubCells256 = MakeSubCells256();
inline constexpr std::array<int32_t, kChannels128> kRows128 = MakeRows128();
inline constexpr std::array<int32_t, kChannels128> kSubCells128H = MakeSubCells128H();

}  // namespace marlo
}  // namespace velmar

#endif  // VELMAR_MOTION_MARLO_CELL_TABLES_H
