// Runs the algorithms of a pipeline one after another, as the pipeline does, and measures what
// each one does to the points it hands on. A packet that an algorithm hands back later (the
// drag filter's delay) is compared with the packet as that algorithm was given it; when a packet
// passes an algorithm more than once, its last passage counts, as it does for the host.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_STAGE_METER_H
#define VELMAR_TOOLS_VELMAR_ALGO_STAGE_METER_H

#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Outcome.h"
#include "framework/AlgoBase.h"

namespace velmar {
namespace tools {

class StageMeter {
 public:
  // Returns of the objects in `signs` are also counted as sign returns.
  explicit StageMeter(std::vector<std::shared_ptr<AlgoBase>> algorithms,
                      SignObjects signs = SignObjects());

  std::size_t StageCount() const { return stages_.size(); }
  const AlgoBase& Algorithm(std::size_t stage) const { return *stages_[stage].algorithm; }

  // Runs every algorithm over a stamped packet (or frame), in place.
  void Process(std::vector<_ori_point>& unit);
  // Adds what each algorithm did to the given packets into `totals` (one tally per stage) and
  // forgets them.
  void Collect(const std::vector<uint32_t>& units, std::vector<OutcomeTally>& totals);

 private:
  struct Stage {
    std::shared_ptr<AlgoBase> algorithm;
    // Packets as this algorithm received them, kept while it may still hand them back.
    std::map<uint32_t, std::vector<_ori_point>> held;
  };

  // What one algorithm did to one packet.
  struct Contribution {
    OutcomeTally tally;
    std::vector<_ori_point> removed;  // the returns it removed, as it was given them
    std::vector<_ori_point> movedIn;  // returns it appended that came from another packet
  };

  void Measure(std::size_t stage, const std::vector<_ori_point>& before, uint32_t seq,
               const std::vector<_ori_point>& after);
  static void MatchMovedReturns(const std::vector<const Contribution*>& parts, OutcomeTally& total);

  std::vector<Stage> stages_;
  SignObjects signs_;
  std::vector<_ori_point> before_;
  std::map<uint32_t, std::vector<Contribution>> contributions_;  // per packet, per stage
};

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_STAGE_METER_H
