#include "GroundRegion.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

using Grid = std::vector<uint8_t>;

// Each cell set when any cell within `radius` (a square) is set, or, eroding, only when all are.
Grid Morph(const Grid& in, int side, int radius, bool dilate) {
  Grid out(in.size(), 0);
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      bool any = false, all = true;
      for (int dy = -radius; dy <= radius; ++dy) {
        for (int dx = -radius; dx <= radius; ++dx) {
          const int nx = x + dx, ny = y + dy;
          const bool set = nx >= 0 && ny >= 0 && nx < side && ny < side && in[ny * side + nx];
          any = any || set;
          all = all && set;
        }
      }
      out[y * side + x] = (dilate ? any : all) ? 1 : 0;
    }
  }
  return out;
}

// Keeps the largest 4-connected piece of set cells.
Grid LargestPiece(const Grid& in, int side) {
  std::vector<int> piece(in.size(), -1);
  std::vector<std::size_t> sizes;
  std::vector<int> stack;
  for (int start = 0; start < side * side; ++start) {
    if (!in[start] || piece[start] >= 0) {
      continue;
    }
    const int id = static_cast<int>(sizes.size());
    sizes.push_back(0);
    stack.push_back(start);
    piece[start] = id;
    while (!stack.empty()) {
      const int c = stack.back();
      stack.pop_back();
      ++sizes[id];
      const int x = c % side, y = c / side;
      const int next[4][2] = {{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}};
      for (const auto& n : next) {
        const int k = n[1] * side + n[0];
        if (n[0] >= 0 && n[1] >= 0 && n[0] < side && n[1] < side && in[k] && piece[k] < 0) {
          piece[k] = id;
          stack.push_back(k);
        }
      }
    }
  }
  Grid out(in.size(), 0);
  if (sizes.empty()) {
    return out;
  }
  const int best = static_cast<int>(std::max_element(sizes.begin(), sizes.end()) - sizes.begin());
  for (std::size_t c = 0; c < in.size(); ++c) {
    out[c] = piece[c] == best ? 1 : 0;
  }
  return out;
}

// Two cells touching only at a corner would make two rings meet at a point: fill one of the
// other two cells of that 2x2 block until none is left.
void SeparateCorners(Grid& g, int side) {
  bool changed = true;
  while (changed) {
    changed = false;
    for (int y = 0; y + 1 < side; ++y) {
      for (int x = 0; x + 1 < side; ++x) {
        const uint8_t a = g[y * side + x], b = g[y * side + x + 1];
        const uint8_t c = g[(y + 1) * side + x], d = g[(y + 1) * side + x + 1];
        if (a == d && b == c && a != b) {
          g[a ? y * side + x + 1 : y * side + x] = 1;
          changed = true;
        }
      }
    }
  }
}

double Cross(const MapPoint& o, const MapPoint& a, const MapPoint& b) {
  return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

// Douglas-Peucker on a closed ring, anchored at its first point and its farthest point.
void Simplify(const std::vector<MapPoint>& in, std::size_t first, std::size_t last,
              double tolerance, std::vector<bool>& keep) {
  if (last <= first + 1) {
    return;
  }
  const MapPoint& a = in[first];
  const MapPoint& b = in[last % in.size()];
  const double length = std::hypot(b.x - a.x, b.y - a.y);
  double worst = -1.0;
  std::size_t at = first;
  for (std::size_t i = first + 1; i < last; ++i) {
    const double d = length > 0.0 ? std::fabs(Cross(a, b, in[i])) / length
                                  : std::hypot(in[i].x - a.x, in[i].y - a.y);
    if (d > worst) {
      worst = d;
      at = i;
    }
  }
  if (worst > tolerance) {
    keep[at] = true;
    Simplify(in, first, at, tolerance, keep);
    Simplify(in, at, last, tolerance, keep);
  }
}

std::vector<MapPoint> Simplified(const std::vector<MapPoint>& ring, double tolerance) {
  std::vector<bool> keep(ring.size(), false);
  std::size_t far = 0;
  double farthest = -1.0;
  for (std::size_t i = 0; i < ring.size(); ++i) {
    const double d = std::hypot(ring[i].x - ring[0].x, ring[i].y - ring[0].y);
    if (d > farthest) {
      farthest = d;
      far = i;
    }
  }
  keep[0] = keep[far] = true;
  Simplify(ring, 0, far, tolerance, keep);
  Simplify(ring, far, ring.size(), tolerance, keep);
  std::vector<MapPoint> out;
  for (std::size_t i = 0; i < ring.size(); ++i) {
    if (keep[i]) {
      out.push_back(ring[i]);
    }
  }
  return out;
}

}  // namespace

