// Keeps the points inside a region given by a road-boundary map (and, optionally, inside a height
// band) and removes the rest; inverted, it removes what lies inside. It runs after the coordinate
// transform (31), so the map is drawn in the frame the transform produces.
#ifndef VELMAR_GEOMETRY_FILTER_POINTS_OF_INTEREST_H
#define VELMAR_GEOMETRY_FILTER_POINTS_OF_INTEREST_H

#include <string>

#include "framework/Algorithm.h"
#include "geometry/RoadMap.h"

namespace velmar {

class FilterPointsOfInterest : public Algorithm {
 public:
  using Algorithm::Algorithm;

  // A map file larger than this is refused unread.
  static constexpr std::size_t kMaxMapBytes = std::size_t{32} << 20;
  // Heights are metres within +-this.
  static constexpr double kHeightLimit = 1000.0;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
  // Reads the parameters and loads the map; a map that cannot be loaded leaves frames unchanged.
  void ParseParams() override;

  bool MapLoaded() const { return !map_.Empty(); }

  std::string road_map_boundary_path = "map/roadmap_kelda-v1.txt";
  int32_t invert_region = 0;  // non-zero: remove the points inside the region instead
  double min_height = -kHeightLimit;
  double max_height = kHeightLimit;

 private:
  void ReadHeightBand();
  void LoadMap();

  RoadMap map_;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_FILTER_POINTS_OF_INTEREST_H
