// A static 3-D k-d tree over the returns of one frame, for the neighbour searches of the
// general-purpose outlier filters that peers_bench compares our filters with. It is built once
// per frame into storage that is kept from frame to frame, and answers k-nearest and
// fixed-radius queries without allocating, so the peers are timed on their searches and not on
// the allocator.
#ifndef VELMAR_BENCH_PEERS_KD_TREE_H
#define VELMAR_BENCH_PEERS_KD_TREE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmar {
namespace peers {

struct Point3 {
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;
};

inline float SquaredDistance(const Point3& a, const Point3& b) {
  const float dx = a.x - b.x;
  const float dy = a.y - b.y;
  const float dz = a.z - b.z;
  return dx * dx + dy * dy + dz * dz;
}

struct Neighbour {
  float squaredDistance = 0.0f;
  uint32_t index = 0;  // index of the point in the array the tree was built from
};

class KdTree {
 public:
  // Points per leaf: small enough that a leaf is a few cache lines, large enough that the tree
  // stays shallow (about 15 levels for a 278,016-point frame).
  static constexpr uint32_t kLeafSize = 8;

  // Indexes `points`; the tree keeps its own reordered copy, so `points` may change afterwards.
  // Storage is reused from one build to the next.
  void Build(const std::vector<Point3>& points);

  std::size_t Size() const { return points_.size(); }

  // The up to `k` points nearest to `query`, leaving out the point of index `skip` (pass
  // kNoSkip to keep every point), written to `out[0..n)` nearest first; returns n. `out` must
  // hold at least k entries.
  std::size_t Nearest(const Point3& query, std::size_t k, Neighbour* out,
                      uint32_t skip = kNoSkip) const;

  // How many points lie within `radius` of `query` (distance <= radius), leaving out `skip`;
  // the count stops at `limit`, which is all a threshold test needs.
  std::size_t CountWithin(const Point3& query, float radius, std::size_t limit,
                          uint32_t skip = kNoSkip) const;

  static constexpr uint32_t kNoSkip = 0xFFFFFFFFu;

 private:
  struct Node {
    uint32_t begin = 0;  // range of points_ below this node
    uint32_t end = 0;
    uint32_t left = 0;  // children; 0 for a leaf (the root is never a child)
    uint32_t right = 0;
    float split = 0.0f;
    uint32_t axis = 0;
  };

  struct KnnState;
  struct RadiusState;

  uint32_t BuildNode(const std::vector<Point3>& points, uint32_t begin, uint32_t end);
  void SearchNearest(uint32_t node, KnnState& state) const;
  void SearchRadius(uint32_t node, RadiusState& state) const;

  std::vector<Point3> points_;     // the points in tree order
  std::vector<uint32_t> indices_;  // original index of each point of points_
  std::vector<Node> nodes_;
};

}  // namespace peers
}  // namespace velmar

#endif  // VELMAR_BENCH_PEERS_KD_TREE_H