GroundRegion::GroundRegion(double cell, double extent)
    : cell_(cell), extent_(extent), side_(static_cast<int>(std::ceil(2.0 * extent / cell))) {
  cells_.assign(static_cast<std::size_t>(side_) * side_, 0);
}

void GroundRegion::Mark(double x, double y) {
  const double fx = (x + extent_) / cell_, fy = (y + extent_) / cell_;
  if (fx >= 0.0 && fy >= 0.0 && fx < side_ && fy < side_) {
    cells_[static_cast<std::size_t>(fy) * side_ + static_cast<std::size_t>(fx)] = 1;
  }
}

// Neighbouring channels of one column that both reach the ground cover the ground between them
// too: far from the sensor the scan rings lie metres apart.
void GroundRegion::AddFrame(const std::vector<_ori_point>& frame) {
  constexpr double kMaxGap = 10.0;
  const auto ground = [](const _ori_point& p) {
    return p.distance > 0.0 && sim::TruthKindOf(p) == sim::TruthKind::kGround &&
           std::isfinite(p.x) && std::isfinite(p.y);
  };
  for (std::size_t k = 0; k < frame.size(); ++k) {
    const _ori_point& p = frame[k];
    if (!ground(p)) {
      continue;
    }
    ++returns_;
    Mark(p.x, p.y);
    if (k + 1 == frame.size() || !ground(frame[k + 1]) || frame[k + 1].hor_angle != p.hor_angle) {
      continue;
    }
    const _ori_point& q = frame[k + 1];
    const double gap = std::hypot(q.x - p.x, q.y - p.y);
    if (gap > kMaxGap) {
      continue;
    }
    const int steps = static_cast<int>(std::ceil(2.0 * gap / cell_));
    for (int s = 1; s < steps; ++s) {
      const double t = static_cast<double>(s) / steps;
      Mark(p.x + t * (q.x - p.x), p.y + t * (q.y - p.y));
    }
  }
}

std::vector<MapRing> GroundRegion::Rings(int closeCells, double tolerance) const {
  Grid g = Morph(Morph(cells_, side_, closeCells, true), side_, closeCells, false);
  g = LargestPiece(g, side_);
  SeparateCorners(g, side_);
  // Boundary edges between grid corners, with the region on their left; after SeparateCorners a
  // corner starts at most one edge.
  const int corners = side_ + 1;
  std::map<int, int> next;
  const auto set = [&](int x, int y) {
    return x >= 0 && y >= 0 && x < side_ && y < side_ && g[y * side_ + x];
  };
  for (int y = 0; y < side_; ++y) {
    for (int x = 0; x < side_; ++x) {
      if (!set(x, y)) {
        continue;
      }
      if (!set(x, y - 1))
        next[y * corners + x] = y * corners + x + 1;
      if (!set(x + 1, y))
        next[y * corners + x + 1] = (y + 1) * corners + x + 1;
      if (!set(x, y + 1))
        next[(y + 1) * corners + x + 1] = (y + 1) * corners + x;
      if (!set(x - 1, y))
        next[(y + 1) * corners + x] = y * corners + x;
    }
  }
  std::vector<MapRing> rings;
  while (!next.empty()) {
    std::vector<MapPoint> loop;
    int corner = next.begin()->first;
    while (next.count(corner) != 0) {
      loop.push_back({(corner % corners) * cell_ - extent_, (corner / corners) * cell_ - extent_});
      const int to = next[corner];
      next.erase(corner);
      corner = to;
    }
    // Only the corners where the outline turns.
    std::vector<MapPoint> turns;
    for (std::size_t i = 0; i < loop.size(); ++i) {
      const MapPoint& prev = loop[(i + loop.size() - 1) % loop.size()];
      const MapPoint& next2 = loop[(i + 1) % loop.size()];
      if (Cross(prev, loop[i], next2) != 0.0) {
        turns.push_back(loop[i]);
      }
    }
    double area = 0.0;
    for (std::size_t i = 0; i < turns.size(); ++i) {
      area += Cross({0.0, 0.0}, turns[i], turns[(i + 1) % turns.size()]);
    }
    MapRing ring;
    ring.hole = area < 0.0;
    ring.points = turns;
    rings.push_back(ring);
  }
  // Simplified rings, unless simplifying made them meet.
  std::vector<MapRing> simple = rings;
  for (MapRing& ring : simple) {
    std::vector<MapPoint> points = Simplified(ring.points, tolerance);
    if (points.size() >= 3) {
      ring.points = points;
    }
  }
  RoadMap check;
  std::string problem;
  return check.Build(simple, problem) ? simple : rings;
}

}  // namespace tools
}  // namespace velmar
