#include "motion/MotionPoint.h"

#include "framework/about.h"

namespace velmar {
namespace {

constexpr int32_t kGridRows = 192;
constexpr int32_t kGridSubCells = 3;  // one per mirror face
constexpr uint32_t kLastMirror = 2;   // the face that sweeps last in a revolution
constexpr double kMovingFlag = 1.0;

}  // namespace

std::size_t MotionPoint::TableBytes(LidarType /*type*/, const NumberParams& /*params*/) {
  return MotionGrid::TableBytes(kGridRows, kGridSubCells);
}

MotionPoint::MotionPoint(const std::string& name, const std::string& desc, LidarType type)
    : HistoryVoteAlgorithm(name, desc, type, kGridRows, kGridSubCells) {}

bool MotionPoint::ShouldKeepPoint(int32_t id, double range) const {
  return ShouldKeepPoint(MotionGrid::Cell{id, grid_.IndexOf(id)}, range);
}

bool MotionPoint::ShouldKeepPoint(const MotionGrid::Cell& cell, double range) const {
  if (grid_.WarmingUp()) {
    return true;
  }
  return VotesStatic(cell, range);
}

void MotionPoint::Process(std::vector<_ori_point>& frame) {
  for (_ori_point& point : frame) {
    const MotionGrid::Cell cell = grid_.Locate(point.hor_angle, point.channel, point.mirror);
    if (cell.Valid()) {
      // The map is never cleared: a cell keeps the last range seen in it until seen again.
      grid_.Record(cell, point.distance);
      if (!ShouldKeepPoint(cell, point.distance)) {
        point.motion_flag = kMovingFlag;
      }
    }
    // The last face passing the end of the sweep closes the revolution, even off the grid.
    if (point.hor_angle > kRevolutionEndAngle && point.mirror == kLastMirror) {
      grid_.PushOnce();
    }
    if (point.hor_angle < kRevolutionStartAngle) {
      grid_.Rearm();
    }
  }
}

}  // namespace velmar
