// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_FILTERS_CLOSE_RANGE_NOISE_FILTER_H
#define VELMAR_FILTERS_CLOSE_RANGE_NOISE_FILTER_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class CloseRangeNoiseFilter : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_CLOSE_RANGE_NOISE_FILTER_H
