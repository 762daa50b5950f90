// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_MOTION_MOTION_POINT_H
#define VELMAR_MOTION_MOTION_POINT_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class MotionPoint : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_MOTION_POINT_H
