// Plane-fit ground detector: fits one ground plane per coarse cell of a square grid laid over the
// region of interest, from the lowest returns of a finer grid.
#ifndef VELMAR_GROUND_I_GROUND_H
#define VELMAR_GROUND_I_GROUND_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "framework/ParamBounds.h"

namespace velmar {

// Grids finer than this per side are a configuration error rather than a wish; a detector
// refuses them at Init and ground detection keeps no plane grid for them.
constexpr uint32_t kMaxGridCellsPerSide = 1024;

// Bounds of the size-driving parameters (framework/ParamBounds.h). Grid sizes, sample counts and
// the capacity beyond them fail the parameter check. The capacity is the most returns ground
// detection ever withholds for one fit. The iteration counts are clamped: past these the search
// keeps its best plane and smoothing has long settled, so more work buys nothing.
constexpr ParamBound kPointsMaxBound{"nr_points_max", 1u << 20};
constexpr ParamBound kGridsFineBound{"nr_grids_fine", kMaxGridCellsPerSide};
constexpr ParamBound kGridsCoarseBound{"nr_grids_coarse", kMaxGridCellsPerSide};
constexpr ParamBound kZCompCandidatesBound{"nr_z_comp_candis", 1024};
constexpr ParamBound kSamplesMinBound{"nr_samples_min_threshold", 65536};
constexpr ParamBound kSamplesMaxBound{"nr_samples_max_threshold", 65536};
constexpr ParamBound kRansacIterBound{"nr_ransac_iter_threshold", 1000};
constexpr ParamBound kSmoothIterBound{"nr_smooth_iter", 100};

// How a cell came by its plane.
enum PlaneOrigin : uint8_t {
  kPlaneNone = 0,
  kPlaneFitted = 1,  // fitted from the cell's own returns
  kPlaneFilled = 2,  // borrowed from agreeing neighbours for a cell that could not be fitted
};

// A ground plane a*x + b*y + c*z + d = 0 with (a, b, c) a unit normal pointing up, so that
// a*x + b*y + c*z + d is the signed height of (x, y, z) above the ground.
struct GroundPlane {
  float a = 0.0f;
  float b = 0.0f;
  float c = 0.0f;
  float d = 0.0f;
  uint8_t origin = kPlaneNone;
  uint32_t support = 0;  // returns (or neighbour planes, for a filled cell) backing the plane

  bool IsUsable() const { return support != 0 && !(a == 0.0f && b == 0.0f && c == 0.0f); }
};

struct PlaneFitGroundDetectorParam {
  uint32_t nr_points_max = 320000;  // initial capacity of the per-return buffers
  uint32_t nr_grids_fine = 256;     // fine cells per side, for candidate selection
  uint32_t nr_grids_coarse = 16;    // coarse cells per side, one plane each
  uint32_t nr_z_comp_candis = 32;   // nearby fine cells a candidate is compared with
  uint32_t nr_z_comp_fail_threshold = 4;
  uint32_t nr_inliers_min_threshold = 8;
  uint32_t nr_samples_min_threshold = 128;
  uint32_t nr_samples_max_threshold = 1024;
  float sample_region_z_lower = -3.0f;
  float sample_region_z_upper = -1.0f;
  float roi_region_rad_x = 72.0f;
  float roi_region_rad_x_min = -72.0f;
  float roi_region_rad_y = 72.0f;
  float roi_region_rad_y_min = -72.0f;
  float roi_region_rad_z = 10.0f;
  float roi_region_rad_z_min = -10.0f;
  float roi_near_rad = 32.0f;
  float planefit_dist_threshold_near = 0.1f;
  float planefit_dist_threshold_far = 0.2f;
  float planefit_filter_threshold = 0.1f;  // slab above a fine cell's lowest return kept as samples
  float planefit_orien_threshold = 5.0f;   // degrees a plane may lean from the frame's ground
  float termi_inlier_percen_threshold = 0.99f;
  float candidate_filter_threshold = 1.0f;  // metres a candidate may stand above its neighbours
  int32_t nr_ransac_iter_threshold = 32;
  int32_t nr_smooth_iter = 1;

