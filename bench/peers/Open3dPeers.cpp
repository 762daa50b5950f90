#include <open3d/Open3DConfig.h>
#include <open3d/geometry/PointCloud.h>
#include <open3d/utility/Random.h>

#include "PeerLibraries.h"

namespace velmar {
namespace peers {
namespace open3d_peers {
namespace {

constexpr int kPlaneSeed = 1;
constexpr int kPointsPerPlaneSample = 3;

open3d::geometry::PointCloud CloudOf(const Points& points) {
  open3d::geometry::PointCloud cloud;
  cloud.points_.reserve(points.size());
  for (const Eigen::Vector3f& p : points) {
    cloud.points_.push_back(p.cast<double>());
  }
  return cloud;
}

}  // namespace

std::string Version() {
  return OPEN3D_VERSION;
}

void StatisticalOutliers(const Points& points, const StatisticalParams& params, Flags& flags) {
  const auto [cloud, kept] = CloudOf(points).RemoveStatisticalOutliers(
      static_cast<std::size_t>(params.neighbours), params.stddevs);
  FlagIndices(points.size(), kept, false, flags);
}

void RadiusOutliers(const Points& points, const RadiusParams& params, Flags& flags) {
  const auto [cloud, kept] = CloudOf(points).RemoveRadiusOutliers(
      static_cast<std::size_t>(params.neighbours), params.radius);
  FlagIndices(points.size(), kept, false, flags);
}

void PlaneGround(const Points& points, const PlaneParams& params, Flags& flags) {
  open3d::utility::random::Seed(kPlaneSeed);
  const auto [plane, inliers] =
      CloudOf(points).SegmentPlane(params.distance, kPointsPerPlaneSample, params.iterations);
  FlagIndices(points.size(), inliers, true, flags);
}

}  // namespace open3d_peers
}  // namespace peers
}  // namespace velmar
