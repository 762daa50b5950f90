#include "geometry/RoadMap.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "framework/DataText.h"

namespace velmar {
namespace {

// Raster size: about this many cells per edge, within these bounds.
constexpr double kCellsPerEdge = 4.0;
constexpr double kMinCells = 4096.0;
constexpr double kMaxCells = 4194304.0;
constexpr std::size_t kMaxCellsPerSide = 8192;
// The grid's origin sits these fractions of a cell before the map's lowest corner, so that lines
// of the grid do not run through the round coordinates people and tools write.
constexpr double kOriginFractionX = 0.5123456789;
constexpr double kOriginFractionY = 0.5314159265;
// Cells are widened by this fraction of a cell when edges are filed, so that rounding can never
// leave out a cell an edge passes through.
constexpr double kFilingMargin = 1e-9;
// Bound of the edges filed in all cells together (an edge is filed once per cell it crosses).
constexpr std::size_t kMaxFiledEdges = std::size_t{16} << 20;

double Orient(double ax, double ay, double bx, double by, double cx, double cy) {
  return (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
}

bool Within(double v, double a, double b) {
  return v >= std::min(a, b) && v <= std::max(a, b);
}

bool OnSegment(double ax, double ay, double bx, double by, double px, double py) {
  return Orient(ax, ay, bx, by, px, py) == 0.0 && Within(px, ax, bx) && Within(py, ay, by);
}

// Whether two segments share any point, touching and overlapping included.
bool SegmentsMeet(double ax, double ay, double bx, double by, double cx, double cy, double dx,
                  double dy) {
  const double o1 = Orient(ax, ay, bx, by, cx, cy);
  const double o2 = Orient(ax, ay, bx, by, dx, dy);
  const double o3 = Orient(cx, cy, dx, dy, ax, ay);
  const double o4 = Orient(cx, cy, dx, dy, bx, by);
  if (((o1 > 0 && o2 < 0) || (o1 < 0 && o2 > 0)) && ((o3 > 0 && o4 < 0) || (o3 < 0 && o4 > 0))) {
    return true;
  }
  return OnSegment(ax, ay, bx, by, cx, cy) || OnSegment(ax, ay, bx, by, dx, dy) ||
         OnSegment(cx, cy, dx, dy, ax, ay) || OnSegment(cx, cy, dx, dy, bx, by);
}

std::size_t Clamped(double index, std::size_t count) {
  if (!(index > 0.0)) {
    return 0;
  }
  return std::min(static_cast<std::size_t>(index), count - 1);
}

}  // namespace

void RoadMap::Clear() {
  rings_.clear();
  edges_.clear();
  corner_inside_.clear();
  cell_start_.clear();
  cell_edges_.clear();
  cols_ = rows_ = 0;
}

bool RoadMap::Parse(std::string_view text, std::string& problem) {
  Clear();
  DataTextReader reader(text);
  if (!reader.ReadHeader(kFormat, kVersion, problem)) {
    return false;
  }
  std::vector<MapRing> rings;
  std::vector<std::string_view> fields;
  bool inRing = false;
  std::size_t ringLine = 0;
  std::size_t vertices = 0;
  while (reader.Next(fields)) {
    const std::string_view word = fields[0];
    if (word == "polygon" || word == "hole") {
      if (inRing) {
        problem = reader.Problem("a ring begins before the ring of line " +
                                 std::to_string(ringLine) + " ends");
        return false;
      }
      rings.emplace_back();
      rings.back().hole = word == "hole";
      inRing = true;
      ringLine = reader.Line();
    } else if (word == "end") {
      if (!inRing) {
        problem = reader.Problem("\"end\" with no ring begun");
        return false;
      }
      inRing = false;
    } else {
      MapPoint p;
      if (!inRing) {
        problem = reader.Problem("a point outside a ring (begin one with \"polygon\" or \"hole\")");
        return false;
      }
      if (fields.size() != 2 || !ParseFiniteNumber(fields[0], p.x) ||
          !ParseFiniteNumber(fields[1], p.y)) {
        problem = reader.Problem("expected two numbers \"x y\"");
        return false;
      }
      if (std::fabs(p.x) > kMaxCoordinate || std::fabs(p.y) > kMaxCoordinate) {
        problem = reader.Problem("coordinate beyond 1000 km");
        return false;
      }
      if (++vertices > kMaxVertices) {
        problem = reader.Problem("more than " + std::to_string(kMaxVertices) + " points");
        return false;
      }
      rings.back().points.push_back(p);
      rings.back().lines.push_back(reader.Line());
    }
    if ((word == "polygon" || word == "hole" || word == "end") && fields.size() != 1) {
      problem = reader.Problem("\"" + std::string(word) + "\" stands alone on its line");
      return false;
    }
  }
  if (inRing) {
    problem = "the ring of line " + std::to_string(ringLine) + " is not closed by \"end\"";
    return false;
  }
  return Build(std::move(rings), problem);
}

std::string RoadMap::Write(const std::vector<MapRing>& rings, const std::string& comment) {
  std::string text = DataTextHeader(kFormat, kVersion, comment);
  char line[64];
  for (const MapRing& ring : rings) {
    text += ring.hole ? "hole\n" : "polygon\n";
    for (const MapPoint& p : ring.points) {
      std::snprintf(line, sizeof(line), "%.3f %.3f\n", p.x, p.y);
      text += line;
    }
    text += "end\n";
  }
  return text;
}

bool RoadMap::Build(std::vector<MapRing> rings, std::string& problem) {
  Clear();
  rings_ = std::move(rings);
  if (!CheckRings(problem)) {
    Clear();
    return false;
  }
  LayOutGrid();
  if (!FileEdgesInCells(problem) || !CheckCrossings(problem)) {
    Clear();
    return false;
  }
  FindCornerParity();
  return true;
}

// Drops repeated points (a ring may repeat its first point at its end) and makes the edges.
bool RoadMap::CheckRings(std::string& problem) {
  if (rings_.empty()) {
    problem = "holds no ring";
    return false;
  }
  for (MapRing& ring : rings_) {
    ring.lines.resize(ring.points.size(), 0);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < ring.points.size(); ++i) {
      const MapPoint& p = ring.points[i];
      if (kept > 0 && p.x == ring.points[kept - 1].x && p.y == ring.points[kept - 1].y) {
        continue;
      }
      ring.points[kept] = p;
      ring.lines[kept++] = ring.lines[i];
    }
    if (kept > 1 && ring.points[kept - 1].x == ring.points[0].x &&
        ring.points[kept - 1].y == ring.points[0].y) {
      --kept;
    }
    ring.points.resize(kept);
    ring.lines.resize(kept);
    if (kept < 3) {
      const std::size_t line = ring.lines.empty() ? 0 : ring.lines.front();
      problem = "line " + std::to_string(line) + ": a ring needs three distinct points";
      return false;
    }
    const auto first = static_cast<uint32_t>(edges_.size());
    const auto count = static_cast<uint32_t>(kept);
    for (uint32_t i = 0; i < count; ++i) {
      const MapPoint& a = ring.points[i];
      const MapPoint& b = ring.points[(i + 1) % count];
      edges_.push_back({a.x, a.y, b.x, b.y, first + (i + count - 1) % count,
                        first + (i + 1) % count, ring.lines[i]});
    }
  }
  return true;
}

void RoadMap::LayOutGrid() {
  double minX = edges_[0].ax, maxX = minX, minY = edges_[0].ay, maxY = minY;
  for (const Edge& e : edges_) {
    minX = std::min(minX, e.ax);
    maxX = std::max(maxX, e.ax);
    minY = std::min(minY, e.ay);
    maxY = std::max(maxY, e.ay);
  }
  // A map flat along one axis has crossing edges and is refused later; keep the grid sound.
  const double width = std::max(maxX - minX, 1e-3);
  const double height = std::max(maxY - minY, 1e-3);
  const double cells =
      std::clamp(kCellsPerEdge * static_cast<double>(edges_.size()), kMinCells, kMaxCells);
  const double side = std::sqrt(width * height / cells);
  const auto sideCells = [](double extent, double cell) {
    return std::min(static_cast<std::size_t>(std::ceil(extent / cell)), kMaxCellsPerSide - 1) + 1;
  };
  cols_ = sideCells(width, side);
  rows_ = sideCells(height, side);
  sx_ = width / static_cast<double>(cols_ - 1);
  sy_ = height / static_cast<double>(rows_ - 1);
  inv_sx_ = 1.0 / sx_;
  inv_sy_ = 1.0 / sy_;
  x0_ = minX - kOriginFractionX * sx_;
  y0_ = minY - kOriginFractionY * sy_;
}

// Calls visit(cell) for every cell the edge passes through, column by column.
template <typename Visit>
void RoadMap::ForEachCell(const Edge& e, Visit visit) const {
  const double lowX = std::min(e.ax, e.bx);
  const double highX = std::max(e.ax, e.bx);
  const std::size_t firstCol = Clamped((lowX - x0_) / sx_, cols_);
  const std::size_t lastCol = Clamped((highX - x0_) / sx_, cols_);
  const double marginY = kFilingMargin * sy_;
  for (std::size_t col = firstCol; col <= lastCol; ++col) {
    const double left = std::max(lowX, x0_ + static_cast<double>(col) * sx_);
    const double right = std::min(highX, x0_ + static_cast<double>(col + 1) * sx_);
    double y1 = e.ay, y2 = e.by;
    if (e.bx != e.ax) {
      const double slope = (e.by - e.ay) / (e.bx - e.ax);
      y1 = e.ay + (left - e.ax) * slope;
      y2 = e.ay + (right - e.ax) * slope;
    }
    const std::size_t firstRow = Clamped((std::min(y1, y2) - marginY - y0_) / sy_, rows_);
    const std::size_t lastRow = Clamped((std::max(y1, y2) + marginY - y0_) / sy_, rows_);
    for (std::size_t row = firstRow; row <= lastRow; ++row) {
      visit(row * cols_ + col);
    }
  }
}

bool RoadMap::FileEdgesInCells(std::string& problem) {
  const std::size_t cells = cols_ * rows_;
  cell_start_.assign(cells + 1, 0);
  for (const Edge& e : edges_) {
    ForEachCell(e, [this](std::size_t cell) { ++cell_start_[cell + 1]; });
  }
  for (std::size_t c = 0; c < cells; ++c) {
    cell_start_[c + 1] += cell_start_[c];
  }
  if (cell_start_[cells] > kMaxFiledEdges) {
    problem = "edges too long for the number of points (split long edges)";
    return false;
  }
  cell_edges_.resize(cell_start_[cells]);
  std::vector<uint32_t> fill(cell_start_.begin(), cell_start_.end() - 1);
  for (uint32_t i = 0; i < edges_.size(); ++i) {
    ForEachCell(edges_[i], [&](std::size_t cell) { cell_edges_[fill[cell]++] = i; });
  }
  return true;
}

// The answer at every cell's lower-left corner: the parity of the edges that the grid line
// through the corner crosses to its left.
void RoadMap::FindCornerParity() {
  corner_inside_.assign(cols_ * rows_, 0);
  for (const Edge& e : edges_) {
    const double low = std::min(e.ay, e.by);
    const double high = std::max(e.ay, e.by);
    const auto firstRow = static_cast<std::ptrdiff_t>(std::ceil((low - y0_) / sy_));
    const auto lastRow = static_cast<std::ptrdiff_t>(std::floor((high - y0_) / sy_));
    for (std::ptrdiff_t row = std::max<std::ptrdiff_t>(firstRow, 0);
         row <= std::min<std::ptrdiff_t>(lastRow, static_cast<std::ptrdiff_t>(rows_) - 1); ++row) {
      const double y = y0_ + static_cast<double>(row) * sy_;
      if (y <= low || y >= high) {
        continue;
      }
      const double x = e.ax + (y - e.ay) * (e.bx - e.ax) / (e.by - e.ay);
      // The first corner to the right of the crossing, and every one after it, flips.
      const double firstRight = std::floor((x - x0_) / sx_) + 1.0;
      if (firstRight < static_cast<double>(cols_)) {
        const std::size_t col = firstRight > 0.0 ? static_cast<std::size_t>(firstRight) : 0;
        corner_inside_[static_cast<std::size_t>(row) * cols_ + col] ^= 1;
      }
    }
  }
  for (std::size_t row = 0; row < rows_; ++row) {
    uint8_t* line = &corner_inside_[row * cols_];
    for (std::size_t col = 1; col < cols_; ++col) {
      line[col] ^= line[col - 1];
    }
  }
}

// Two edges that meet anywhere but at the point they share make a map whose inside is not
// defined; every such pair lies together in some cell.
bool RoadMap::CheckCrossings(std::string& problem) const {
  for (std::size_t cell = 0; cell + 1 < cell_start_.size(); ++cell) {
    for (uint32_t i = cell_start_[cell]; i < cell_start_[cell + 1]; ++i) {
      const Edge& a = edges_[cell_edges_[i]];
      for (uint32_t j = i + 1; j < cell_start_[cell + 1]; ++j) {
        const uint32_t other = cell_edges_[j];
        const Edge& b = edges_[other];
        bool bad = false;
        if (other == a.next || other == a.prev) {
          // Neighbours share a point; they are wrong only when one folds back along the other.
          const Edge& first = other == a.next ? a : b;
          const Edge& second = other == a.next ? b : a;
          const double alongX = (first.bx - first.ax) * (second.bx - second.ax);
          const double alongY = (first.by - first.ay) * (second.by - second.ay);
          bad = Orient(first.ax, first.ay, first.bx, first.by, second.bx, second.by) == 0.0 &&
                alongX + alongY < 0.0;
        } else {
          bad = SegmentsMeet(a.ax, a.ay, a.bx, a.by, b.ax, b.ay, b.bx, b.by);
        }
        if (bad) {
          const std::size_t lineA = std::min(a.line, b.line);
          const std::size_t lineB = std::max(a.line, b.line);
          problem = "line " + std::to_string(lineA) +
                    ": the edge from here meets the edge of line " + std::to_string(lineB) +
                    " (rings may not cross or touch)";
          return false;
        }
      }
    }
  }
  return true;
}

bool RoadMap::Contains(double x, double y) const {
  if (corner_inside_.empty()) {
    return false;
  }
  const double fx = (x - x0_) * inv_sx_;
  const double fy = (y - y0_) * inv_sy_;
  if (!(fx >= 0.0 && fy >= 0.0 && fx < static_cast<double>(cols_) &&
        fy < static_cast<double>(rows_))) {
    return false;  // outside the grid, and NaN
  }
  const auto col = static_cast<std::size_t>(fx);
  const auto row = static_cast<std::size_t>(fy);
  const std::size_t cell = row * cols_ + col;
  if (cell_start_[cell] == cell_start_[cell + 1]) {
    return corner_inside_[cell] != 0;
  }
  return ContainsInCell(cell, col, row, x, y);
}

// From the cell's corner, whose answer is known, to the point: each edge crossed flips the
// answer. An end of an edge lying on that segment counts on one side only, so that two edges
// meeting there count once between them when they pass through and not at all when they turn back.
bool RoadMap::ContainsInCell(std::size_t cell, std::size_t col, std::size_t row, double x,
                             double y) const {
  const double cx = x0_ + static_cast<double>(col) * sx_;
  const double cy = y0_ + static_cast<double>(row) * sy_;
  bool inside = corner_inside_[cell] != 0;
  for (uint32_t i = cell_start_[cell]; i < cell_start_[cell + 1]; ++i) {
    const Edge& e = edges_[cell_edges_[i]];
    if (OnSegment(e.ax, e.ay, e.bx, e.by, x, y)) {
      return true;
    }
    const bool sideA = Orient(cx, cy, x, y, e.ax, e.ay) > 0.0;
    const bool sideB = Orient(cx, cy, x, y, e.bx, e.by) > 0.0;
    if (sideA == sideB) {
      continue;
    }
    const double corner = Orient(e.ax, e.ay, e.bx, e.by, cx, cy);
    const double point = Orient(e.ax, e.ay, e.bx, e.by, x, y);
    if ((corner > 0.0 && point < 0.0) || (corner < 0.0 && point > 0.0)) {
      inside = !inside;
    }
  }
  return inside;
}

}  // namespace velmar