  // False (with a line on the error stream) for a set the detector cannot work with.
  bool Validate() const;
};

class PlaneFitGroundDetector {
 public:
  explicit PlaneFitGroundDetector(const PlaneFitGroundDetectorParam& param);

  // Checks the parameters and allocates every buffer. Detect fails until this has succeeded.
  bool Init();

  // The bytes Init allocates for `param`, sizes taken at most at their bounds.
  static std::size_t TableBytes(const PlaneFitGroundDetectorParam& param);

  // Fits the planes of all cells from `count` returns stored `dim` floats apart (x, y, z first).
  // Any count is accepted; the per-return buffers grow when it exceeds their capacity.
  bool Detect(const float* points, unsigned count, unsigned dim);

  // The plane of a coarse cell (rows by y, columns by x), or null when the cell has none.
  const GroundPlane* GetGroundPlane(int row, int column) const;

 private:
  struct Cell {
    float center_x;
    float center_y;
    float inlier_threshold;
  };

  void AllocateGrids();
  static int CompareRadius(const PlaneFitGroundDetectorParam& param);
  void BuildNeighbourOffsets();
  void Reserve(unsigned count);
  void BinReturns(const float* points, unsigned count, unsigned dim);
  bool IsCandidateCell(int fine_index) const;
  std::size_t BlockOf(int fine) const;
  float LowestAround(int fine) const;
  void SelectCandidateCells();
  void GatherSamples(const float* points, unsigned count, unsigned dim);
  unsigned CopyCellSamples(int cell, const float* points, unsigned dim);
  void FitCell(int cell, const float* points, unsigned dim);
  bool FindBestHypothesis(unsigned n, float threshold, float normal[3], float* offset);
  unsigned MarkInliers(unsigned n, const float normal[3], float offset, float threshold);
  bool RefitInliers(unsigned n, float normal[3], float* offset) const;
  void RejectLeaningPlanes();
  void SmoothPass();
  void FillFromNeighbours(const float* points, unsigned dim);
  bool BorrowPlane(int index, const float* points, unsigned dim);
  bool AnchorToOwnSamples(int index, const float* points, unsigned dim, GroundPlane& plane,
                          uint32_t* support);
  float HeightAt(const GroundPlane& plane, float x, float y) const;

  PlaneFitGroundDetectorParam param_;
  bool ready_ = false;
  std::mt19937 rng_;

  int fine_cells_ = 0;    // per side
  int coarse_cells_ = 0;  // per side
  float fine_size_x_ = 0.0f;
  float fine_size_y_ = 0.0f;
  float coarse_size_x_ = 0.0f;
  float coarse_size_y_ = 0.0f;
  float max_tilt_cos_ = 0.0f;     // hypotheses leaning further are no ground
  float orientation_cos_ = 0.0f;  // planes leaning further from the frame's ground are dropped

  // Per return: fine and coarse cell, or -1 outside the sampled region.
  std::vector<int32_t> return_fine_;
  std::vector<int32_t> return_coarse_;
  // Per fine cell: lowest z, and whether its lowest return passed the z comparison.
  std::vector<float> fine_min_z_;
  std::vector<uint8_t> fine_accepted_;
  std::vector<int32_t> touched_fine_;
  std::vector<int32_t> neighbour_offsets_;  // (dx, dy) pairs, nearest first
  // Lowest z of each block of block_size_ x block_size_ fine cells, blocks_ per side.
  int block_size_ = 1;
  int blocks_ = 0;
  std::vector<float> block_min_z_;
  // Samples bucketed by coarse cell: indices of returns, cell c at [start[c], start[c+1]).
  std::vector<uint32_t> sample_start_;
  std::vector<uint32_t> sample_fill_;
  std::vector<uint32_t> sample_index_;
  // One cell's samples as packed x, y, z, and the inlier flags of the current plane.
  std::vector<float> cell_xyz_;
  std::vector<uint8_t> inlier_;
  std::vector<Cell> cells_;
  std::vector<GroundPlane> planes_;
  std::vector<GroundPlane> scratch_;
};

}  // namespace velmar

#endif  // VELMAR_GROUND_I_GROUND_H
