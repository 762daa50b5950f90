// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_GEOMETRY_JOINTABC_PROCESS_H
#define VELMAR_GEOMETRY_JOINTABC_PROCESS_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class JointabcProcess : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_JOINTABC_PROCESS_H
