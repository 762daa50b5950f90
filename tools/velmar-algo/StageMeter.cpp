#include "StageMeter.h"

#include "FrameFeeder.h"

namespace velmar {
namespace tools {
namespace {

// Packets up to this size are kept for later comparison; whole frames are far larger and are
// only ever compared at once, which bounds the memory to one frame per call.
constexpr std::size_t kMaxHeldPoints = 4096;

uint32_t SequenceOf(const std::vector<_ori_point>& unit, uint32_t fallback) {
  if (unit.empty() || ReadStamp(unit.front()).unit == 0) {
    return fallback;
  }
  return ReadStamp(unit.front()).unit;
}

uint64_t PackStamp(Stamp stamp) {
  return (static_cast<uint64_t>(stamp.unit) << 32) | stamp.index;
}

}  // namespace

StageMeter::StageMeter(std::vector<std::shared_ptr<AlgoBase>> algorithms, SignObjects signs)
    : signs_(std::move(signs)) {
  for (std::shared_ptr<AlgoBase>& algorithm : algorithms) {
    stages_.push_back(Stage{std::move(algorithm), {}});
  }
}

void StageMeter::Process(std::vector<_ori_point>& unit) {
  for (std::size_t s = 0; s < stages_.size(); ++s) {
    Stage& stage = stages_[s];
    uint32_t given = SequenceOf(unit, 0);
    before_ = unit;
    stage.algorithm->Process(unit);
    uint32_t returned = SequenceOf(unit, given);
    if (returned == given) {
      Measure(s, before_, returned, unit);
    } else {
      auto held = stage.held.find(returned);
      if (held != stage.held.end()) {
        Measure(s, held->second, returned, unit);
      }
    }
    // Packets older than the one handed back will not come back again.
    stage.held.erase(stage.held.begin(), stage.held.lower_bound(returned));
    if (before_.size() <= kMaxHeldPoints) {
      stage.held[given] = before_;
    }
  }
}

// An output point stands for the input point with the same stamp. Points normally sit at the
// index their stamp names; points an earlier algorithm appended do not, and are looked up.
void StageMeter::Measure(std::size_t stage, const std::vector<_ori_point>& before, uint32_t seq,
                         const std::vector<_ori_point>& after) {
  std::unordered_map<uint64_t, int64_t> byStamp;
  auto originOf = [&before, &after, &byStamp](std::size_t j) -> int64_t {
    Stamp stamp = ReadStamp(after[j]);
    uint64_t packed = PackStamp(stamp);
    if (stamp.index < before.size() && PackStamp(ReadStamp(before[stamp.index])) == packed) {
      return static_cast<int64_t>(stamp.index);
    }
    if (byStamp.empty()) {
      for (std::size_t i = before.size(); i-- > 0;) {
        byStamp[PackStamp(ReadStamp(before[i]))] = static_cast<int64_t>(i);
      }
    }
    auto found = byStamp.find(packed);
    return found == byStamp.end() ? kNoOrigin : found->second;
  };
  std::vector<int64_t> representative = Representatives(before.size(), after, originOf);
  std::vector<Contribution>& perStage = contributions_[seq];
  perStage.resize(stages_.size());
  Contribution& contribution = perStage[stage];
  contribution = Contribution{};
  TallyOutcomes(before, after, representative, contribution.tally, signs_);
  for (std::size_t i = 0; i < before.size(); ++i) {
    int64_t chosen = representative[i];
    if (IsReturn(before[i]) &&
        (chosen == kNoOrigin || !IsReturn(after[static_cast<std::size_t>(chosen)]))) {
      contribution.removed.push_back(before[i]);
    }
  }
  for (std::size_t j = 0; j < after.size(); ++j) {
    if (IsReturn(after[j]) && originOf(j) == kNoOrigin) {
      contribution.movedIn.push_back(after[j]);
    }
  }
}

// A return removed from one packet and appended to another by the same algorithm was kept; it
// counts as flagged or moved by comparing the copy with the return as it was removed.
void StageMeter::MatchMovedReturns(const std::vector<const Contribution*>& parts,
                                   OutcomeTally& total) {
  std::unordered_map<uint64_t, const _ori_point*> removed;
  for (const Contribution* part : parts) {
    for (const _ori_point& point : part->removed) {
      removed.emplace(PackStamp(ReadStamp(point)), &point);
    }
  }
  for (const Contribution* part : parts) {
    for (const _ori_point& copy : part->movedIn) {
      auto found = removed.find(PackStamp(ReadStamp(copy)));
      if (found == removed.end()) {
        continue;
      }
      ClassCounts& counts = total[sim::TruthKindOf(copy)];
      --counts.removed;
      --counts.added;
      counts.flagged += Flagged(*found->second, copy) ? 1 : 0;
      counts.moved += Moved(*found->second, copy) ? 1 : 0;
      removed.erase(found);
    }
  }
}

void StageMeter::Collect(const std::vector<uint32_t>& units, std::vector<OutcomeTally>& totals) {
  totals.resize(stages_.size());
  std::vector<std::vector<const Contribution*>> perStage(stages_.size());
  std::vector<bool> anyMovedIn(stages_.size(), false);
  for (uint32_t seq : units) {
    auto found = contributions_.find(seq);
    if (found == contributions_.end()) {
      continue;
    }
    for (std::size_t s = 0; s < found->second.size(); ++s) {
      const Contribution& contribution = found->second[s];
      totals[s] += contribution.tally;
      perStage[s].push_back(&contribution);
      anyMovedIn[s] = anyMovedIn[s] || !contribution.movedIn.empty();
    }
  }
  for (std::size_t s = 0; s < stages_.size(); ++s) {
    if (anyMovedIn[s]) {
      MatchMovedReturns(perStage[s], totals[s]);
    }
  }
  for (uint32_t seq : units) {
    contributions_.erase(seq);
  }
}

}  // namespace tools
}  // namespace velmar
