// Near the sensor, keeps only the returns of the mirror faces that see each distance band
// properly: one face below the first node, two faces between the nodes.
#ifndef VELMAR_GEOMETRY_JOINTABC_PROCESS_H
#define VELMAR_GEOMETRY_JOINTABC_PROCESS_H

#include "framework/Algorithm.h"

namespace velmar {

class JointabcProcess : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  double node1 = 1.0;   // metres: below it only `one_face` is trusted
  double node2 = 10.0;  // metres: between the nodes only the faces of `two_face` are trusted
  uint32_t one_face = 0;
  uint32_t two_face = 3;  // 1: faces 0 and 1, 2: faces 0 and 2, 3: faces 1 and 2

 private:
  void ParseNodes();
  void ParseFaces();
  bool BandKeepsFace(uint32_t face) const;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_JOINTABC_PROCESS_H
