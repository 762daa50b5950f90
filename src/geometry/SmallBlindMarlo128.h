// The small-blind correction of the 128-channel models: each return is trusted only on the side
// of the separation distance that its face (and, for "Marlo128", its echo) covers.
#ifndef VELMAR_GEOMETRY_SMALL_BLIND_MARLO128_H
#define VELMAR_GEOMETRY_SMALL_BLIND_MARLO128_H

#include "framework/Algorithm.h"

namespace velmar {

class SmallBlindMarlo128 : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  float separate_dist_f = 2.5f;  // metres, "Marlo128F"
  float separate_dist = 2.5f;    // metres, "Marlo128"

 private:
  void ProcessMarlo128F(std::vector<_ori_point>& frame) const;
  void ProcessMarlo128(std::vector<_ori_point>& frame) const;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_SMALL_BLIND_MARLO128_H
