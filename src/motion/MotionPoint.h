// Flags returns of moving objects: a return whose range disagrees with enough of its cell's
// history gets motion_flag 1.0. Nothing is moved or removed.
#ifndef VELMAR_MOTION_MOTION_POINT_H
#define VELMAR_MOTION_MOTION_POINT_H

#include "motion/HistoryVoteAlgorithm.h"

namespace velmar {

// "debug_using_echo" is accepted for configuration compatibility and writes nothing here.
class MotionPoint : public HistoryVoteAlgorithm {
 public:
  MotionPoint(const std::string& name, const std::string& desc, LidarType type);

  void Process(std::vector<_ori_point>& frame) override;
  static std::size_t TableBytes(LidarType type, const NumberParams& params);
  // No ClearCache: the history describes the scene, not one frame, so there is nothing to forget.

  // By cell id, kept on purpose for hosts and tests that probe single cells; frames go through
  // the Cell form, which needs no id lookup.
  bool ShouldKeepPoint(int32_t id, double range) const;

 private:
  bool ShouldKeepPoint(const MotionGrid::Cell& cell, double range) const;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_MOTION_POINT_H
