// The region a recording's ground returns cover, as the rings of a road-boundary map: the returns
// are marked on a grid of cells with the ground between neighbouring channels, small gaps closed,
// the largest connected piece is kept, and its outline (outer boundary and holes) is traced along
// cell edges and simplified.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_GROUND_REGION_H
#define VELMAR_TOOLS_VELMAR_ALGO_GROUND_REGION_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "geometry/RoadMap.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

class GroundRegion {
 public:
  // `cell` metres per cell over +-`extent` metres around the sensor.
  GroundRegion(double cell, double extent);

  // Marks the cells of the returns whose truth is ground, and the cells between neighbouring
  // channels of a column that both reach the ground.
  void AddFrame(const std::vector<_ori_point>& frame);
  std::size_t GroundReturns() const { return returns_; }
  // The outline, simplified to within `tolerance` metres where that keeps the rings apart.
  std::vector<MapRing> Rings(int closeCells, double tolerance) const;

 private:
  void Mark(double x, double y);

  double cell_;
  double extent_;
  int side_;
  std::vector<uint8_t> cells_;
  std::size_t returns_ = 0;
};

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_GROUND_REGION_H
