// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_FILTERS_RAINFOG_FILTER_H
#define VELMAR_FILTERS_RAINFOG_FILTER_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class RainfogFilter : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_RAINFOG_FILTER_H
