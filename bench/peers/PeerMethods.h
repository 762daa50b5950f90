// The general-purpose methods a user would otherwise reach for, written here from their textbook
// definitions so that the benchmark needs no third-party point-cloud library:
//
// - statistical outlier removal: the mean distance of each point to its k nearest neighbours;
//   points whose mean exceeds the global mean of those means by more than m standard deviations
//   are outliers;
// - radius outlier removal: a point with fewer than N other points within radius r is an
//   outlier;
// - RANSAC plane segmentation: planes through random triples of points, the one with most points
//   within a distance threshold wins and its inliers are the ground.
//
// Each works on plain 3-D points; the caller extracts them from the records and writes the
// verdicts back. Scratch storage is kept in the objects, so running them frame after frame does
// not allocate once the largest frame has been seen.
#ifndef VELMAR_BENCH_PEERS_PEER_METHODS_H
#define VELMAR_BENCH_PEERS_PEER_METHODS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "KdTree.h"

namespace velmar {
namespace peers {

struct StatisticalOutlierParams {
  std::size_t k = 50;         // neighbours averaged per point
  double stddevFactor = 1.0;  // m: how many standard deviations above the mean is an outlier
};

class StatisticalOutlierRemoval {
 public:
  explicit StatisticalOutlierRemoval(StatisticalOutlierParams params = {}) : params_(params) {}

  // Sets outlier[i] to 1 for each outlier of `points` (0 otherwise); returns how many there
  // are. Uses `tree`, which must have been built from `points`.
  std::size_t Run(const std::vector<Point3>& points, const KdTree& tree,
                  std::vector<uint8_t>& outlier);

  // The global threshold on the mean neighbour distance of the last run.
  double Threshold() const { return threshold_; }

 private:
  StatisticalOutlierParams params_;
  std::vector<float> meanDistance_;
  std::vector<Neighbour> neighbours_;
  double threshold_ = 0.0;
};

struct RadiusOutlierParams {
  float radius = 0.5f;            // r, metres
  std::size_t minNeighbours = 2;  // N: fewer other points than this within r is an outlier
};

// Sets outlier[i] to 1 for each outlier of `points`; returns how many there are. `tree` must
// have been built from `points`.
std::size_t RadiusOutlierRemoval(const std::vector<Point3>& points, const KdTree& tree,
                                 const RadiusOutlierParams& params, std::vector<uint8_t>& outlier);

struct RansacPlaneParams {
  uint32_t iterations = 100;  // random triples tried, all of them (no early stop)
  float threshold = 0.2f;     // largest distance of an inlier from the plane, metres
  uint64_t seed = 1;
  // When above zero, hypotheses whose normal leans more than this many degrees from the z axis
  // are rejected: the usual way to keep a large wall from winning over the road.
  float maxTiltDegrees = 0.0f;
  // Refit the winner to all of its inliers by least squares, then select the inliers again.
  bool refit = true;
};

// A plane n . p + d = 0 with |n| = 1 and n pointing up (n.z >= 0).
struct Plane {
  float nx = 0.0f;
  float ny = 0.0f;
  float nz = 1.0f;
  float d = 0.0f;
  float Distance(const Point3& p) const { return nx * p.x + ny * p.y + nz * p.z + d; }
};

class RansacPlaneSegmentation {
 public:
  explicit RansacPlaneSegmentation(RansacPlaneParams params = {}) : params_(params) {}

  // Sets inlier[i] to 1 for the points within the threshold of the best plane; returns false
  // (and no inliers) when no plane could be formed, e.g. from fewer than three distinct points.
  // The random sequence restarts from the seed on every call, so a frame always gets the same
  // planes.
  bool Run(const std::vector<Point3>& points, std::vector<uint8_t>& inlier);

  const Plane& Best() const { return best_; }
  std::size_t InlierCount() const { return inliers_; }

 private:
  std::size_t Select(const std::vector<Point3>& points, const Plane& plane,
                     std::vector<uint8_t>* inlier) const;

  RansacPlaneParams params_;
  Plane best_;
  std::size_t inliers_ = 0;
};

}  // namespace peers
}  // namespace velmar

#endif  // VELMAR_BENCH_PEERS_PEER_METHODS_H
