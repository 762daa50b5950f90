#include "filters/DisturbPointFilter.h"

#include <algorithm>
#include <cmath>

namespace velmar {
namespace {

constexpr const char* kClassName = "DisturbPointFilter";
constexpr double kMaxFactor = 50.0;
constexpr double kMaxRadius = 5.0;
constexpr int32_t kNeighbourCells = 8;
constexpr double kMaxSweepGap = 10.0;
// A side continues flat when its next step is under this share of its step to the return.
constexpr float kFlatShare = 0.5f;

// The eight cells around a return, sides before corners, then its own cell.
constexpr int kOffsets[9][2] = {{0, -1}, {0, 1},  {-1, 0}, {1, 0}, {-1, -1},
                                {-1, 1}, {1, -1}, {1, 1},  {0, 0}};

float Squared(float v) {
  return v * v;
}

}  // namespace

void DisturbPointFilter::ParseParams() {
  ReadInRange(kClassName, "support_factor", support_factor, 0.0, kMaxFactor);
  ReadInRange(kClassName, "min_agreeing", min_agreeing, 1, kNeighbourCells * 4);
  ReadInRange(kClassName, "min_radius", min_radius, 0.0, kMaxRadius);
  ReadInRange(kClassName, "step_factor", step_factor, 0.0, kMaxFactor);
  ReadInRange(kClassName, "hold_factor", hold_factor, 0.0, kMaxFactor);
  ReadInRange(kClassName, "range_tolerance", range_tolerance, 0.0, kMaxRadius);
  ReadInRange(kClassName, "sweep_gap", sweep_gap, 0.0, kMaxSweepGap);
  ParseImageParams(kClassName);
}

// Supported: a neighbour within a few beam separations at r's range.
bool DisturbPointFilter::Supported(const ImageReturn& r, int32_t self) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  const float minSq = Squared(static_cast<float>(min_radius));
  const float scaleSq = Squared(static_cast<float>(support_factor) * r.range);
  for (const auto& o : kOffsets) {
    float separationSq = 0.0f;
    const ImageCell* cell = image_.NeighbourCell(r.channel, r.column, o[0], o[1], separationSq);
    if (cell == nullptr) {
      continue;
    }
    const float radiusSq = std::max(minSq, scaleSq * separationSq);
    if (!InReach(*cell, r.range, radiusSq)) {
      continue;
    }
    for (int32_t n = cell->head; n >= 0; n = returns[static_cast<std::size_t>(n)].next) {
      const ImageReturn& other = returns[static_cast<std::size_t>(n)];
      if (n != self &&
          Squared(r.x - other.x) + Squared(r.y - other.y) + Squared(r.z - other.z) < radiusSq) {
        return true;
      }
    }
  }
  return false;
}

// Whether supported returns surround r: enough of them, on two opposite sides. A spike sits
// inside a surface that agrees with itself; a wire seen against a wall below and the sky above
// has the wall on one side only.
bool DisturbPointFilter::Surrounded(const ImageReturn& r, int32_t self) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  int32_t agreeing = 0;
  bool left = false, right = false, up = false, down = false;
  for (const auto& o : kOffsets) {
    float separationSq = 0.0f;
    for (int32_t n = image_.Neighbour(r.channel, r.column, o[0], o[1], separationSq); n >= 0;
         n = returns[static_cast<std::size_t>(n)].next) {
      if (n == self || supported_[static_cast<std::size_t>(n)] == 0) {
        continue;
      }
      ++agreeing;
      up = up || (o[0] < 0 && o[1] == 0);
      down = down || (o[0] > 0 && o[1] == 0);
      left = left || (o[1] < 0 && o[0] == 0);
      right = right || (o[1] > 0 && o[0] == 0);
    }
  }
  return agreeing >= min_agreeing && ((left && right) || (up && down));
}

bool DisturbPointFilter::SameSweep(const ImageReturn& a, const ImageReturn& b) const {
  return std::fabs(a.time - b.time) <= static_cast<float>(sweep_gap);
}

// The return of the cell `rows` and `columns` away from r, from r's sweep, whose range is
// nearest to `range`.
const ImageReturn* DisturbPointFilter::NearestInRange(const ImageReturn& r, int rows, int columns,
                                                      float range, float& separationSq) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  const ImageReturn* nearest = nullptr;
  for (int32_t n = image_.Neighbour(r.channel, r.column, rows, columns, separationSq); n >= 0;
       n = returns[static_cast<std::size_t>(n)].next) {
    const ImageReturn& other = returns[static_cast<std::size_t>(n)];
    if (SameSweep(r, other) && (nearest == nullptr || std::fabs(other.range - range) <
                                                          std::fabs(nearest->range - range))) {
      nearest = &other;
    }
  }
  return nearest;
}

