// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_FILTERS_DRAG_POINT_H
#define VELMAR_FILTERS_DRAG_POINT_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class DragPoint : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_DRAG_POINT_H
