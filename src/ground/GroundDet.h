// Labels or removes ground and underground returns by their height above a ground plane fitted
// per cell, once per revolution, from the low near returns of the reference mirror face.
#ifndef VELMAR_GROUND_GROUND_DET_H
#define VELMAR_GROUND_GROUND_DET_H

#include <memory>
#include <vector>

#include "framework/Algorithm.h"
#include "ground/i_ground.h"

namespace velmar {

class GroundDet : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  // Builds the detector and the work arrays. It does not look at the detector's own Init result,
  // on purpose: a detector with bad parameters then simply fails every Detect.
  bool Init();
  bool Detect(const std::vector<_ori_point>& points);
  // Despite its name it returns nothing: it copies the detector's fitted planes into plane_grid.
  void GetPlane();
  // True when the point lies over a usable plane and has been classified; its height above the
  // plane is then stored in `height` when one is given.
  bool FilterPointUsingGroundPlane(_ori_point& point, float* height = nullptr) const;
  // Applies the removal rules to a classified point by its signed height above its plane.
  void PredictPoint(double height, _ori_point& point) const;

  // The plane grid, rows by y and columns by x; null before Init or when it could not be made.
  GroundPlane* PlaneAt(int row, int column);
  const std::vector<_ori_point>& Collected() const { return collected; }

  int32_t debug_using_echo = -1;
  int32_t filter_ground_points_flag = 0;
  int32_t filter_underground_points_flag = 0;
  bool remove_ground = false;
  bool remove_underground = false;
  bool plane_ready = false;
  bool initialised = false;
  float filter_ground_points_threshold = 0.1f;
  float cell_size_x = 0.0f;
  float cell_size_y = 0.0f;
  PlaneFitGroundDetectorParam detector_param;
  // Returns withheld while waiting for a fit are capped. A stream that never opens a revolution
  // on the reference face beyond 150 degrees (whole frames fed at once, for instance) never fits,
  // and would otherwise withhold every near, low reference return it sees, growing without end.
  // Past the cap such returns stay in the frame, unclassified. A Marlo128 revolution has at most
  // 46,336 reference returns, so a packet stream never comes near it.
  std::size_t max_withheld = kPointsMaxBound.max;

  // Work arrays of the last fit: index of each collected return, its x, y, z, and its height
  // above its plane as it was given back (NaN for a return over no usable plane). Nothing reads
  // the indices (the detector takes coordinates only); they are kept on purpose, filled and
  // grown with the others, because they belong to the detector wrapper's fixed work layout.
  std::vector<int32_t> point_indices;
  std::vector<float> point_coords;
  std::vector<float> point_heights;

 private:
  void ApplyGroundRule(_ori_point& point) const;
  void ApplyUndergroundRule(_ori_point& point) const;

  std::unique_ptr<PlaneFitGroundDetector> detector;
  std::unique_ptr<GroundPlane[]> plane_grid;
  std::vector<_ori_point> collected;
};

}  // namespace velmar

#endif  // VELMAR_GROUND_GROUND_DET_H
