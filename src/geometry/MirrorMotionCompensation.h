// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_GEOMETRY_MIRROR_MOTION_COMPENSATION_H
#define VELMAR_GEOMETRY_MIRROR_MOTION_COMPENSATION_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class MirrorMotionCompensation : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_MIRROR_MOTION_COMPENSATION_H
