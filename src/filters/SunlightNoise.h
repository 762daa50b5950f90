// Removes isolated near returns caused by sunlight. A suspect point must find enough support:
// neighbours in the frame, the points one column (128 positions) away, and the same position in
// the frames around it in time. Judging a frame needs the frames after it, so once the history is
// long enough each call hands back an older frame, filtered.
#ifndef VELMAR_FILTERS_SUNLIGHT_NOISE_H
#define VELMAR_FILTERS_SUNLIGHT_NOISE_H

#include <cstddef>

#include "filters/FrameHistory.h"
#include "framework/Algorithm.h"

namespace velmar {

class SunlightNoise : public Algorithm {
 public:
  SunlightNoise(const std::string& name, const std::string& desc, LidarType type);

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  void ClearCache() override;

  // Frames kept in the history; a frame is handed back half this many calls after it came in.
  static constexpr std::size_t kWindowFrames = 10;

  // The constructor's defaults, kept on purpose: ParseParams replaces the five configured values
  // (the reflect thresholds, valid_distance and both windows) with 0 when their keys are
  // missing, so these show only on an instance that has not read its parameters.
  double energy_floor = 70.0;  // weaker points are deleted, weaker neighbours give no support
  // Running minimum of the range tolerance; it lives as long as the object, across cache clears.
  double min_range_tolerance = 0.1;
  double pulse_tolerance = 3.0;
  double range_factor_a = 0.00942463843;  // range tolerance = distance * a * b
  double range_factor_b = 1.0;
  double valid_distance = 10.0;          // only nearer points are judged
  int32_t filter_window_v = 3;           // half-width of the index-neighbour search
  int32_t filter_window_h = 5;           // half-width of the search over the frame history
  int32_t echo0_support = 5;             // support a first echo needs to exceed
  int32_t echo1_support = 3;             // support a second echo needs to exceed
  double current_range_tolerance = 0.2;  // tolerance of the point being judged
  // Read and stored so that the parameter map shows them, and deliberately never compared: the
  // strong-echo bounds the filter trusts are fixed (see SunlightNoise.cpp). Kept on purpose.
  double left_reflect_threshold = 100.0;
  double right_reflect_threshold = 400.0;
  bool skip_mirror_one;

 private:
  using Frame = FrameHistory::Frame;

  struct Support {
    int32_t count = 0;
    bool done = false;
  };

  void FilterFrame(Frame& frame, std::size_t centre, bool history_ready);
  // Whether the point at `index`, a close and weak return, is confirmed by its surroundings.
  bool HasEnoughSupport(const Frame& frame, std::size_t index, std::size_t centre);
  void SearchIndexNeighbours(const Frame& frame, std::size_t index, Support& support) const;
  void SearchColumnNeighbours(const Frame& frame, std::size_t index, Support& support) const;
  void SearchHistory(const _ori_point& p, std::size_t index, std::size_t centre,
                     Support& support) const;
  void AddMidpointSupport(const Frame& frame, std::size_t index, Support& support) const;

  // Not a pure test: it marks `support` as sufficient once the count exceeds what the point's
  // echo needs (and it stays so), then answers whether it is.
  bool IsValidPoint(const _ori_point& p, Support& support) const;
  // Not a test either: it adds q's support for p to the count.
  void IsNearbyPoint(const _ori_point& p, const _ori_point& q, bool pulse_test,
                     Support& support) const;

  FrameHistory history_;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_SUNLIGHT_NOISE_H
