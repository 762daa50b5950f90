// Undistortion by grid speed for the wider model list, Marlo models included.
#ifndef VELMAR_MOTION_UNDISTORT_POINT2_H
#define VELMAR_MOTION_UNDISTORT_POINT2_H

#include "motion/UndistortPoint.h"

namespace velmar {

class UndistortPoint2 : public UndistortPoint {
 public:
  using UndistortPoint::UndistortPoint;

  bool IsSupported(const std::string& lidarTypeName) override;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_UNDISTORT_POINT2_H
