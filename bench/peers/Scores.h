// Scores of one method on a set of frames. A method flags returns: an outlier filter flags what
// it removes, a ground method what it calls ground. The counts per class turn into the figures of
// the tables: the share of returns flagged (meaningful on unlabelled frames too), and, where the
// frames are labelled, recall and precision of the class the method is after.
#ifndef VELMAR_BENCH_PEERS_SCORES_H
#define VELMAR_BENCH_PEERS_SCORES_H

#include <array>
#include <cstdint>
#include <vector>

#include "PeerFrame.h"

namespace velmar {
namespace peers {

using Flags = std::vector<uint8_t>;  // one per return of a frame, non-zero when flagged

struct Counts {
  uint64_t returns = 0;
  uint64_t flagged = 0;
};

constexpr std::size_t kPointClassCount = 4;
constexpr std::size_t kTruthKinds = 256;

struct Tally {
  Counts all;
  std::array<Counts, kPointClassCount> byClass{};
  std::array<Counts, kTruthKinds> byKind{};  // filled for frames with simulator truth

  void Add(const PeerFrame& frame, const Flags& flags);
  const Counts& operator[](PointClass c) const { return byClass[static_cast<std::size_t>(c)]; }
};

struct Score {
  double flaggedShare = 0.0;  // of every return
  bool labelled = false;      // false: the figures below mean nothing
  double recall = 0.0;        // of the target class
  double precision = 0.0;     // of what was flagged among the labelled returns
  double f1 = 0.0;
  double othersFlagged = 0.0;  // share of the labelled returns of the other classes flagged
};

Score ScoreOf(const Tally& tally, PointClass target);

double Share(uint64_t part, uint64_t whole);

// CPU time of the whole process, in seconds. The benchmark times with it rather than the wall
// clock: on a machine shared with other builds, a wall-clock time also counts the turns other
// processes take on the cores.
double ProcessCpuSeconds();

}  // namespace peers
}  // namespace velmar

#endif  // VELMAR_BENCH_PEERS_SCORES_H
