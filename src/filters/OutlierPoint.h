// Removes isolated range outliers along a column of channels: a point far in range from each of
// its nearest neighbours in the column and off the line through its direct neighbours.
#ifndef VELMAR_FILTERS_OUTLIER_POINT_H
#define VELMAR_FILTERS_OUTLIER_POINT_H

#include <cstddef>
#include <vector>

#include "framework/AlgoCommon.h"
#include "framework/Algorithm.h"

namespace velmar {

class OutlierPoint : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  // Runs of 16 channels, each judged by itself ("Orvik16", "Brisel", "Orvik48").
  void FilterOutlierPoint_1(std::vector<_ori_point>& frame, double multiple,
                            double min_thresh) const;
  // Two columns of 64 channels ("QuillA2").
  void FilterOutlierPoint_2(std::vector<_ori_point>& frame, double multiple,
                            double min_thresh) const;

  double deg_to_rad = kDegToRadF;  // widened from single precision, see kDegToRadF
  double angle_orvik16 = 0.7;      // angular steps between channels, degrees
  double angle_fixed = 0.5;
  double angle_column = 0.46;
  double threshold_multiple = 4.0;
  double min_threshold = 0.1;

 private:
  // Tests the point at `index` of the run [run_begin, run_end) against threshold `t` and removes
  // it when every comparison its place in the run allows holds.
  static void FilterPointInRun(std::vector<_ori_point>& frame, std::size_t run_begin,
                               std::size_t run_end, std::size_t index, double t);
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_OUTLIER_POINT_H
