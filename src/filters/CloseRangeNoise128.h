// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_FILTERS_CLOSE_RANGE_NOISE128_H
#define VELMAR_FILTERS_CLOSE_RANGE_NOISE128_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class CloseRangeNoise128 : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_CLOSE_RANGE_NOISE128_H
