// Placeholder until this algorithm is written: it leaves frames unchanged.
#ifndef VELMAR_GEOMETRY_CALCULATE_ROTATE_ALL_POINT_CLOUD_H
#define VELMAR_GEOMETRY_CALCULATE_ROTATE_ALL_POINT_CLOUD_H

#include "framework/PassThroughAlgo.h"

namespace velmar {

class CalculateRotateAllPointCloud : public PassThroughAlgo {
 public:
  using PassThroughAlgo::PassThroughAlgo;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_CALCULATE_ROTATE_ALL_POINT_CLOUD_H
