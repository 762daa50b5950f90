// The peers themselves: outlier removal and ground segmentation of PCL and Open3D, called as
// their users call them, on the returns of one frame. Each call copies the returns into the
// library's own cloud type (part of what a host holding our records pays) and sets `flags` to
// one value per return: 1 for what an outlier filter removes, 1 for what a ground method calls
// ground. The parameters keep each library's meaning; the tables name them in its own terms.
//
// The library headers stay inside PclPeers.cpp and Open3dPeers.cpp: they are slow to compile.
#ifndef VELMAR_BENCH_PEERS_PEER_LIBRARIES_H
#define VELMAR_BENCH_PEERS_PEER_LIBRARIES_H

#include <string>
#include <vector>

#include "PeerFrame.h"
#include "Scores.h"

namespace velmar {
namespace peers {

// PCL setMeanK / setStddevMulThresh; Open3D nb_neighbors / std_ratio.
struct StatisticalParams {
  int neighbours = 0;
  double stddevs = 0.0;
};

// PCL setRadiusSearch / setMinNeighborsInRadius; Open3D radius / nb_points.
struct RadiusParams {
  double radius = 0.0;
  int neighbours = 0;
};

// RANSAC plane: inlier distance and iterations (PCL setDistanceThreshold / setMaxIterations,
// Open3D distance_threshold / num_iterations, with ransac_n 3). A positive tilt makes PCL fit a
// plane perpendicular to z within that angle (SACMODEL_PERPENDICULAR_PLANE).
struct PlaneParams {
  double distance = 0.0;
  int iterations = 0;
  double maxTiltDegrees = 0.0;
};

// PCL's progressive morphological filter: setCellSize, setMaxWindowSize, setSlope,
// setInitialDistance, setMaxDistance. `exact` picks ProgressiveMorphologicalFilter, otherwise
// ApproximateProgressiveMorphologicalFilter, which works on a grid of cell minima.
struct MorphologyParams {
  float cellSize = 1.0f;
  int maxWindow = 0;
  float slope = 0.0f;
  float initialDistance = 0.0f;
  float maxDistance = 0.0f;
  bool exact = false;
};

// Flags for `count` returns: the returns listed in `indices` (`listed` true) or all the others.
template <typename Index>
void FlagIndices(std::size_t count, const std::vector<Index>& indices, bool listed, Flags& flags) {
  flags.assign(count, listed ? 0 : 1);
  for (const Index i : indices) {
    flags[static_cast<std::size_t>(i)] = listed ? 1 : 0;
  }
}

namespace pcl_peers {
std::string Version();
void StatisticalOutliers(const Points& points, const StatisticalParams& params, Flags& flags);
void RadiusOutliers(const Points& points, const RadiusParams& params, Flags& flags);
void PlaneGround(const Points& points, const PlaneParams& params, Flags& flags);
void MorphologicalGround(const Points& points, const MorphologyParams& params, Flags& flags);
}  // namespace pcl_peers

namespace open3d_peers {
std::string Version();
void StatisticalOutliers(const Points& points, const StatisticalParams& params, Flags& flags);
void RadiusOutliers(const Points& points, const RadiusParams& params, Flags& flags);
// Seeds Open3D's random engine before every call, so that a frame always gives the same plane.
void PlaneGround(const Points& points, const PlaneParams& params, Flags& flags);
}  // namespace open3d_peers

}  // namespace peers
}  // namespace velmar

#endif  // VELMAR_BENCH_PEERS_PEER_LIBRARIES_H
