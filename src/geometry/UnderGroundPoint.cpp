#include "geometry/UnderGroundPoint.h"

namespace velmar {

void UnderGroundPoint::ParseParams() {
  double height = 0.0;
  if (!ReadParam("filter_ground_height", height) || height < 0.0) {
    PrintParamInvalid("UnderGroundPoint");
    return;
  }
  filter_ground_height = static_cast<float>(height);
}

void UnderGroundPoint::Process(std::vector<_ori_point>& frame) {
  const double floor = -static_cast<double>(filter_ground_height);
  for (_ori_point& p : frame) {
    if (p.z < floor) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
