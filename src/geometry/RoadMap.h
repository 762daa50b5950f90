// The road-boundary map of the region-of-interest filter: closed polygons in metres, in the frame
// the points have when they reach the filter. A point lies in the region when it is inside an odd
// number of rings (a road boundary, a hole in it for an island or a median, a patch of road inside
// that hole ...); a point on a boundary counts as inside. Rings never cross or touch.
//
// The polygons are turned once into a raster. Cells no edge touches answer from one bit; a cell
// an edge touches keeps its edges and the answer at its lower-left corner, and a point in it
// counts how many of those edges the segment from that corner to the point crosses. So a lookup
// costs one cell and the few edges of a boundary cell, whatever the size of the map.
#ifndef VELMAR_GEOMETRY_ROAD_MAP_H
#define VELMAR_GEOMETRY_ROAD_MAP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmar {

struct MapPoint {
  double x = 0.0;
  double y = 0.0;
};

struct MapRing {
  bool hole = false;               // documentation only: the region is the odd-count rule
  std::vector<MapPoint> points;    // not repeating the first at the end
  std::vector<std::size_t> lines;  // the line of each point in the file, 0 when built in code
};

class RoadMap {
 public:
  // The header line of a map file.
  static constexpr const char* kFormat = "velmar-roadmap";
  static constexpr const char* kVersion = "1";
  // Bounds that keep loading quick: vertices of a whole map, and the magnitude of a coordinate.
  static constexpr std::size_t kMaxVertices = 1000000;
  static constexpr double kMaxCoordinate = 1.0e6;

  // Parses map text and builds the lookup. On failure the map is empty and `problem` says why
  // ("line 12: ..."); Contains then answers false everywhere.
  bool Parse(std::string_view text, std::string& problem);
  // Builds the lookup from rings given in code (the tools); same checks as Parse.
  bool Build(std::vector<MapRing> rings, std::string& problem);

  // The text of a map of `rings`, with `comment` lines after the header.
  static std::string Write(const std::vector<MapRing>& rings, const std::string& comment);

  bool Contains(double x, double y) const;
  bool Empty() const { return rings_.empty(); }
  const std::vector<MapRing>& Rings() const { return rings_; }
  std::size_t CellCount() const { return corner_inside_.size(); }

 private:
  struct Edge {
    double ax, ay, bx, by;
    uint32_t prev, next;  // the neighbouring edges of the same ring
    std::size_t line;     // the line of the edge's first point
  };

  void Clear();
  bool CheckRings(std::string& problem);
  void LayOutGrid();
  template <typename Visit>
  void ForEachCell(const Edge& e, Visit visit) const;
  bool FileEdgesInCells(std::string& problem);
  void FindCornerParity();
  bool CheckCrossings(std::string& problem) const;
  bool ContainsInCell(std::size_t cell, std::size_t col, std::size_t row, double x, double y) const;

  std::vector<MapRing> rings_;
  std::vector<Edge> edges_;
  double x0_ = 0.0, y0_ = 0.0, sx_ = 1.0, sy_ = 1.0;
  double inv_sx_ = 1.0, inv_sy_ = 1.0;  // per metre, so a lookup multiplies
  std::size_t cols_ = 0, rows_ = 0;
  std::vector<uint8_t> corner_inside_;  // per cell: the answer at its lower-left corner
  std::vector<uint32_t> cell_start_;    // per cell: its edges in cell_edges_, from here
  std::vector<uint32_t> cell_edges_;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_ROAD_MAP_H
