#include "Outcome.h"

#include "FrameFeeder.h"

namespace velmar {
namespace tools {
bool Moved(const _ori_point& before, const _ori_point& after) {
  return before.x != after.x || before.y != after.y || before.z != after.z;
}

bool Flagged(const _ori_point& before, const _ori_point& after) {
  return before.label != after.label || before.drag_level != after.drag_level ||
         before.motion_flag != after.motion_flag;
}

ClassCounts& ClassCounts::operator+=(const ClassCounts& other) {
  returns += other.returns;
  removed += other.removed;
  flagged += other.flagged;
  moved += other.moved;
  added += other.added;
  lost += other.lost;
  return *this;
}

OutcomeTally& OutcomeTally::operator+=(const OutcomeTally& other) {
  for (std::size_t k = 0; k < byClass.size(); ++k) {
    byClass[k] += other.byClass[k];
  }
  signs += other.signs;
  return *this;
}

ClassCounts OutcomeTally::Noise() const {
  ClassCounts sum;
  for (uint32_t k = 0; k < sim::kTruthKindCount; ++k) {
    if (sim::IsNoiseTruth(static_cast<sim::TruthKind>(k))) {
      sum += byClass[k];
    }
  }
  return sum;
}

ClassCounts OutcomeTally::Surface() const {
  ClassCounts sum = (*this)[sim::TruthKind::kReal];
  sum += (*this)[sim::TruthKind::kGround];
  return sum;
}

double Share(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

double NoiseRecall(const ClassCounts& noise) {
  return Share(noise.removed, noise.returns);
}

double RealRemovedShare(const ClassCounts& surface) {
  return Share(surface.removed, surface.returns);
}

PointOutcome OutcomeOf(sim::TruthKind kind, bool removed) {
  if (sim::IsNoiseTruth(kind)) {
    return removed ? PointOutcome::kNoiseRemoved : PointOutcome::kNoiseKept;
  }
  return removed ? PointOutcome::kRealRemoved : PointOutcome::kRealKept;
}

std::vector<int64_t> Representatives(std::size_t inputCount, const std::vector<_ori_point>& output,
                                     const std::function<int64_t(std::size_t)>& originOf) {
  std::vector<int64_t> representative(inputCount, kNoOrigin);
  for (std::size_t j = 0; j < output.size(); ++j) {
    int64_t origin = originOf(j);
    if (origin < 0 || static_cast<std::size_t>(origin) >= inputCount) {
      continue;
    }
    int64_t& chosen = representative[static_cast<std::size_t>(origin)];
    bool chosenIsReturn = chosen != kNoOrigin && IsReturn(output[static_cast<std::size_t>(chosen)]);
    if (chosen == kNoOrigin || (!chosenIsReturn && IsReturn(output[j]))) {
      chosen = static_cast<int64_t>(j);
    }
  }
  return representative;
}

namespace {

// An output point that is not the representative of its input point is an extra copy; a point
// with no origin at all was made by an algorithm from state of earlier frames. Both count as
// added. `record(point, outcome)` receives each input return's outcome and each addition.
template <typename Record>
void Tally(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
           const std::vector<int64_t>& representative, Record record) {
  std::vector<bool> isRepresentative(output.size(), false);
  for (std::size_t i = 0; i < input.size(); ++i) {
    int64_t chosen = representative[i];
    if (chosen != kNoOrigin) {
      isRepresentative[static_cast<std::size_t>(chosen)] = true;
    }
    if (!IsReturn(input[i])) {
      continue;
    }
    ClassCounts outcome;
    outcome.returns = 1;
    if (chosen == kNoOrigin) {
      outcome.lost = 1;
    } else {
      const _ori_point& after = output[static_cast<std::size_t>(chosen)];
      if (!IsReturn(after)) {
        outcome.removed = 1;
      } else {
        outcome.flagged = Flagged(input[i], after) ? 1 : 0;
        outcome.moved = Moved(input[i], after) ? 1 : 0;
      }
    }
    record(input[i], outcome);
  }
  ClassCounts addition;
  addition.added = 1;
  for (std::size_t j = 0; j < output.size(); ++j) {
    if (!isRepresentative[j] && IsReturn(output[j])) {
      record(output[j], addition);
    }
  }
}

}  // namespace

void TallyOutcomes(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
                   const std::vector<int64_t>& representative, OutcomeTally& tally,
                   const SignObjects& signs) {
  Tally(input, output, representative, [&](const _ori_point& p, const ClassCounts& outcome) {
    const sim::TruthKind kind = sim::TruthKindOf(p);
    tally[kind] += outcome;
    // The sign row follows the recording's returns; copies an algorithm adds count by class only.
    const uint32_t object = sim::TruthObjectOf(p);
    if (outcome.added == 0 && kind == sim::TruthKind::kReal && object < signs.size() &&
        signs[object]) {
      tally.signs += outcome;
    }
  });
}

void TallyByObject(const std::vector<_ori_point>& input, const std::vector<_ori_point>& output,
                   const std::vector<int64_t>& representative,
                   std::map<uint32_t, ClassCounts>& tally) {
  Tally(input, output, representative, [&tally](const _ori_point& p, const ClassCounts& outcome) {
    tally[sim::TruthObjectOf(p)] += outcome;
  });
}

}  // namespace tools
}  // namespace velmar
