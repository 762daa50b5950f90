// Small rules shared by the sunlight noise filters.
#ifndef VELMAR_FILTERS_SUNLIGHT_COMMON_H
#define VELMAR_FILTERS_SUNLIGHT_COMMON_H

#include "velmar/lidar_algo.h"

namespace velmar {

// On the small-blind variant mirror face 1 looks into the blind zone, where the sunlight rules
// would mistake genuine near returns for noise; its points are left alone.
inline bool SkipsMirrorOne(LidarType type) {
  return type == LIDAR_MARLO256_SMALL_BLIND;
}

inline bool IsOnMirrorOne(const _ori_point& p) {
  return p.mirror == 1;
}

}  // namespace velmar

#endif  // VELMAR_FILTERS_SUNLIGHT_COMMON_H
