// Removes disturbed returns: a spike far from every neighbour while the neighbours agree with
// one another, and a mixed return floating between a near edge and the background. Both are
// returns that no neighbour supports in a neighbourhood of returns that do have support; thin
// objects (poles, posts, wires, legs) keep theirs along their own length.
#ifndef VELMAR_FILTERS_DISTURB_POINT_FILTER_H
#define VELMAR_FILTERS_DISTURB_POINT_FILTER_H

#include <vector>

#include "framework/RangeImageAlgorithm.h"

namespace velmar {

class DisturbPointFilter : public RangeImageAlgorithm {
 public:
  using RangeImageAlgorithm::RangeImageAlgorithm;

  void Process(std::vector<_ori_point>& frame) override;
  void ParseParams() override;

  double support_factor = 3.0;   // support radius, in beam separations at the range
  double min_radius = 0.05;      // metres, the least support radius
  int32_t min_agreeing = 3;      // supported neighbours that make an unsupported return stand out
  double step_factor = 1.5;      // a depth step, in beam separations at the range
  double hold_factor = 1.0;      // a return held by the surface across a step, same unit
  double range_tolerance = 0.1;  // metres of range noise below which two returns agree
  double sweep_gap = 0.005;      // seconds: returns further apart in time are other sweeps

 private:
  bool Supported(const ImageReturn& r, int32_t self) const;
  bool Surrounded(const ImageReturn& r, int32_t self) const;
  bool SameSweep(const ImageReturn& a, const ImageReturn& b) const;
  const ImageReturn* NearestInRange(const ImageReturn& r, int rows, int columns, float range,
                                    float& separationSq) const;
  bool Between(const ImageReturn& r, int rows, int columns) const;
  float HoldDistance(const ImageReturn& r, float separationSq) const;
  bool InLine(const ImageReturn& r, int rows, int columns) const;
  bool Held(const ImageReturn& r, int32_t self, int rows, int columns) const;
  bool Mixed(const ImageReturn& r, int32_t self) const;
  void Judge(std::vector<_ori_point>& frame, std::size_t first);

  std::vector<uint8_t> supported_;  // per return of the image
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_DISTURB_POINT_FILTER_H
