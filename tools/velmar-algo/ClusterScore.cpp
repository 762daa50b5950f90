#include "ClusterScore.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "FrameFeeder.h"
#include "Outcome.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

struct ObjectTally {
  uint64_t returns = 0;
  uint64_t removed = 0;
  double farthest = 0.0;
  double minX = 0.0, maxX = 0.0, minY = 0.0, maxY = 0.0;
  std::unordered_map<uint32_t, uint64_t> byCluster;  // kept returns per cluster number
};

}  // namespace

double ClusterScore::MatchedShare() const {
  return Share(matched, objects);
}

void ScoreClusters(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
                   const std::vector<int64_t>& representative, ClusterScore& score) {
  const bool clustered = std::any_of(output.begin(), output.end(), [](const _ori_point& p) {
    return IsReturn(p) && p.aux_value != 0;
  });
  if (!clustered) {
    return;
  }
  ++score.frames;
  std::unordered_map<uint32_t, ObjectTally> objects;
  std::unordered_map<uint32_t, uint64_t> clusterSize;
  for (std::size_t i = 0; i < input.size(); ++i) {
    const int64_t chosen = representative[i];
    const _ori_point* after =
        chosen == kNoOrigin ? nullptr : &output[static_cast<std::size_t>(chosen)];
    const bool kept = after != nullptr && IsReturn(*after);
    if (kept && after->aux_value != 0) {
      ++clusterSize[after->aux_value];
    }
    const uint32_t object = sim::TruthObjectOf(input[i]);
    if (!IsReturn(input[i]) || object == sim::kNoTruthObject ||
        sim::TruthKindOf(input[i]) != sim::TruthKind::kReal) {
      continue;
    }
    ObjectTally& tally = objects[object];
    const _ori_point& p = input[i];
    if (tally.returns++ == 0) {
      tally.minX = tally.maxX = p.x;
      tally.minY = tally.maxY = p.y;
    }
    tally.farthest = std::max(tally.farthest, p.distance);
    tally.minX = std::min(tally.minX, p.x);
    tally.maxX = std::max(tally.maxX, p.x);
    tally.minY = std::min(tally.minY, p.y);
    tally.maxY = std::max(tally.maxY, p.y);
    if (!kept) {
      ++tally.removed;
    } else if (after->aux_value != 0) {
      ++tally.byCluster[after->aux_value];
    }
  }
  score.clusters += clusterSize.size();
  for (const auto& [number, tally] : objects) {
    ++score.objectsSeen;
    score.objectsDamaged += tally.removed > 0 ? 1 : 0;
    score.objectsRemoved += tally.removed == tally.returns ? 1 : 0;
    const double extent = std::hypot(tally.maxX - tally.minX, tally.maxY - tally.minY);
    if (tally.farthest > kClusterScoreRange || extent > kClusterScoreExtent) {
      continue;
    }
    ++score.objects;
    uint32_t best = 0;
    uint64_t shared = 0;
    for (const auto& [cluster, count] : tally.byCluster) {
      if (count > shared || (count == shared && cluster < best)) {
        best = cluster;
        shared = count;
      }
    }
    const uint64_t united = tally.returns + (shared > 0 ? clusterSize[best] : 0) - shared;
    score.matched += shared > 0 && Share(shared, united) >= kClusterMatchIou ? 1 : 0;
  }
}

}  // namespace tools
}  // namespace velmar
