// Shifts points along the forward axis by the distance the vehicle travels between the moments
// the mirror faces sweep the scene.
#ifndef VELMAR_GEOMETRY_MIRROR_MOTION_COMPENSATION_H
#define VELMAR_GEOMETRY_MIRROR_MOTION_COMPENSATION_H

#include "framework/Algorithm.h"
#include "geometry/MirrorFaces.h"

namespace velmar {

class MirrorMotionCompensation : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  int32_t speed = 0;                                   // vehicle speed, km/h
  float face_offset[kFaceCount] = {0.0f, 0.0f, 0.0f};  // forward shift per face, metres

 private:
  void UpdateFaceOffsets();
  // Models whose faces scan one after the other whatever the echo.
  bool ShiftsByFaceOnly() const;
  void ShiftByFace(std::vector<_ori_point>& frame) const;
  void ShiftByFaceAndEcho(std::vector<_ori_point>& frame) const;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_MIRROR_MOTION_COMPENSATION_H
