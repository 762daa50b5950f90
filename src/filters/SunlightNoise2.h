// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_FILTERS_SUNLIGHT_NOISE2_H
#define VELMAR_FILTERS_SUNLIGHT_NOISE2_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class SunlightNoise2 : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_SUNLIGHT_NOISE2_H
