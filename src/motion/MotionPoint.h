// Flags returns of moving objects: a return whose range disagrees with enough of its cell's
// history gets motion_flag 1.0. Nothing is moved or removed.
#ifndef VELMAR_MOTION_MOTION_POINT_H
#define VELMAR_MOTION_MOTION_POINT_H

#include "framework/AlgoBase.h"
#include "motion/MotionGrid.h"

namespace velmar {

class MotionPoint : public AlgoBase {
 public:
  MotionPoint(const std::string& name, const std::string& desc, LidarType type);

  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  // The history describes the scene, not one frame, so there is nothing to forget.
  void ClearCache() override {}

  int32_t ComputeGridID(double hor_angle, uint32_t channel, uint32_t mirror) const;
  bool ShouldKeepPoint(int32_t id, double range) const;

  const MotionGrid& Grid() const { return grid_; }

  int32_t debug_using_echo = -1;  // accepted for configuration compatibility; writes nothing
  int32_t num_thred = 6;
  int32_t num_thred_neigh = 3;
  double r_thred = 0.1;

 private:
  bool IsStatic(const MotionGrid::Cell& cell, double range) const;

  MotionGrid grid_;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_MOTION_POINT_H
