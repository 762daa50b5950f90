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

}  // namespace

StageMeter::StageMeter(std::vector<std::shared_ptr<AlgoBase>> algorithms) {
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

void StageMeter::Measure(std::size_t stage, const std::vector<_ori_point>& before, uint32_t seq,
                         const std::vector<_ori_point>& after) {
  std::vector<int64_t> representative =
      Representatives(before.size(), after, [&after, seq](std::size_t j) {
        Stamp stamp = ReadStamp(after[j]);
        return stamp.unit == seq ? static_cast<int64_t>(stamp.index) : kNoOrigin;
      });
  std::vector<OutcomeTally>& perStage = contributions_[seq];
  perStage.resize(stages_.size());
  perStage[stage] = OutcomeTally{};
  TallyOutcomes(before, after, representative, perStage[stage]);
}

void StageMeter::Collect(const std::vector<uint32_t>& units, std::vector<OutcomeTally>& totals) {
  totals.resize(stages_.size());
  for (uint32_t seq : units) {
    auto found = contributions_.find(seq);
    if (found == contributions_.end()) {
      continue;
    }
    for (std::size_t s = 0; s < found->second.size(); ++s) {
      totals[s] += found->second[s];
    }
    contributions_.erase(found);
  }
}

}  // namespace tools
}  // namespace velmar
