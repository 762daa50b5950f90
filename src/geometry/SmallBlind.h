// Removes the returns of the mirror face that does not cover a range: face 0 sees the far field,
// face 1 the near field, and the separation distance splits them.
#ifndef VELMAR_GEOMETRY_SMALL_BLIND_H
#define VELMAR_GEOMETRY_SMALL_BLIND_H

#include "framework/Algorithm.h"

namespace velmar {

class SmallBlind : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  float separate_dist = 3.0f;  // metres
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_SMALL_BLIND_H
