// How well the clusters an algorithm writes into aux_value (two-pass clustering, with its
// "write_cluster" parameter) match the objects of the simulated scene, whose numbers the truth
// carries: an object within reach is found when one cluster covers it with an intersection over
// union of at least 0.9.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_CLUSTER_SCORE_H
#define VELMAR_TOOLS_VELMAR_ALGO_CLUSTER_SCORE_H

#include <cstdint>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

// Objects count when every return of theirs in the frame lies within this range (metres) and
// they are no larger than a car across (metres, over their returns): cars, pedestrians, signs,
// posts and poles; buildings and wires, which stretch along the street, are left out.
constexpr double kClusterScoreRange = 40.0;
constexpr double kClusterScoreExtent = 8.0;
constexpr double kClusterMatchIou = 0.9;

struct ClusterScore {
  uint32_t frames = 0;          // frames whose output carried cluster numbers
  uint64_t objects = 0;         // objects within kClusterScoreRange, over those frames
  uint64_t matched = 0;         // of them, covered by one cluster with IoU >= kClusterMatchIou
  uint64_t objectsSeen = 0;     // every object with returns, at any range
  uint64_t objectsDamaged = 0;  // of them, objects that lost any return
  uint64_t objectsRemoved = 0;  // of them, objects that lost every return
  uint64_t clusters = 0;        // clusters written

  double MatchedShare() const;
};

// Scores one frame; frames whose output carries no cluster number are skipped. `representative`
// gives, per input point, the output point that stands for it (Outcome.h).
void ScoreClusters(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
                   const std::vector<int64_t>& representative, ClusterScore& score);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_CLUSTER_SCORE_H
