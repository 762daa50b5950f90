// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_GROUND_GROUND_DET_H
#define VELMAR_GROUND_GROUND_DET_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class GroundDet : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_GROUND_GROUND_DET_H
