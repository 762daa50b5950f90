#include "KdTree.h"

#include <algorithm>
#include <limits>

namespace velmar {
namespace peers {
namespace {

inline float Coordinate(const Point3& p, uint32_t axis) {
  return axis == 0 ? p.x : (axis == 1 ? p.y : p.z);
}

}  // namespace

// The k best candidates so far are kept as a max-heap on distance in the caller's buffer, so the
// worst of them, the pruning bound, is always at the front.
struct KdTree::KnnState {
  Point3 query;
  std::size_t k;
  uint32_t skip;
  Neighbour* heap;
  std::size_t count;

  float Bound() const {
    return count < k ? std::numeric_limits<float>::infinity() : heap[0].squaredDistance;
  }
  void Offer(float d2, uint32_t index) {
    auto farther = [](const Neighbour& a, const Neighbour& b) {
      return a.squaredDistance < b.squaredDistance;
    };
    if (count < k) {
      heap[count++] = Neighbour{d2, index};
      std::push_heap(heap, heap + count, farther);
    } else if (d2 < heap[0].squaredDistance) {
      std::pop_heap(heap, heap + count, farther);
      heap[count - 1] = Neighbour{d2, index};
      std::push_heap(heap, heap + count, farther);
    }
  }
};

struct KdTree::RadiusState {
  Point3 query;
  float squaredRadius;
  std::size_t limit;
  uint32_t skip;
  std::size_t count;
};

void KdTree::Build(const std::vector<Point3>& points) {
  indices_.resize(points.size());
  for (std::size_t i = 0; i < indices_.size(); ++i) {
    indices_[i] = static_cast<uint32_t>(i);
  }
  nodes_.clear();
  // A balanced tree over n points with leaves of kLeafSize has fewer than 4n / kLeafSize nodes.
  nodes_.reserve(4 * points.size() / kLeafSize + 1);
  if (!points.empty()) {
    BuildNode(points, 0, static_cast<uint32_t>(points.size()));
  }
  // Only the index permutation moves while building; the points are then laid out in tree
  // order once, so that a leaf's points are contiguous for the searches.
  points_.resize(points.size());
  for (std::size_t i = 0; i < indices_.size(); ++i) {
    points_[i] = points[indices_[i]];
  }
}

uint32_t KdTree::BuildNode(const std::vector<Point3>& points, uint32_t begin, uint32_t end) {
  const uint32_t id = static_cast<uint32_t>(nodes_.size());
  nodes_.push_back(Node{begin, end, 0, 0, 0.0f, 0});
  if (end - begin <= kLeafSize) {
    return id;
  }
  // Split the widest extent at its median: cells stay compact whatever the shape of the scene
  // (long thin walls, the flat road), which keeps the pruning effective.
  Point3 lo = points[indices_[begin]];
  Point3 hi = lo;
  for (uint32_t i = begin + 1; i < end; ++i) {
    const Point3& p = points[indices_[i]];
    lo = Point3{std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)};
    hi = Point3{std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)};
  }
  const float ex = hi.x - lo.x;
  const float ey = hi.y - lo.y;
  const float ez = hi.z - lo.z;
  const uint32_t axis = (ex >= ey && ex >= ez) ? 0 : (ey >= ez ? 1 : 2);
  const uint32_t mid = begin + (end - begin) / 2;
  std::nth_element(indices_.begin() + begin, indices_.begin() + mid, indices_.begin() + end,
                   [&](uint32_t a, uint32_t b) {
                     return Coordinate(points[a], axis) < Coordinate(points[b], axis);
                   });
  const float split = Coordinate(points[indices_[mid]], axis);
  const uint32_t left = BuildNode(points, begin, mid);
  const uint32_t right = BuildNode(points, mid, end);
  Node& node = nodes_[id];
  node.left = left;
  node.right = right;
  node.split = split;
  node.axis = axis;
  return id;
}

std::size_t KdTree::Nearest(const Point3& query, std::size_t k, Neighbour* out,
                            uint32_t skip) const {
  if (k == 0 || nodes_.empty()) {
    return 0;
  }
  KnnState state{query, k, skip, out, 0};
  SearchNearest(0, state);
  std::sort_heap(out, out + state.count, [](const Neighbour& a, const Neighbour& b) {
    return a.squaredDistance < b.squaredDistance;
  });
  return state.count;
}

void KdTree::SearchNearest(uint32_t id, KnnState& state) const {
  const Node& node = nodes_[id];
  if (node.left == 0) {
    for (uint32_t i = node.begin; i < node.end; ++i) {
      if (indices_[i] == state.skip) {
        continue;
      }
      state.Offer(SquaredDistance(points_[i], state.query), indices_[i]);
    }
    return;
  }
  // Points at the split value can sit on either side, so the far side is visited whenever the
  // splitting plane is not farther than the current bound.
  const float diff = Coordinate(state.query, node.axis) - node.split;
  const uint32_t nearSide = diff < 0.0f ? node.left : node.right;
  const uint32_t farSide = diff < 0.0f ? node.right : node.left;
  SearchNearest(nearSide, state);
  if (diff * diff <= state.Bound()) {
    SearchNearest(farSide, state);
  }
}

std::size_t KdTree::CountWithin(const Point3& query, float radius, std::size_t limit,
                                uint32_t skip) const {
  if (limit == 0 || nodes_.empty() || !(radius >= 0.0f)) {
    return 0;
  }
  RadiusState state{query, radius * radius, limit, skip, 0};
  SearchRadius(0, state);
  return state.count;
}

void KdTree::SearchRadius(uint32_t id, RadiusState& state) const {
  const Node& node = nodes_[id];
  if (node.left == 0) {
    for (uint32_t i = node.begin; i < node.end && state.count < state.limit; ++i) {
      if (indices_[i] != state.skip &&
          SquaredDistance(points_[i], state.query) <= state.squaredRadius) {
        ++state.count;
      }
    }
    return;
  }
  const float diff = Coordinate(state.query, node.axis) - node.split;
  const uint32_t nearSide = diff < 0.0f ? node.left : node.right;
  const uint32_t farSide = diff < 0.0f ? node.right : node.left;
  SearchRadius(nearSide, state);
  if (state.count < state.limit && diff * diff <= state.squaredRadius) {
    SearchRadius(farSide, state);
  }
}

}  // namespace peers
}  // namespace velmar
