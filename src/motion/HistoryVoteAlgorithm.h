// What the algorithms that judge returns by the votes of a MotionGrid history share: the grid,
// the vote's parameters and how they are read, and the named cell lookup.
#ifndef VELMAR_MOTION_HISTORY_VOTE_ALGORITHM_H
#define VELMAR_MOTION_HISTORY_VOTE_ALGORITHM_H

#include <string>

#include "framework/Algorithm.h"
#include "motion/MotionGrid.h"

namespace velmar {

class HistoryVoteAlgorithm : public Algorithm {
 public:
  HistoryVoteAlgorithm(const std::string& name, const std::string& desc, LidarType type,
                       int32_t rows, int32_t sub_cells)
      : Algorithm(name, desc, type), grid_(rows, sub_cells) {}

  // The models whose three faces sweep the same grid columns.
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;

  // The cell of a return by its face (kNoCell outside the grid). A named operation kept on
  // purpose for hosts and tests that probe single cells; frames locate Cells directly.
  int32_t ComputeGridID(double hor_angle, uint32_t channel, uint32_t mirror) const {
    return grid_.ComputeGridID(hor_angle, channel, mirror);
  }

  const MotionGrid& Grid() const { return grid_; }

  int32_t debug_using_echo = -1;
  int32_t num_thred = 6;        // revolutions that must have seen the cell...
  int32_t num_thred_neigh = 3;  // ...and of those, revolutions that must agree
  double r_thred = 0.1;         // metres within which a past range agrees

 protected:
  bool VotesStatic(const MotionGrid::Cell& cell, double range) const {
    return MotionGrid::IsStatic(grid_.Vote(cell, range, r_thred), num_thred, num_thred_neigh);
  }

  MotionGrid grid_;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_HISTORY_VOTE_ALGORITHM_H
