#include <pcl/filters/radius_outlier_removal.h>
#include <pcl/filters/statistical_outlier_removal.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>
#include <pcl/segmentation/approximate_progressive_morphological_filter.h>
#include <pcl/segmentation/progressive_morphological_filter.h>
#include <pcl/segmentation/sac_segmentation.h>

#include <cmath>

#include "PeerLibraries.h"

namespace velmar {
namespace peers {
namespace pcl_peers {
namespace {

using Cloud = pcl::PointCloud<pcl::PointXYZ>;

Cloud::Ptr CloudOf(const Points& points) {
  Cloud::Ptr cloud(new Cloud);
  cloud->resize(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    (*cloud)[i].getVector3fMap() = points[i];
  }
  return cloud;
}

// Runs a configured outlier filter and flags what it does not keep.
template <typename Filter>
void FlagRemoved(Filter& filter, const Points& points, Flags& flags) {
  filter.setInputCloud(CloudOf(points));
  pcl::Indices kept;
  filter.filter(kept);
  FlagIndices(points.size(), kept, false, flags);
}

}  // namespace

std::string Version() {
  return PCL_VERSION_PRETTY;
}

void StatisticalOutliers(const Points& points, const StatisticalParams& params, Flags& flags) {
  pcl::StatisticalOutlierRemoval<pcl::PointXYZ> filter;
  filter.setMeanK(params.neighbours);
  filter.setStddevMulThresh(params.stddevs);
  FlagRemoved(filter, points, flags);
}

void RadiusOutliers(const Points& points, const RadiusParams& params, Flags& flags) {
  pcl::RadiusOutlierRemoval<pcl::PointXYZ> filter;
  filter.setRadiusSearch(params.radius);
  filter.setMinNeighborsInRadius(params.neighbours);
  FlagRemoved(filter, points, flags);
}

void PlaneGround(const Points& points, const PlaneParams& params, Flags& flags) {
  pcl::SACSegmentation<pcl::PointXYZ> segmentation;
  segmentation.setOptimizeCoefficients(true);
  segmentation.setMethodType(pcl::SAC_RANSAC);
  segmentation.setDistanceThreshold(params.distance);
  segmentation.setMaxIterations(params.iterations);
  if (params.maxTiltDegrees > 0.0) {
    segmentation.setModelType(pcl::SACMODEL_PERPENDICULAR_PLANE);
    segmentation.setAxis(Eigen::Vector3f::UnitZ());
    segmentation.setEpsAngle(params.maxTiltDegrees * M_PI / 180.0);
  } else {
    segmentation.setModelType(pcl::SACMODEL_PLANE);
  }
  segmentation.setInputCloud(CloudOf(points));
  pcl::PointIndices inliers;
  pcl::ModelCoefficients plane;
  segmentation.segment(inliers, plane);
  FlagIndices(points.size(), inliers.indices, true, flags);
}

template <typename Filter>
void RunMorphology(const Points& points, const MorphologyParams& params, Flags& flags) {
  Filter filter;
  filter.setInputCloud(CloudOf(points));
  filter.setCellSize(params.cellSize);
  filter.setMaxWindowSize(params.maxWindow);
  filter.setSlope(params.slope);
  filter.setInitialDistance(params.initialDistance);
  filter.setMaxDistance(params.maxDistance);
  pcl::Indices ground;
  filter.extract(ground);
  FlagIndices(points.size(), ground, true, flags);
}

void MorphologicalGround(const Points& points, const MorphologyParams& params, Flags& flags) {
  if (params.exact) {
    RunMorphology<pcl::ProgressiveMorphologicalFilter<pcl::PointXYZ>>(points, params, flags);
  } else {
    RunMorphology<pcl::ApproximateProgressiveMorphologicalFilter<pcl::PointXYZ>>(points, params,
                                                                                 flags);
  }
}

}  // namespace pcl_peers
}  // namespace peers
}  // namespace velmar
