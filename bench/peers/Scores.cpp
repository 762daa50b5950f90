#include "Scores.h"

#include <time.h>

namespace velmar {
namespace peers {

void Tally::Add(const PeerFrame& frame, const Flags& flags) {
  for (std::size_t i = 0; i < frame.points.size(); ++i) {
    const uint64_t flagged = i < flags.size() && flags[i] != 0 ? 1 : 0;
    Counts& cls = byClass[static_cast<std::size_t>(frame.classes[i])];
    for (Counts* counts : {&all, &cls}) {
      ++counts->returns;
      counts->flagged += flagged;
    }
    if (i < frame.kinds.size()) {
      ++byKind[frame.kinds[i]].returns;
      byKind[frame.kinds[i]].flagged += flagged;
    }
  }
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

double ProcessCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

Score ScoreOf(const Tally& tally, PointClass target) {
  Score score;
  score.flaggedShare = Share(tally.all.flagged, tally.all.returns);
  Counts others;
  for (const PointClass c : {PointClass::kNoise, PointClass::kGround, PointClass::kObject}) {
    if (c != target) {
      others.returns += tally[c].returns;
      others.flagged += tally[c].flagged;
    }
  }
  const Counts& hit = tally[target];
  score.labelled = hit.returns + others.returns > 0;
  score.recall = Share(hit.flagged, hit.returns);
  score.precision = Share(hit.flagged, hit.flagged + others.flagged);
  const double sum = score.recall + score.precision;
  score.f1 = sum > 0.0 ? 2.0 * score.recall * score.precision / sum : 0.0;
  score.othersFlagged = Share(others.flagged, others.returns);
  return score;
}

}  // namespace peers
}  // namespace velmar
