#include "ground/GroundDet.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include "framework/AlgoCommon.h"
#include "framework/Messages.h"
#include "framework/about.h"

namespace velmar {
namespace {

// Only returns closer than this and below the sampled band's top are ever fitted or classified.
constexpr double kMaxRange = 40.0;
// A revolution starts on the reference face past this angle; the fit runs there, once.
constexpr double kFitStartAngle = 150.0;
constexpr uint32_t kReferenceMirror = 0;
constexpr uint32_t kReferenceEcho = 1;
constexpr const char* kClassName = "GroundDet";

bool IsReferenceReturn(const _ori_point& p) {
  return p.mirror == kReferenceMirror && p.echo == kReferenceEcho;
}

}  // namespace

bool GroundDet::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128;
}

void GroundDet::ParseParams() {
  PlaneFitGroundDetectorParam& p = detector_param;
  ReadParam("debug_using_echo", debug_using_echo);
  ReadParam("filter_ground_points_flag", filter_ground_points_flag);
  ReadParam("filter_underground_points_flag", filter_underground_points_flag);
  ReadParam("filter_ground_points_threshold", filter_ground_points_threshold);
  ReadParam(kPointsMaxBound.key, p.nr_points_max);
  ReadParam(kGridsFineBound.key, p.nr_grids_fine);
  ReadParam(kGridsCoarseBound.key, p.nr_grids_coarse);
  ReadParam(kZCompCandidatesBound.key, p.nr_z_comp_candis);
  ReadParam("nr_z_comp_fail_threshold", p.nr_z_comp_fail_threshold);
  ReadParam("nr_inliers_min_threshold", p.nr_inliers_min_threshold);
  ReadParam(kSamplesMinBound.key, p.nr_samples_min_threshold);
  ReadParam(kSamplesMaxBound.key, p.nr_samples_max_threshold);
  ReadParam("sample_region_z_lower", p.sample_region_z_lower);
  ReadParam("sample_region_z_upper", p.sample_region_z_upper);
  ReadParam("roi_region_rad_x", p.roi_region_rad_x);
  ReadParam("roi_region_rad_x_min", p.roi_region_rad_x_min);
  ReadParam("roi_region_rad_y", p.roi_region_rad_y);
  ReadParam("roi_region_rad_y_min", p.roi_region_rad_y_min);
  ReadParam("roi_region_rad_z", p.roi_region_rad_z);
  ReadParam("roi_region_rad_z_min", p.roi_region_rad_z_min);
  ReadParam("roi_near_rad", p.roi_near_rad);
  ReadParam("planefit_dist_threshold_near", p.planefit_dist_threshold_near);
  ReadParam("planefit_dist_threshold_far", p.planefit_dist_threshold_far);
  ReadParam("planefit_filter_threshold", p.planefit_filter_threshold);
  ReadParam("planefit_orien_threshold", p.planefit_orien_threshold);
  ReadParam("termi_inlier_percen_threshold", p.termi_inlier_percen_threshold);
  ReadParam("candidate_filter_threshold", p.candidate_filter_threshold);
  ReadParam(kRansacIterBound.key, p.nr_ransac_iter_threshold);
  ReadParam(kSmoothIterBound.key, p.nr_smooth_iter);
  // The capacity only sizes the work arrays, which grow on demand, so a larger one is clamped;
  // the detector clamps the iteration counts anyway, and these say so. Grid sizes and sample
  // counts beyond their bounds are left to the detector's parameter check.
  p.nr_points_max =
      WithinBoundOr(kClassName, kPointsMaxBound, p.nr_points_max, kPointsMaxBound.max);
  p.nr_ransac_iter_threshold =
      WithinBoundOr(kClassName, kRansacIterBound, p.nr_ransac_iter_threshold,
                    static_cast<int32_t>(kRansacIterBound.max));
  p.nr_smooth_iter = WithinBoundOr(kClassName, kSmoothIterBound, p.nr_smooth_iter,
                                   static_cast<int32_t>(kSmoothIterBound.max));
  // The flags are read as integers first, so a fraction below 1 leaves removal off.
  remove_ground = filter_ground_points_flag > 0;
  remove_underground = filter_underground_points_flag > 0;
}