// Whether r lies in range between its two neighbours on opposite sides, clear of both by a depth
// step, and at least one of them continues flat beyond it: the place of a return that mixes a
// near edge with what lies behind it. A surface seen at a grazing angle steps evenly instead.
bool DisturbPointFilter::Between(const ImageReturn& r, int rows, int columns) const {
  float separationSq = 0.0f;
  const ImageReturn* before = NearestInRange(r, -rows, -columns, r.range, separationSq);
  if (before == nullptr) {
    return false;
  }
  const float stepSq = std::max(Squared(static_cast<float>(range_tolerance)),
                                Squared(static_cast<float>(step_factor) * r.range) * separationSq);
  const float rise = r.range - before->range;
  if (rise * rise <= stepSq) {
    return false;
  }
  const ImageReturn* after = NearestInRange(r, rows, columns, r.range, separationSq);
  if (after == nullptr) {
    return false;
  }
  const float onward = after->range - r.range;
  if (onward * onward <= stepSq || (rise > 0.0f) != (onward > 0.0f)) {
    return false;
  }
  float beyond = 0.0f;
  const ImageReturn* first = NearestInRange(r, -2 * rows, -2 * columns, before->range, beyond);
  const ImageReturn* last = NearestInRange(r, 2 * rows, 2 * columns, after->range, beyond);
  const float noise = static_cast<float>(range_tolerance);
  const auto flat = [noise](const ImageReturn* edge, const ImageReturn* next, float stepToR) {
    return next == nullptr ||
           std::fabs(next->range - edge->range) + noise < kFlatShare * std::fabs(stepToR);
  };
  return flat(before, first, rise) || flat(after, last, onward);
}

float DisturbPointFilter::HoldDistance(const ImageReturn& r, float separationSq) const {
  return static_cast<float>(range_tolerance) +
         static_cast<float>(hold_factor) * r.range * std::sqrt(separationSq);
}

// Whether the returns on both sides of r, along a row or a column, lie in line with it.
bool DisturbPointFilter::InLine(const ImageReturn& r, int rows, int columns) const {
  float separationSq = 0.0f;
  const ImageReturn* before = NearestInRange(r, -rows, -columns, r.range, separationSq);
  const ImageReturn* after = NearestInRange(r, rows, columns, r.range, separationSq);
  return before != nullptr && after != nullptr &&
         std::fabs(before->range + after->range - 2.0f * r.range) <
             2.0f * HoldDistance(r, separationSq);
}

// Whether r belongs to a surface across the step's direction: a return of the same sweep there
// (or in r's own cell) at r's range, as on a thin pole between a near car and a far wall, or
// returns on both sides in line with it, as on a curb or a wall seen at a grazing angle. A mixed
// return has neither.
bool DisturbPointFilter::Held(const ImageReturn& r, int32_t self, int rows, int columns) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  if (InLine(r, rows, columns)) {
    return true;
  }
  for (int side = -1; side <= 1; ++side) {
    float separationSq = 0.0f;
    int32_t n = image_.Neighbour(r.channel, r.column, side * rows, side * columns, separationSq);
    const float hold = HoldDistance(r, separationSq);
    for (; n >= 0; n = returns[static_cast<std::size_t>(n)].next) {
      const ImageReturn& other = returns[static_cast<std::size_t>(n)];
      if (n != self && SameSweep(r, other) && std::fabs(other.range - r.range) < hold) {
        return true;
      }
    }
  }
  return false;
}

bool DisturbPointFilter::Mixed(const ImageReturn& r, int32_t self) const {
  return (Between(r, 0, 1) && !Held(r, self, 1, 0)) || (Between(r, 1, 0) && !Held(r, self, 0, 1));
}

void DisturbPointFilter::Judge(std::vector<_ori_point>& frame, std::size_t first) {
  const std::vector<ImageReturn>& returns = image_.Returns();
  supported_.resize(returns.size());
  for (std::size_t i = first; i < returns.size(); ++i) {
    supported_[i] = Supported(returns[i], static_cast<int32_t>(i)) ? 1 : 0;
  }
  for (std::size_t i = first; i < returns.size(); ++i) {
    const int32_t self = static_cast<int32_t>(i);
    const bool spike = supported_[i] == 0 && Surrounded(returns[i], self);
    if (!spike && !Mixed(returns[i], self)) {
      continue;
    }
    Remove(frame[returns[i].index]);
  }
}

void DisturbPointFilter::Process(std::vector<_ori_point>& frame) {
  image_.AddCall(frame, [this, &frame](std::size_t first) { Judge(frame, first); });
}

}  // namespace velmar
