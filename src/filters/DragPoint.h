// Removes or grades drag points: returns smeared along a neighbour's line of sight, as seen between
// a near edge and the background behind it. Works on packets and answers each call with the
// previous packet, filtered, because a packet's first column needs the next packet's columns.
#ifndef VELMAR_FILTERS_DRAG_POINT_H
#define VELMAR_FILTERS_DRAG_POINT_H

#include <cstddef>
#include <vector>

#include "framework/Algorithm.h"

namespace velmar {

class DragPoint : public Algorithm {
 public:
  using Algorithm::Algorithm;

  void Process(std::vector<_ori_point>& points) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  void ClearCache() override;

  // Angles in degrees, distances in metres. The cosines are derived by ParseParams.
  double angle_threshold_filtered = 4.0;
  double dist_threshold_filtered = 2.0;
  double angle_threshold_level_2 = 7.0;
  double dist_threshold_level_2 = 2.0;
  double angle_threshold_level_1 = 10.0;
  double dist_threshold_level_1 = 2.0;
  double cos_filtered = 0.0;
  double cos_level_2 = 0.0;
  double cos_level_1 = 0.0;

  // The first column source of the first block of the packet filtered next.
  const std::vector<_ori_point>& OlderPacket() const {
    return older_is_delayed_ ? delayed_packet : older_packet;
  }

  // What the buffers hold between calls, for packets P1, P2, ... given since creation:
  //
  //   buffer           after call 1   after call 2   after call n >= 3 (a filtering call)
  //   older_packet     P1             P1             stale: OlderPacket() is Pn
  //   delayed_packet   -              P2             Pn, handed back filtered by call n + 1
  //
  // Calls 1 and 2 hand their own packet back untouched; call n >= 3 hands back P(n-1), in the
  // storage that held it, and keeps the host's storage with Pn. A clear forgets only the older
  // packet (the delayed one is still owed to the host), so the next call is a fill like call 1
  // and the one after it filters again. The storage is kept so that a running filter never
  // reallocates.
  std::vector<_ori_point> older_packet;
  std::vector<_ori_point> delayed_packet;

  // "ZephelT" packets are a single column.
  bool single_block = false;

 private:
  enum class Verdict { kNone, kRemove, kLevel2, kLevel1 };

  // Bounds that settle most neighbours as giving no verdict from squared lengths alone, with a
  // margin far above rounding error, so that the square roots and the division are spent only
  // where a verdict is possible. Derived from the thresholds at every packet, since the host may
  // change them between packets.
  struct QuickReject {
    double far_step_squared;     // a longer step fails every distance rule
    double flat_cosine_squared;  // below this times |N|^2 |d|^2, dot^2 fails every angle rule
  };
  QuickReject DeriveQuickReject() const;

  void FilterBlock(std::vector<_ori_point>& packet, std::size_t block, std::size_t block_count,
                   std::size_t block_points);
  // Returns true when `neighbour_index` exists in `source` and its verdict has been applied.
  bool JudgeAgainst(_ori_point& point, const std::vector<_ori_point>& source,
                    std::size_t neighbour_index) const;
  Verdict Judge(const _ori_point& point, const _ori_point& neighbour) const;

  QuickReject quick_reject_{};

  // Once a packet has been filtered, the older packet is a copy of the delayed one, and on the
  // next call a copy of the packet handed back: that packet is read in its place instead of
  // keeping a third copy. Only a fill or a clear makes them differ.
  bool older_is_delayed_ = false;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_DRAG_POINT_H
