// The intensity error of one sensor unit: each channel reports gain x intensity + offset, with a
// gain and an offset of its own. They are drawn from the unit's seed alone, so two drives of one
// unit (other scene seeds, other scenes) share their errors, as the channels of a real unit do;
// calibration is measured against that.
#ifndef VELMAR_TOOLS_SIM_CHANNEL_RESPONSE_H
#define VELMAR_TOOLS_SIM_CHANNEL_RESPONSE_H

#include <cstdint>
#include <vector>

#include "sim/SensorModel.h"
#include "sim/Settings.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

class ChannelResponse {
 public:
  ChannelResponse(const SensorModel& model, const UnitSettings& unit);

  // Applies each return's channel error, within the sensor's intensity scale.
  void Apply(std::vector<_ori_point>& frame) const;
  double Gain(uint32_t channel) const;
  double Offset(uint32_t channel) const;

 private:
  uint32_t firstChannel_;
  std::vector<double> gain_;
  std::vector<double> offset_;
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_CHANNEL_RESPONSE_H
