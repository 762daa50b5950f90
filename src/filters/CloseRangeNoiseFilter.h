// Removes spurious far returns on the outermost channels of a column when an inner channel of the
// same column sees a very near object.
#ifndef VELMAR_FILTERS_CLOSE_RANGE_NOISE_FILTER_H
#define VELMAR_FILTERS_CLOSE_RANGE_NOISE_FILTER_H

#include <cstddef>

#include "framework/Algorithm.h"

namespace velmar {

class CloseRangeNoiseFilter : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  double filter_channel_range = 6.0;       // edge positions guarded at each end of a column
  double filter_farthest_distance = 2.0;   // a marking point is at most this far...
  double filter_closest_distance = 0.3;    // ...and at least this far
  double filter_distance_threshold = 5.0;  // edge points farther than the marker by more go

 private:
  void FilterColumn(std::vector<_ori_point>& frame, std::size_t base) const;
  bool IsMarkingRange(double distance) const;
  // The marker's range is read anew for every edge point: the marker may itself sit at an edge
  // position and be deleted on the way.
  void DeleteIfFarBehind(_ori_point& edge, const _ori_point& marker) const;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_CLOSE_RANGE_NOISE_FILTER_H
