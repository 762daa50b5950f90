// What happened to each recorded return on its way through a pipeline (or one algorithm of it),
// judged against the truth class the simulator wrote into reserved_a, and the counts per class
// that the eval report is made of.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_OUTCOME_H
#define VELMAR_TOOLS_VELMAR_ALGO_OUTCOME_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "sim/Truth.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

// Counts for one truth class.
struct ClassCounts {
  uint64_t returns = 0;  // returns of this class that went in
  uint64_t removed = 0;  // came out with distance 0
  uint64_t flagged = 0;  // kept, with label, drag_level or motion_flag changed
  uint64_t moved = 0;    // kept, with x, y or z changed
  uint64_t added = 0;    // extra copies that an algorithm appended
  uint64_t lost = 0;     // went in and did not come out at all

  ClassCounts& operator+=(const ClassCounts& other);
};

// Scene objects that are retro-reflective signs, by object number (entry 0 stands for no object);
// empty when the scene is not known.
using SignObjects = std::vector<uint8_t>;

struct OutcomeTally {
  std::array<ClassCounts, sim::kTruthKindCount> byClass{};
  ClassCounts signs;  // returns of retro-reflective signs, counted among the real ones as well

  OutcomeTally& operator+=(const OutcomeTally& other);
  ClassCounts& operator[](sim::TruthKind kind) { return byClass[static_cast<std::size_t>(kind)]; }
  const ClassCounts& operator[](sim::TruthKind kind) const {
    return byClass[static_cast<std::size_t>(kind)];
  }
  ClassCounts Noise() const;    // every noise class together
  ClassCounts Surface() const;  // real objects and ground together
};

// Share of noise returns removed, and share of real returns (objects and ground) removed; 0 when
// there were none.
double NoiseRecall(const ClassCounts& noise);
double RealRemovedShare(const ClassCounts& surface);
double Share(uint64_t part, uint64_t whole);

// The four outcomes a picture tells apart.
enum class PointOutcome { kRealKept, kNoiseRemoved, kRealRemoved, kNoiseKept };
PointOutcome OutcomeOf(sim::TruthKind kind, bool removed);

// For each input point, the output point that stands for it: the first copy that is still a
// return, else the first copy at all, else kNoOrigin. `originOf` gives the input index an output
// point comes from, or kNoOrigin.
std::vector<int64_t> Representatives(std::size_t inputCount, const std::vector<_ori_point>& output,
                                     const std::function<int64_t(std::size_t)>& originOf);

// Adds to `tally` what happened between `input` and `output` (the same points after
// processing); `representative` comes from Representatives(). Returns of the objects in `signs`
// are also counted in tally.signs.
void TallyOutcomes(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
                   const std::vector<int64_t>& representative, OutcomeTally& tally,
                   const SignObjects& signs = SignObjects());

// The same, counted by the object half of the truth: on imported recordings it holds the
// dataset's own class.
void TallyByObject(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
                   const std::vector<int64_t>& representative,
                   std::map<uint32_t, ClassCounts>& tally);

// Whether a kept return changed position, or had one of its flags (label, drag_level,
// motion_flag) changed.
bool Moved(const _ori_point& before, const _ori_point& after);
bool Flagged(const _ori_point& before, const _ori_point& after);

inline bool IsReturn(const _ori_point& point) {
  return point.distance != 0.0;
}

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_OUTCOME_H
