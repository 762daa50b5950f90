// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_FILTERS_HIGHREF_FILTER_ZEP_T_H
#define VELMAR_FILTERS_HIGHREF_FILTER_ZEP_T_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class HighrefFilterZepT : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_HIGHREF_FILTER_ZEP_T_H
