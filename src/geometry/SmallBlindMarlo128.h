// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_GEOMETRY_SMALL_BLIND_MARLO128_H
#define VELMAR_GEOMETRY_SMALL_BLIND_MARLO128_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class SmallBlindMarlo128 : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_SMALL_BLIND_MARLO128_H
