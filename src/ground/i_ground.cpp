#include "ground/i_ground.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/AlgoCommon.h"
#include "framework/Messages.h"

namespace velmar {
namespace {

// Same seed for every Detect: a frame's planes depend on that frame alone.
constexpr uint32_t kSeed = 20260611u;
// Whatever the terrain, a plane leaning further than this from the sensor's vertical axis is a
// wall or a car side, never ground; it bounds the hypotheses before the finer orientation check.
constexpr float kMaxGroundTiltDeg = 30.0f;
// Three samples spanning less than this (twice the triangle area, m^2) give no usable plane.
constexpr float kMinTriangleSpan = 1e-3f;
// The samples of a plane must spread in two directions: a single scan line fits any plane that
// contains it, so the middle eigenvalue must clearly exceed the smallest.
constexpr float kMinSpreadRatio = 4.0f;
// Nearby fine cells listed per z-comparison candidate, so that empty cells can be skipped.
constexpr int kOffsetsPerCandidate = 4;
constexpr int kMaxCompareRadius = 16;  // fine cells
// Whatever a detector is given directly, the iteration counts stay within their bounds, so a
// wild configuration cannot stall the host's thread.
constexpr int kMaxHypotheses = static_cast<int>(kRansacIterBound.max);
constexpr int kMaxSmoothPasses = static_cast<int>(kSmoothIterBound.max);
// A cell without a plane and with fewer than nr_inliers_min_threshold samples of its own borrows
// its neighbours' plane only when this many fitted neighbours vouch for it.
constexpr int kMinFillNeighbours = 3;
// A cell with samples of its own takes its height from them when at least this share of them lie
// on one level, at most kMaxFillStep (a curb, a kerbed verge) above or below its neighbours'.
constexpr float kFillAgreementShare = 0.3f;
constexpr float kMaxFillStep = 0.3f;
// Fills spread at most this many cells from the fitted ones.
constexpr int kMaxFillPasses = 16;
constexpr float kEmptyCell = std::numeric_limits<float>::infinity();

template <typename T>
void GrowTo(std::vector<T>& buffer, std::size_t size) {
  if (size > buffer.size()) {
    buffer.resize(size);
  }
}

float Dot3(const float* u, const float* v) {
  return u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
}

// Unit normal (pointing up) and offset of the plane through three samples; false when the three
// are nearly collinear or the plane leans beyond `min_up`.
bool PlaneThrough(const float* p0, const float* p1, const float* p2, float min_up, float normal[3],
                  float* offset) {
  const float u[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
  const float v[3] = {p2[0] - p0[0], p2[1] - p0[1], p2[2] - p0[2]};
  float n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
  const float length = std::sqrt(Dot3(n, n));
  if (!(length >= kMinTriangleSpan)) {
    return false;
  }
  const float scale = (n[2] < 0.0f ? -1.0f : 1.0f) / length;
  for (int k = 0; k < 3; ++k) {
    normal[k] = n[k] * scale;
  }
  if (normal[2] < min_up) {
    return false;
  }
  *offset = -Dot3(normal, p0);
  return true;
}

GroundPlane PlaneFromNormalAndHeight(const float normal[3], float x, float y, float z) {
  GroundPlane plane;
  plane.a = normal[0];
  plane.b = normal[1];
  plane.c = normal[2];
  plane.d = -(normal[0] * x + normal[1] * y + normal[2] * z);
  return plane;
}

// Sums the normals and heights at (x, y) of agreeing planes; the caller averages.
struct PlaneBlend {
  float normal[3] = {0.0f, 0.0f, 0.0f};
  float height = 0.0f;
  int count = 0;

  void Add(const GroundPlane& plane, float plane_height) {
    normal[0] += plane.a;
    normal[1] += plane.b;
    normal[2] += plane.c;
    height += plane_height;
    ++count;
  }

  GroundPlane Result(float x, float y) const {
    const float length = std::sqrt(Dot3(normal, normal));
    const float unit[3] = {normal[0] / length, normal[1] / length, normal[2] / length};
    return PlaneFromNormalAndHeight(unit, x, y, height / static_cast<float>(count));
  }
};

}  // namespace

bool PlaneFitGroundDetectorParam::Validate() const {
  const bool sizes_bounded = WithinBound(nr_points_max, kPointsMaxBound) &&
                             WithinBound(nr_grids_fine, kGridsFineBound) &&
                             WithinBound(nr_grids_coarse, kGridsCoarseBound) &&
                             WithinBound(nr_z_comp_candis, kZCompCandidatesBound) &&
                             WithinBound(nr_samples_min_threshold, kSamplesMinBound) &&
                             WithinBound(nr_samples_max_threshold, kSamplesMaxBound);
  const bool valid = nr_grids_coarse > 1 && nr_grids_coarse <= nr_grids_fine &&
                     nr_grids_fine != 0 && nr_points_max != 0 && nr_samples_min_threshold != 0 &&
                     nr_samples_max_threshold != 0 && nr_inliers_min_threshold != 0 &&
                     nr_ransac_iter_threshold != 0 && roi_region_rad_x > 0.0f &&
                     roi_region_rad_y > 0.0f && roi_region_rad_z > 0.0f &&
                     planefit_dist_threshold_near <= planefit_dist_threshold_far && sizes_bounded;
  if (!valid) {
    PrintErrorLine("Invalid ground detector parameters... ");
  }
  return valid;
}

PlaneFitGroundDetector::PlaneFitGroundDetector(const PlaneFitGroundDetectorParam& param)
    : param_(param), rng_(kSeed) {}

bool PlaneFitGroundDetector::Init() {
  ready_ = false;
  if (!param_.Validate()) {
    return false;
  }
  const float extent_x = param_.roi_region_rad_x - param_.roi_region_rad_x_min;
  const float extent_y = param_.roi_region_rad_y - param_.roi_region_rad_y_min;
  const bool extents_usable =
      extent_x > 0.0f && extent_y > 0.0f && std::isfinite(extent_x) && std::isfinite(extent_y);
  if (!extents_usable) {
    return false;
  }
  fine_cells_ = static_cast<int>(param_.nr_grids_fine);
  coarse_cells_ = static_cast<int>(param_.nr_grids_coarse);
  fine_size_x_ = extent_x / static_cast<float>(fine_cells_);
  fine_size_y_ = extent_y / static_cast<float>(fine_cells_);
  coarse_size_x_ = extent_x / static_cast<float>(coarse_cells_);
  coarse_size_y_ = extent_y / static_cast<float>(coarse_cells_);
  max_tilt_cos_ = std::cos(kMaxGroundTiltDeg * kDegToRadF);
  orientation_cos_ = std::cos(param_.planefit_orien_threshold * kDegToRadF);
  AllocateGrids();
  BuildNeighbourOffsets();
  Reserve(param_.nr_points_max);
  ready_ = true;
  return true;
}

std::size_t PlaneFitGroundDetector::TableBytes(const PlaneFitGroundDetectorParam& param) {
  const std::size_t fine = std::min(param.nr_grids_fine, kGridsFineBound.max);
  const std::size_t coarse = std::min(param.nr_grids_coarse, kGridsCoarseBound.max);
  const std::size_t points = std::min(param.nr_points_max, kPointsMaxBound.max);
  const std::size_t samples = std::min<std::size_t>(param.nr_samples_max_threshold, points);
  const std::size_t per_fine = sizeof(float) + sizeof(uint8_t) + sizeof(int32_t);
  const std::size_t per_coarse = 2 * sizeof(uint32_t) + 2 * sizeof(GroundPlane) + sizeof(Cell);
  const std::size_t per_return = 2 * sizeof(int32_t) + sizeof(uint32_t);
  const std::size_t per_sample = 3 * sizeof(float) + sizeof(uint8_t);
  const std::size_t offsets =
      2 * sizeof(int32_t) * (2 * kMaxCompareRadius + 1) * (2 * kMaxCompareRadius + 1);
  const std::size_t radius = static_cast<std::size_t>(CompareRadius(param));
  const std::size_t blocks = (fine + radius - 1) / radius;
  return fine * fine * per_fine + coarse * coarse * per_coarse + points * per_return +
         samples * per_sample + offsets + blocks * blocks * sizeof(float);
}

void PlaneFitGroundDetector::AllocateGrids() {
  const std::size_t fine_total = static_cast<std::size_t>(fine_cells_) * fine_cells_;
  const std::size_t coarse_total = static_cast<std::size_t>(coarse_cells_) * coarse_cells_;
  fine_min_z_.assign(fine_total, kEmptyCell);
  fine_accepted_.assign(fine_total, 0);
  touched_fine_.clear();
  touched_fine_.reserve(fine_total);
  sample_start_.assign(coarse_total + 1, 0);
  sample_fill_.assign(coarse_total, 0);
  planes_.assign(coarse_total, GroundPlane());
  scratch_.assign(coarse_total, GroundPlane());
  cells_.resize(coarse_total);
  const float near_squared = param_.roi_near_rad * param_.roi_near_rad;
  for (int row = 0; row < coarse_cells_; ++row) {
    for (int column = 0; column < coarse_cells_; ++column) {
      Cell& cell = cells_[static_cast<std::size_t>(row) * coarse_cells_ + column];
      cell.center_x =
          param_.roi_region_rad_x_min + (static_cast<float>(column) + 0.5f) * coarse_size_x_;
      cell.center_y =
          param_.roi_region_rad_y_min + (static_cast<float>(row) + 0.5f) * coarse_size_y_;
      const bool near =
          cell.center_x * cell.center_x + cell.center_y * cell.center_y < near_squared;
      cell.inlier_threshold =
          near ? param_.planefit_dist_threshold_near : param_.planefit_dist_threshold_far;
    }
  }
}

// Fine cells around a candidate within which the nearest nr_z_comp_candis non-empty cells are
// usually found.
int PlaneFitGroundDetector::CompareRadius(const PlaneFitGroundDetectorParam& param) {
  const uint32_t candidates = std::min(param.nr_z_comp_candis, kZCompCandidatesBound.max);
  const int fine = static_cast<int>(std::min(param.nr_grids_fine, kGridsFineBound.max));
  const double wanted = static_cast<double>(candidates) * kOffsetsPerCandidate;
  const int radius = static_cast<int>(std::ceil(std::sqrt(wanted / kPi))) + 1;
  return std::max(1, std::min({radius, kMaxCompareRadius, fine - 1}));
}

// Offsets of the fine cells around a candidate, nearest first.
void PlaneFitGroundDetector::BuildNeighbourOffsets() {
  const int radius = CompareRadius(param_);
  block_size_ = radius;
  blocks_ = (fine_cells_ + radius - 1) / radius;
  block_min_z_.assign(static_cast<std::size_t>(blocks_) * blocks_, kEmptyCell);
  struct Offset {
    int dx;
    int dy;
    int squared;
  };
  std::vector<Offset> offsets;
  for (int dy = -radius; dy <= radius; ++dy) {
    for (int dx = -radius; dx <= radius; ++dx) {
      const int squared = dx * dx + dy * dy;
      if (squared != 0 && squared <= radius * radius) {
        offsets.push_back({dx, dy, squared});
      }
    }
  }
  std::stable_sort(offsets.begin(), offsets.end(),
                   [](const Offset& l, const Offset& r) { return l.squared < r.squared; });
  neighbour_offsets_.clear();
  for (const Offset& o : offsets) {
    neighbour_offsets_.push_back(o.dx);
    neighbour_offsets_.push_back(o.dy);
  }
}

void PlaneFitGroundDetector::Reserve(unsigned count) {
  // Each buffer is grown on its own test: when a growth fails part-way, the next call grows
  // what is still short instead of trusting the first buffer's size for all.
  GrowTo(return_fine_, count);
  GrowTo(return_coarse_, count);
  GrowTo(sample_index_, count);
  // A cell never holds more samples than the frame has returns.
  const std::size_t cell_samples = std::min(param_.nr_samples_max_threshold, count);
  GrowTo(cell_xyz_, cell_samples * 3);
  GrowTo(inlier_, cell_samples);
}

bool PlaneFitGroundDetector::Detect(const float* points, unsigned count, unsigned dim) {
  std::fill(planes_.begin(), planes_.end(), GroundPlane());
  if (!ready_ || dim < 3 || (points == nullptr && count != 0)) {
    return false;
  }
  rng_.seed(kSeed);
  Reserve(count);
  BinReturns(points, count, dim);
  SelectCandidateCells();
  GatherSamples(points, count, dim);
  const int total = coarse_cells_ * coarse_cells_;
  for (int cell = 0; cell < total; ++cell) {
    FitCell(cell, points, dim);
  }
  RejectLeaningPlanes();
  const int smooth_passes = std::min(param_.nr_smooth_iter, kMaxSmoothPasses);
  for (int pass = 0; pass < smooth_passes; ++pass) {
    SmoothPass();
  }
  FillFromNeighbours(points, dim);
  return true;
}

const GroundPlane* PlaneFitGroundDetector::GetGroundPlane(int row, int column) const {
  if (!ready_ || row < 0 || column < 0 || row >= coarse_cells_ || column >= coarse_cells_) {
    return nullptr;
  }
  const GroundPlane& plane = planes_[static_cast<std::size_t>(row) * coarse_cells_ + column];
  return plane.origin == kPlaneNone ? nullptr : &plane;
}

// Assigns every return of the sampled region to its fine and coarse cell and keeps the lowest z
// of each fine cell.
void PlaneFitGroundDetector::BinReturns(const float* points, unsigned count, unsigned dim) {
  for (const int32_t fine : touched_fine_) {
    fine_min_z_[fine] = kEmptyCell;
    fine_accepted_[fine] = 0;
  }
  touched_fine_.clear();
  const PlaneFitGroundDetectorParam& p = param_;
  for (unsigned i = 0; i < count; ++i) {
    const float* point = points + static_cast<std::size_t>(i) * dim;
    const float x = point[0];
    const float y = point[1];
    const float z = point[2];
    return_fine_[i] = -1;
    return_coarse_[i] = -1;
    // Written so that NaN coordinates fall outside.
    const bool inside = x >= p.roi_region_rad_x_min && x < p.roi_region_rad_x &&
                        y >= p.roi_region_rad_y_min && y < p.roi_region_rad_y &&
                        z >= p.roi_region_rad_z_min && z <= p.roi_region_rad_z &&
                        z >= p.sample_region_z_lower && z <= p.sample_region_z_upper;
    if (!inside) {
      continue;
    }
    const float dx = x - p.roi_region_rad_x_min;
    const float dy = y - p.roi_region_rad_y_min;
    const int fine_x = std::min(static_cast<int>(dx / fine_size_x_), fine_cells_ - 1);
    const int fine_y = std::min(static_cast<int>(dy / fine_size_y_), fine_cells_ - 1);
    const int coarse_x = std::min(static_cast<int>(dx / coarse_size_x_), coarse_cells_ - 1);
    const int coarse_y = std::min(static_cast<int>(dy / coarse_size_y_), coarse_cells_ - 1);
    const int fine = fine_y * fine_cells_ + fine_x;
    if (fine_min_z_[fine] == kEmptyCell) {
      touched_fine_.push_back(fine);
    }
    fine_min_z_[fine] = std::min(fine_min_z_[fine], z);
    return_fine_[i] = fine;
    return_coarse_[i] = coarse_y * coarse_cells_ + coarse_x;
  }
}

// Most fine cells lie on open ground with no neighbour far below them. The lowest return of each
// block of fine cells (a block spans the comparison radius) settles those at once: a cell standing
// no more than candidate_filter_threshold above the lowest of its own and the eight surrounding
// blocks cannot fail a single comparison, so only the others walk their neighbours.
void PlaneFitGroundDetector::SelectCandidateCells() {
  for (const int32_t fine : touched_fine_) {
    block_min_z_[BlockOf(fine)] = kEmptyCell;
  }
  for (const int32_t fine : touched_fine_) {
    float& lowest = block_min_z_[BlockOf(fine)];
    lowest = std::min(lowest, fine_min_z_[fine]);
  }
  for (const int32_t fine : touched_fine_) {
    const bool clear = fine_min_z_[fine] - LowestAround(fine) <= param_.candidate_filter_threshold;
    fine_accepted_[fine] = clear || IsCandidateCell(fine) ? 1 : 0;
  }
}

std::size_t PlaneFitGroundDetector::BlockOf(int fine) const {
  const int bx = (fine % fine_cells_) / block_size_;
  const int by = (fine / fine_cells_) / block_size_;
  return static_cast<std::size_t>(by) * blocks_ + bx;
}

// The lowest return of the block holding `fine` and of the eight blocks around it: every fine
// cell within the comparison radius lies among them.
float PlaneFitGroundDetector::LowestAround(int fine) const {
  const int bx = (fine % fine_cells_) / block_size_;
  const int by = (fine / fine_cells_) / block_size_;
  float lowest = kEmptyCell;
  for (int y = std::max(by - 1, 0); y <= std::min(by + 1, blocks_ - 1); ++y) {
    for (int x = std::max(bx - 1, 0); x <= std::min(bx + 1, blocks_ - 1); ++x) {
      lowest = std::min(lowest, block_min_z_[static_cast<std::size_t>(y) * blocks_ + x]);
    }
  }
  return lowest;
}

// The lowest return of a fine cell is a ground candidate unless it stands well above too many of
// the nearest candidates: then the cell holds only a car's body, a bush or the top of a low wall,
// with no ground seen beneath.
bool PlaneFitGroundDetector::IsCandidateCell(int fine) const {
  const int fx = fine % fine_cells_;
  const int fy = fine / fine_cells_;
  const float z = fine_min_z_[fine];
  uint32_t compared = 0;
  uint32_t failures = 0;
  const std::size_t offsets = neighbour_offsets_.size();
  for (std::size_t k = 0; k < offsets && compared < param_.nr_z_comp_candis; k += 2) {
    const int nx = fx + neighbour_offsets_[k];
    const int ny = fy + neighbour_offsets_[k + 1];
    if (nx < 0 || ny < 0 || nx >= fine_cells_ || ny >= fine_cells_) {
      continue;
    }
    const float other = fine_min_z_[ny * fine_cells_ + nx];
    if (other == kEmptyCell) {
      continue;
    }
    ++compared;
    if (z - other > param_.candidate_filter_threshold &&
        ++failures > param_.nr_z_comp_fail_threshold) {
      return false;
    }
  }
  return true;
}

// Samples are the returns of accepted fine cells lying within the filter slab above the cell's
// lowest return, bucketed by coarse cell with a counting sort.
void PlaneFitGroundDetector::GatherSamples(const float* points, unsigned count, unsigned dim) {
  std::fill(sample_start_.begin(), sample_start_.end(), 0u);
  for (unsigned i = 0; i < count; ++i) {
    const int32_t fine = return_fine_[i];
    if (fine < 0) {
      continue;
    }
    const float z = points[static_cast<std::size_t>(i) * dim + 2];
    if (fine_accepted_[fine] == 0 || z > fine_min_z_[fine] + param_.planefit_filter_threshold) {
      return_coarse_[i] = -1;
      continue;
    }
    ++sample_start_[return_coarse_[i] + 1];
  }
  for (std::size_t c = 1; c < sample_start_.size(); ++c) {
    sample_start_[c] += sample_start_[c - 1];
  }
  std::copy(sample_start_.begin(), sample_start_.end() - 1, sample_fill_.begin());
  for (unsigned i = 0; i < count; ++i) {
    if (return_coarse_[i] >= 0) {
      sample_index_[sample_fill_[return_coarse_[i]]++] = i;
    }
  }
}

// Packs the samples of `cell` into cell_xyz_, evenly thinned to nr_samples_max_threshold.
unsigned PlaneFitGroundDetector::CopyCellSamples(int cell, const float* points, unsigned dim) {
  const uint32_t first = sample_start_[cell];
  const uint64_t available = sample_start_[cell + 1] - first;
  const uint64_t taken = std::min<uint64_t>(available, param_.nr_samples_max_threshold);
  for (uint64_t k = 0; k < taken; ++k) {
    const uint32_t index = sample_index_[first + k * available / taken];
    const float* point = points + static_cast<std::size_t>(index) * dim;
    std::copy(point, point + 3, &cell_xyz_[k * 3]);
  }
  return static_cast<unsigned>(taken);
}

void PlaneFitGroundDetector::FitCell(int cell, const float* points, unsigned dim) {
  const uint32_t available = sample_start_[cell + 1] - sample_start_[cell];
  if (available < param_.nr_samples_min_threshold || available < 3) {
    return;
  }
  const unsigned n = CopyCellSamples(cell, points, dim);
  const float threshold = cells_[cell].inlier_threshold;
  float normal[3];
  float offset = 0.0f;
  if (!FindBestHypothesis(n, threshold, normal, &offset) ||
      MarkInliers(n, normal, offset, threshold) < param_.nr_inliers_min_threshold ||
      !RefitInliers(n, normal, &offset)) {
    return;
  }
  const unsigned support = MarkInliers(n, normal, offset, threshold);
  if (support < param_.nr_inliers_min_threshold) {
    return;
  }
  GroundPlane& plane = planes_[cell];
  plane.a = normal[0];
  plane.b = normal[1];
  plane.c = normal[2];
  plane.d = offset;
  plane.origin = kPlaneFitted;
  plane.support = support;
}

// Random sample consensus over the packed samples: the plane through three random samples with
// the most samples within `threshold`, stopping early once enough of them agree.
bool PlaneFitGroundDetector::FindBestHypothesis(unsigned n, float threshold, float normal[3],
                                                float* offset) {
  const float enough = param_.termi_inlier_percen_threshold * static_cast<float>(n);
  unsigned best = 0;
  const int iterations = std::min(param_.nr_ransac_iter_threshold, kMaxHypotheses);
  for (int iter = 0; iter < iterations; ++iter) {
    const unsigned i0 = rng_() % n;
    const unsigned i1 = rng_() % n;
    const unsigned i2 = rng_() % n;
    float candidate[3];
    float candidate_offset = 0.0f;
    if (i0 == i1 || i1 == i2 || i0 == i2 ||
        !PlaneThrough(&cell_xyz_[i0 * 3], &cell_xyz_[i1 * 3], &cell_xyz_[i2 * 3], max_tilt_cos_,
                      candidate, &candidate_offset)) {
      continue;
    }
    unsigned inliers = 0;
    for (unsigned k = 0; k < n; ++k) {
      const float distance = Dot3(candidate, &cell_xyz_[k * 3]) + candidate_offset;
      inliers += std::fabs(distance) <= threshold ? 1u : 0u;
    }
    if (inliers > best) {
      best = inliers;
      std::copy(candidate, candidate + 3, normal);
      *offset = candidate_offset;
    }
    if (best > 0 && static_cast<float>(best) >= enough) {
      break;
    }
  }
  return best > 0;
}

unsigned PlaneFitGroundDetector::MarkInliers(unsigned n, const float normal[3], float offset,
                                             float threshold) {
  unsigned inliers = 0;
  for (unsigned k = 0; k < n; ++k) {
    const bool inlier = std::fabs(Dot3(normal, &cell_xyz_[k * 3]) + offset) <= threshold;
    inlier_[k] = inlier ? 1 : 0;
    inliers += inlier ? 1u : 0u;
  }
  return inliers;
}

// Least-squares plane through the inliers: its normal is the direction of least spread, the
// eigenvector of the smallest eigenvalue of their covariance.
bool PlaneFitGroundDetector::RefitInliers(unsigned n, float normal[3], float* offset) const {
  double sum[3] = {0.0, 0.0, 0.0};
  unsigned used = 0;
  for (unsigned k = 0; k < n; ++k) {
    if (inlier_[k] != 0) {
      for (int axis = 0; axis < 3; ++axis) {
        sum[axis] += cell_xyz_[k * 3 + axis];
      }
      ++used;
    }
  }
  if (used < 3) {
    return false;
  }
  const Eigen::Vector3f centroid(static_cast<float>(sum[0] / used),
                                 static_cast<float>(sum[1] / used),
                                 static_cast<float>(sum[2] / used));
  Eigen::Matrix3f covariance = Eigen::Matrix3f::Zero();
  for (unsigned k = 0; k < n; ++k) {
    if (inlier_[k] != 0) {
      const Eigen::Vector3f d = Eigen::Map<const Eigen::Vector3f>(&cell_xyz_[k * 3]) - centroid;
      covariance.noalias() += d * d.transpose();
    }
  }
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver(covariance);
  if (solver.info() != Eigen::Success ||
      !(solver.eigenvalues()(1) > kMinSpreadRatio * solver.eigenvalues()(0))) {
    return false;
  }
  Eigen::Vector3f up = solver.eigenvectors().col(0).normalized();
  if (up.z() < 0.0f) {
    up = -up;
  }
  if (!(up.z() >= max_tilt_cos_)) {
    return false;
  }
  normal[0] = up.x();
  normal[1] = up.y();
  normal[2] = up.z();
  *offset = -up.dot(centroid);
  return true;
}

// Ground is one connected surface: a cell plane leaning away from the support-weighted mean
// normal of the frame is a wall foot, a ramp of parked cars or a fit across a step.
void PlaneFitGroundDetector::RejectLeaningPlanes() {
  float mean[3] = {0.0f, 0.0f, 0.0f};
  for (const GroundPlane& plane : planes_) {
    if (plane.origin == kPlaneFitted) {
      const float weight = static_cast<float>(plane.support);
      mean[0] += weight * plane.a;
      mean[1] += weight * plane.b;
      mean[2] += weight * plane.c;
    }
  }
  const float length = std::sqrt(Dot3(mean, mean));
  if (!(length > 0.0f)) {
    return;
  }
  for (GroundPlane& plane : planes_) {
    const float normal[3] = {plane.a, plane.b, plane.c};
    if (plane.origin == kPlaneFitted && Dot3(normal, mean) / length < orientation_cos_) {
      plane = GroundPlane();
    }
  }
}

float PlaneFitGroundDetector::HeightAt(const GroundPlane& plane, float x, float y) const {
  return -(plane.a * x + plane.b * y + plane.d) / plane.c;
}

// One smoothing pass: every fitted plane becomes the mean of itself and those of its eight
// neighbours that agree with it in orientation and in height at its centre. Planes across a curb
// or a step disagree in height and are left out, so smoothing does not round real edges.
void PlaneFitGroundDetector::SmoothPass() {
  std::copy(planes_.begin(), planes_.end(), scratch_.begin());
  for (int row = 0; row < coarse_cells_; ++row) {
    for (int column = 0; column < coarse_cells_; ++column) {
      const int index = row * coarse_cells_ + column;
      const GroundPlane& self = planes_[index];
      if (self.origin != kPlaneFitted) {
        continue;
      }
      const Cell& cell = cells_[index];
      const float self_height = HeightAt(self, cell.center_x, cell.center_y);
      const float self_normal[3] = {self.a, self.b, self.c};
      PlaneBlend blend;
      blend.Add(self, self_height);
      for (int r = std::max(row - 1, 0); r <= std::min(row + 1, coarse_cells_ - 1); ++r) {
        for (int c = std::max(column - 1, 0); c <= std::min(column + 1, coarse_cells_ - 1); ++c) {
          const GroundPlane& other = planes_[r * coarse_cells_ + c];
          if (other.origin != kPlaneFitted || (r == row && c == column)) {
            continue;
          }
          const float other_normal[3] = {other.a, other.b, other.c};
          const float height = HeightAt(other, cell.center_x, cell.center_y);
          if (std::fabs(height - self_height) <= cell.inlier_threshold &&
              Dot3(self_normal, other_normal) >= orientation_cos_) {
            blend.Add(other, height);
          }
        }
      }
      GroundPlane smoothed = blend.Result(cell.center_x, cell.center_y);
      smoothed.origin = kPlaneFitted;
      smoothed.support = self.support;
      scratch_[index] = smoothed;
    }
  }
  planes_.swap(scratch_);
}

// A cell left without a plane (too few samples, a single scan line, or a rejected fit) borrows
// the lean of its neighbours' planes and, when it has samples of its own, takes its height from
// them: the lowest group of its samples, lying close together and no further than kMaxFillStep
// from the neighbours' ground, that is large enough to trust. Sparse far cells, shadowed cells and
// the raised side of a curb thus get their own height instead of a neighbour's. A cell with too
// few samples to judge by borrows the neighbours' plane as it is, and only from several fitted
// neighbours that agree, so such fills never chain.
void PlaneFitGroundDetector::FillFromNeighbours(const float* points, unsigned dim) {
  const int passes = std::min(kMaxFillPasses, coarse_cells_);
  for (int pass = 0; pass < passes; ++pass) {
    std::copy(planes_.begin(), planes_.end(), scratch_.begin());
    bool filled_any = false;
    for (int index = 0; index < coarse_cells_ * coarse_cells_; ++index) {
      if (scratch_[index].origin == kPlaneNone && BorrowPlane(index, points, dim)) {
        filled_any = true;
      }
    }
    if (!filled_any) {
      return;
    }
  }
}

// Fills planes_[index] from the neighbour planes of scratch_ when that is sound.
bool PlaneFitGroundDetector::BorrowPlane(int index, const float* points, unsigned dim) {
  const int row = index / coarse_cells_;
  const int column = index % coarse_cells_;
  const Cell& cell = cells_[index];
  PlaneBlend blend;
  int fitted = 0;
  float lowest = kEmptyCell;
  float highest = -kEmptyCell;
  for (int r = std::max(row - 1, 0); r <= std::min(row + 1, coarse_cells_ - 1); ++r) {
    for (int c = std::max(column - 1, 0); c <= std::min(column + 1, coarse_cells_ - 1); ++c) {
      const GroundPlane& other = scratch_[r * coarse_cells_ + c];
      if (other.origin != kPlaneNone) {
        const float height = HeightAt(other, cell.center_x, cell.center_y);
        lowest = std::min(lowest, height);
        highest = std::max(highest, height);
        blend.Add(other, height);
        fitted += other.origin == kPlaneFitted ? 1 : 0;
      }
    }
  }
  if (blend.count == 0) {
    return false;
  }
  GroundPlane filled = blend.Result(cell.center_x, cell.center_y);
  filled.origin = kPlaneFilled;
  const uint32_t samples = sample_start_[index + 1] - sample_start_[index];
  if (samples < param_.nr_inliers_min_threshold) {
    if (fitted < kMinFillNeighbours || highest - lowest > param_.planefit_dist_threshold_far) {
      return false;
    }
    filled.support = static_cast<uint32_t>(blend.count);
    planes_[index] = filled;
    return true;
  }
  uint32_t support = 0;
  if (!AnchorToOwnSamples(index, points, dim, filled, &support)) {
    return false;
  }
  filled.support = support;
  planes_[index] = filled;
  return true;
}

// Moves `plane` (keeping its lean) onto the lowest group of the cell's samples that lie within
// twice the cell's inlier distance of each other and within kMaxFillStep of the plane, and that
// hold enough of them; false when no group does.
bool PlaneFitGroundDetector::AnchorToOwnSamples(int index, const float* points, unsigned dim,
                                                GroundPlane& plane, uint32_t* support) {
  const unsigned n = CopyCellSamples(index, points, dim);
  const float normal[3] = {plane.a, plane.b, plane.c};
  // Heights above the plane overwrite the packed samples from the front: height k is written
  // after sample k has been read, and never past it.
  unsigned near = 0;
  for (unsigned k = 0; k < n; ++k) {
    const float height = Dot3(normal, &cell_xyz_[k * 3]) + plane.d;
    if (std::fabs(height) <= kMaxFillStep) {
      cell_xyz_[near++] = height;
    }
  }
  std::sort(cell_xyz_.begin(), cell_xyz_.begin() + near);
  // Ground is the lowest surface: the first window from below holding enough samples wins, so a
  // car's underside or a wall's lower courses above the ground never outvote it.
  const float width = 2.0f * cells_[index].inlier_threshold;
  const unsigned wanted = std::max<unsigned>(
      param_.nr_inliers_min_threshold,
      static_cast<unsigned>(std::ceil(kFillAgreementShare * static_cast<float>(n))));
  unsigned best = 0;
  unsigned best_first = 0;
  for (unsigned first = 0, last = 0; first < near && best < wanted; ++first) {
    while (last < near && cell_xyz_[last] - cell_xyz_[first] <= width) {
      ++last;
    }
    if (last - first > best) {
      best = last - first;
      best_first = first;
    }
  }
  if (best < wanted) {
    return false;
  }
  double sum = 0.0;
  for (unsigned k = best_first; k < best_first + best; ++k) {
    sum += cell_xyz_[k];
  }
  plane.d -= static_cast<float>(sum / best);
  *support = best;
  return true;
}

}  // namespace velmar
