// Removes isolated returns: snowflakes, rain and spray drops, dust. A return is kept when a
// neighbour in the channel x column structure lies within a few beam spacings of it at its
// range; a return with no measurable reflectance needs more: a bright supporting neighbour, or
// neighbours on two opposite sides or all around one corner (two cells deep), as the returns of a
// dark surface have and a small clump of snowflakes has not.
#ifndef VELMAR_FILTERS_DISCRETE_POINT_H
#define VELMAR_FILTERS_DISCRETE_POINT_H

#include <utility>
#include <vector>

#include "framework/RangeImageAlgorithm.h"

namespace velmar {

class DiscretePoint : public RangeImageAlgorithm {
 public:
  static constexpr int32_t kMaxWindowRows = 4;
  static constexpr int32_t kMaxWindowColumns = 8;

  using RangeImageAlgorithm::RangeImageAlgorithm;

  void Process(std::vector<_ori_point>& frame) override;
  void ParseParams() override;
  static std::size_t TableBytes(LidarType /*type*/, const NumberParams& /*params*/) {
    return RangeImage::kTableBytes + OffsetBytes();
  }

  int32_t window_rows = 2;         // rows searched above and below
  int32_t window_columns = 3;      // columns searched on each side
  double support_factor = 6.0;     // support radius, in beam separations at the range
  double continuity_factor = 2.0;  // radius of the two-sided test of weak returns
  double min_radius = 0.1;         // metres, the least support radius
  int32_t min_support = 1;         // supporting neighbours a return needs
  double weak_intensity = 0.5;     // at or below: no measurable reflectance
  double weak_echo = 8.0;          // echo strength below this is weak too (0: off)

 private:
  struct Offset {
    int rows;
    int columns;
  };
  // The search window at its largest.
  static constexpr std::size_t OffsetBytes() {
    return (2 * kMaxWindowRows + 1) * (2 * kMaxWindowColumns + 1) * sizeof(Offset);
  }
  void BuildOffsets();
  bool IsWeak(const ImageReturn& r) const;
  bool Keep(const ImageReturn& r, int32_t self) const;
  void Judge(std::vector<_ori_point>& frame, std::size_t first);

  std::vector<Offset> offsets_;  // the window, nearest cells first
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_DISCRETE_POINT_H