std::size_t GroundDet::TableBytes(LidarType /*type*/, const NumberParams& params) {
  PlaneFitGroundDetectorParam p;
  const auto read = [&params](const ParamBound& bound, uint32_t& field) {
    const auto it = params.find(bound.key);
    if (it != params.end()) {
      field = std::min(TruncateToUint32(it->second), bound.max);
    }
  };
  read(kPointsMaxBound, p.nr_points_max);
  read(kGridsFineBound, p.nr_grids_fine);
  read(kGridsCoarseBound, p.nr_grids_coarse);
  read(kSamplesMaxBound, p.nr_samples_max_threshold);
  const std::size_t points = p.nr_points_max;
  const std::size_t per_point = sizeof(_ori_point) + sizeof(int32_t) + 4 * sizeof(float);
  const std::size_t planes = static_cast<std::size_t>(p.nr_grids_coarse) * p.nr_grids_coarse;
  return sizeof(PlaneFitGroundDetector) + PlaneFitGroundDetector::TableBytes(p) +
         points * per_point + planes * sizeof(GroundPlane);
}

bool GroundDet::Init() {
  const PlaneFitGroundDetectorParam& p = detector_param;
  const float grids = static_cast<float>(p.nr_grids_coarse);
  cell_size_x = (p.roi_region_rad_x - p.roi_region_rad_x_min) / grids;
  cell_size_y = (p.roi_region_rad_y - p.roi_region_rad_y_min) / grids;
  detector = std::make_unique<PlaneFitGroundDetector>(p);
  detector->Init();
  point_indices.resize(p.nr_points_max);
  point_coords.resize(static_cast<std::size_t>(p.nr_points_max) * 3);
  point_heights.resize(p.nr_points_max);
  collected.reserve(p.nr_points_max);
  const std::size_t records = static_cast<std::size_t>(p.nr_grids_coarse) * p.nr_grids_coarse;
  plane_grid.reset();
  if (records != 0 && p.nr_grids_coarse <= kMaxGridCellsPerSide) {
    plane_grid.reset(new (std::nothrow) GroundPlane[records]());
  }
  return plane_grid != nullptr;
}

GroundPlane* GroundDet::PlaneAt(int row, int column) {
  const int grids = static_cast<int>(detector_param.nr_grids_coarse);
  if (plane_grid == nullptr || row < 0 || column < 0 || row >= grids || column >= grids) {
    return nullptr;
  }
  return &plane_grid[static_cast<std::size_t>(row) * detector_param.nr_grids_coarse + column];
}

bool GroundDet::Detect(const std::vector<_ori_point>& points) {
  const std::size_t n = points.size();
  if (n > detector_param.nr_points_max) {
    // Room for twice the revolution just seen, so that a slowly growing scene does not regrow
    // the arrays every frame. The capacity is raised only once all three have grown: a growth
    // that fails leaves it where the arrays still are.
    point_indices.resize(2 * n);
    point_coords.resize(6 * n);
    point_heights.resize(2 * n);
    detector_param.nr_points_max =
        static_cast<uint32_t>(std::min<std::size_t>(2 * n, std::numeric_limits<uint32_t>::max()));
  }
  for (std::size_t i = 0; i < n; ++i) {
    point_indices[i] = static_cast<int32_t>(i);
    point_coords[3 * i] = static_cast<float>(points[i].x);
    point_coords[3 * i + 1] = static_cast<float>(points[i].y);
    point_coords[3 * i + 2] = static_cast<float>(points[i].z);
  }
  const bool fitted = detector != nullptr && n <= std::numeric_limits<unsigned>::max() &&
                      detector->Detect(point_coords.data(), static_cast<unsigned>(n), 3);
  if (!fitted) {
    PrintUnterminated("failed to call ground detector!");
  }
  return fitted;
}

