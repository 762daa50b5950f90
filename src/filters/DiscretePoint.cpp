#include "filters/DiscretePoint.h"

#include <algorithm>
#include <cstdlib>

namespace velmar {
namespace {

constexpr const char* kClassName = "DiscretePoint";
constexpr double kMaxFactor = 50.0;
constexpr double kMaxRadius = 5.0;
constexpr int32_t kMaxSupport = 16;
constexpr double kMaxIntensity = 1000.0;
constexpr double kMaxEcho = 1000.0;

// Sides of a return on which a close neighbour was found: the four directions along the rows
// and columns, and the four diagonal quarters.
constexpr unsigned kLeft = 1;
constexpr unsigned kRight = 2;
constexpr unsigned kUp = 4;
constexpr unsigned kDown = 8;
constexpr unsigned kUpLeft = 16;
constexpr unsigned kUpRight = 32;
constexpr unsigned kDownLeft = 64;
constexpr unsigned kDownRight = 128;
constexpr unsigned kFarLeft = 256;  // two or more columns away along the row
constexpr unsigned kFarRight = 512;
constexpr unsigned kFarUp = 1024;  // two or more rows away along the column
constexpr unsigned kFarDown = 2048;

unsigned SideOf(int rows, int columns) {
  unsigned side = 0;
  if (std::abs(rows) <= 1) {
    side |= columns < 0 ? kLeft : (columns > 0 ? kRight : 0);
  }
  if (std::abs(columns) <= 1) {
    side |= rows < 0 ? kUp : (rows > 0 ? kDown : 0);
  }
  if (rows == 0 && std::abs(columns) >= 2) {
    side |= columns < 0 ? kFarLeft : kFarRight;
  }
  if (columns == 0 && std::abs(rows) >= 2) {
    side |= rows < 0 ? kFarUp : kFarDown;
  }
  if (rows != 0 && columns != 0) {
    side |= rows < 0 ? (columns < 0 ? kUpLeft : kUpRight) : (columns < 0 ? kDownLeft : kDownRight);
  }
  return side;
}

bool Has(unsigned sides, unsigned wanted) {
  return (sides & wanted) == wanted;
}

// Neighbours on opposite sides, as inside a surface, or filling the quarter beside a return, as
// at the corner or the end of a surface; a speck, or a pair or line of specks, has neither.
bool SurfaceAround(unsigned sides) {
  return Has(sides, kLeft | kRight) || Has(sides, kUp | kDown) ||
         Has(sides, kUp | kFarUp | kLeft | kFarLeft | kUpLeft) ||
         Has(sides, kUp | kFarUp | kRight | kFarRight | kUpRight) ||
         Has(sides, kDown | kFarDown | kLeft | kFarLeft | kDownLeft) ||
         Has(sides, kDown | kFarDown | kRight | kFarRight | kDownRight);
}

float Squared(float v) {
  return v * v;
}

float DistanceSquared(const ImageReturn& a, const ImageReturn& b) {
  return Squared(a.x - b.x) + Squared(a.y - b.y) + Squared(a.z - b.z);
}

}  // namespace

void DiscretePoint::ParseParams() {
  ReadInRange(kClassName, "window_rows", window_rows, 1, DiscretePoint::kMaxWindowRows);
  ReadInRange(kClassName, "window_columns", window_columns, 1, DiscretePoint::kMaxWindowColumns);
  ReadInRange(kClassName, "support_factor", support_factor, 0.0, kMaxFactor);
  ReadInRange(kClassName, "continuity_factor", continuity_factor, 0.0, kMaxFactor);
  ReadInRange(kClassName, "min_radius", min_radius, 0.0, kMaxRadius);
  ReadInRange(kClassName, "min_support", min_support, 1, kMaxSupport);
  ReadInRange(kClassName, "weak_intensity", weak_intensity, -1.0, kMaxIntensity);
  ReadInRange(kClassName, "weak_echo", weak_echo, 0.0, kMaxEcho);
  ParseImageParams(kClassName);
  BuildOffsets();
}

void DiscretePoint::BuildOffsets() {
  offsets_.clear();
  for (int r = -window_rows; r <= window_rows; ++r) {
    for (int c = -window_columns; c <= window_columns; ++c) {
      offsets_.push_back({r, c});
    }
  }
  // Nearest cells first: most returns find their support at once.
  // Ties in row then column order, so that the order is total and the sort needs no buffer
  // (a stable sort would quietly fall back to a slower path when its buffer cannot be had).
  std::sort(offsets_.begin(), offsets_.end(), [](const Offset& a, const Offset& b) {
    const int da = a.rows * a.rows + a.columns * a.columns;
    const int db = b.rows * b.rows + b.columns * b.columns;
    return da != db ? da < db : (a.rows != b.rows ? a.rows < b.rows : a.columns < b.columns);
  });
}

bool DiscretePoint::IsWeak(const ImageReturn& r) const {
  return r.intensity <= weak_intensity || r.echo < weak_echo;
}

bool DiscretePoint::Keep(const ImageReturn& r, int32_t self) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  const bool weak = IsWeak(r);
  int32_t support = 0;
  unsigned sides = 0;
  const float minSq = Squared(static_cast<float>(min_radius));
  const float supportSq = Squared(static_cast<float>(support_factor) * r.range);
  const float continuitySq = Squared(static_cast<float>(continuity_factor) * r.range);
  for (const Offset& o : offsets_) {
    float separationSq = 0.0f;
    const ImageCell* cell =
        image_.NeighbourCell(r.channel, r.column, o.rows, o.columns, separationSq);
    if (cell == nullptr || cell->head < 0) {
      continue;
    }
    const float supportRadiusSq = std::max(minSq, supportSq * separationSq);
    if (!InReach(*cell, r.range, supportRadiusSq)) {
      continue;  // no return of the cell can be near enough
    }
    const float continuityRadiusSq = std::max(minSq, continuitySq * separationSq);
    const unsigned side = SideOf(o.rows, o.columns);
    for (int32_t n = cell->head; n >= 0; n = returns[static_cast<std::size_t>(n)].next) {
      if (n == self) {
        continue;
      }
      const ImageReturn& other = returns[static_cast<std::size_t>(n)];
      const float d2 = DistanceSquared(r, other);
      if (d2 >= supportRadiusSq) {
        continue;
      }
      if (!weak) {
        if (++support >= min_support) {
          return true;
        }
        continue;
      }
      if (!IsWeak(other)) {
        return true;
      }
      if (d2 < continuityRadiusSq) {
        sides |= side;
        if (SurfaceAround(sides)) {
          return true;
        }
      }
    }
  }
  return false;
}

void DiscretePoint::Judge(std::vector<_ori_point>& frame, std::size_t first) {
  const std::vector<ImageReturn>& returns = image_.Returns();
  for (std::size_t i = first; i < returns.size(); ++i) {
    if (Keep(returns[i], static_cast<int32_t>(i))) {
      continue;
    }
    Remove(frame[returns[i].index]);
  }
}

void DiscretePoint::Process(std::vector<_ori_point>& frame) {
  if (offsets_.empty()) {
    BuildOffsets();
  }
  image_.AddCall(frame, [this, &frame](std::size_t first) { Judge(frame, first); });
}

}  // namespace velmar
