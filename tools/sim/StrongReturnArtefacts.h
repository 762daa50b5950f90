// Artefacts of returns strong enough to spread beyond their own beam: crosstalk into the other
// channels of their column (vertical) and into the neighbouring columns of their channel
// (horizontal), and the halo a retro-reflector blooms into around itself. All three show as weak
// returns at about the strong return's range, read a little late because a weak echo crosses
// the detector's threshold late. They reach columns that come after the strong return, so they
// are added once a frame's surfaces and other noise are in place.
#ifndef VELMAR_TOOLS_SIM_STRONG_RETURN_ARTEFACTS_H
#define VELMAR_TOOLS_SIM_STRONG_RETURN_ARTEFACTS_H

#include <array>
#include <cstdint>
#include <vector>

#include "sim/Random.h"
#include "sim/Scene.h"
#include "sim/SensorModel.h"
#include "sim/Settings.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

class StrongReturnArtefacts {
 public:
  StrongReturnArtefacts(const SensorModel& model, const NoiseSettings& noise);

  // True when any of the three kinds is switched on.
  bool Enabled() const { return enabled_; }
  // Forgets the surfaces of the previous frame.
  void StartFrame(std::size_t points);
  // Notes how much light the surface return written at `index` of the frame sent back.
  void NoteSurface(std::size_t index, const SurfaceHit& hit);
  // Adds the switched-on kinds to the frame, each drawing from its own stream of `streams`.
  void Apply(std::vector<_ori_point>& frame, std::array<Rng, kNoiseKindCount>& streams);

 private:
  // Where a strong return sits in the frame.
  struct Source {
    std::size_t sweepBase;  // index of its sweep's first point
    uint32_t column;        // column within the sweep
    uint32_t channel;       // channel index within the column
    double energy;
  };
  using SourceAction = void (StrongReturnArtefacts::*)(const Source&, std::vector<_ori_point>&,
                                                       Rng&);

  void ForEachSource(std::vector<_ori_point>& frame, NoiseKind kind, Rng& rng, SourceAction action);
  void AddVerticalCrosstalk(const Source& source, std::vector<_ori_point>& frame, Rng& rng);
  void AddHorizontalCrosstalk(const Source& source, std::vector<_ori_point>& frame, Rng& rng);
  void AddBloom(const Source& source, std::vector<_ori_point>& frame, Rng& rng);
  // Crosstalk of the strong return `from` seen by the beam at `index` of the frame.
  void Crosstalk(const _ori_point& from, std::vector<_ori_point>& frame, std::size_t index,
                 TruthKind kind, Rng& rng) const;
  // Writes a false return of `range` into the point at `index` unless its beam sees something
  // nearer or a strong return of its own, which no leak drowns. Returns whether it was written.
  bool Leak(std::vector<_ori_point>& frame, std::size_t index, double range, double pulse,
            double intensity, TruthKind kind) const;
  std::size_t IndexOf(const Source& source, uint32_t column, uint32_t channel) const {
    return source.sweepBase + static_cast<std::size_t>(column) * model_.channels + channel;
  }

  const SensorModel& model_;
  NoiseSettings noise_;
  bool enabled_;
  std::vector<double> cosEl_;
  std::vector<double> sinEl_;
  std::vector<uint32_t> rankOf_;         // channel index -> place from the top in elevation
  std::vector<uint32_t> channelAtRank_;  // and back
  std::vector<float> energy_;            // per point: energy of its surface return, 0 for none
  std::vector<uint8_t> retro_;           // per point: the surface is a retro-reflector
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_STRONG_RETURN_ARTEFACTS_H