void GroundDet::GetPlane() {
  const int grids = static_cast<int>(detector_param.nr_grids_coarse);
  if (detector == nullptr || plane_grid == nullptr) {
    return;
  }
  for (int row = 0; row < grids; ++row) {
    for (int column = 0; column < grids; ++column) {
      const GroundPlane* fitted = detector->GetGroundPlane(row, column);
      if (fitted != nullptr) {
        *PlaneAt(row, column) = *fitted;
      }
    }
  }
}

bool GroundDet::FilterPointUsingGroundPlane(_ori_point& point, float* height) const {
  if (plane_grid == nullptr) {
    return false;
  }
  const double grids = static_cast<double>(detector_param.nr_grids_coarse);
  const double row = (point.y - detector_param.roi_region_rad_y_min) / cell_size_y;
  const double column = (point.x - detector_param.roi_region_rad_x_min) / cell_size_x;
  // Truncation toward zero puts (-1, 0) in cell 0; comparing before the conversion keeps NaN
  // and huge values out of it.
  if (!(row > -1.0 && row < grids && column > -1.0 && column < grids)) {
    return false;
  }
  const GroundPlane& plane = plane_grid[static_cast<std::size_t>(static_cast<int32_t>(row)) *
                                            detector_param.nr_grids_coarse +
                                        static_cast<std::size_t>(static_cast<int32_t>(column))];
  if (!plane.IsUsable()) {
    return false;
  }
  if (debug_using_echo >= 0) {
    point.label = debug_using_echo - 1;
  }
  const double above = std::fma(
      static_cast<double>(plane.c), point.z,
      std::fma(static_cast<double>(plane.b), point.y, static_cast<double>(plane.a) * point.x));
  const double h = static_cast<double>(plane.d) + above;
  if (height != nullptr) {
    *height = static_cast<float>(h);
  }
  PredictPoint(h, point);
  return true;
}

void GroundDet::PredictPoint(double height, _ori_point& point) const {
  const double band = filter_ground_points_threshold;
  if (height >= 0.0 && height <= band) {
    ApplyGroundRule(point);
  } else if (height > band) {
    return;
  } else if (height >= -band && height < 0.0) {
    // Just under the plane is both ground and underground: the two rules apply in turn, so
    // either removal flag takes such a return out.
    ApplyGroundRule(point);
    ApplyUndergroundRule(point);
  } else if (height < -band) {
    ApplyUndergroundRule(point);
  }
}

void GroundDet::ApplyGroundRule(_ori_point& point) const {
  if (remove_ground) {
    point.distance = 0.0;
  }
  if (debug_using_echo >= 0) {
    point.label = debug_using_echo;
  }
}

void GroundDet::ApplyUndergroundRule(_ori_point& point) const {
  if (remove_underground) {
    point.distance = 0.0;
  }
  if (debug_using_echo >= 0) {
    point.label = debug_using_echo;
  }
}

void GroundDet::Process(std::vector<_ori_point>& frame) {
  if (!initialised) {
    initialised = Init();
  }
  const double z_limit = detector_param.sample_region_z_upper;
  for (_ori_point& p : frame) {
    if (p.distance < kMaxRange && p.z < z_limit) {
      if (plane_ready) {
        FilterPointUsingGroundPlane(p);
      } else if (IsReferenceReturn(p) && collected.size() < max_withheld) {
        collected.push_back(p);
        p.distance = 0.0;
      }
    }
    if (p.mark != 0) {
      plane_ready = false;
    }
  }
  if (frame.empty()) {
    return;
  }
  const _ori_point& first = frame.front();
  if (!(first.hor_angle > kFitStartAngle && IsReferenceReturn(first) && !plane_ready)) {
    return;
  }
  Detect(collected);
  GetPlane();
  // The host's vector grows once for everything given back, not by a series of doublings that
  // each copy the packet again.
  frame.reserve(frame.size() + collected.size());
  for (std::size_t i = 0; i < collected.size(); ++i) {
    _ori_point& p = collected[i];
    point_heights[i] = std::numeric_limits<float>::quiet_NaN();
    FilterPointUsingGroundPlane(p, &point_heights[i]);
    if (p.distance > 0.0) {
      frame.push_back(p);
    }
  }
  collected.clear();
  plane_ready = true;
}

}  // namespace velmar
