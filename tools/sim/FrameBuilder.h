// Turns the surfaces that a model's beams meet into point records: measured range, pulse width
// and intensity of each return, the noise and artefacts of the enabled kinds, the truth class,
// and the model's point order, face, echo and timing fields.
#ifndef VELMAR_TOOLS_SIM_FRAME_BUILDER_H
#define VELMAR_TOOLS_SIM_FRAME_BUILDER_H

#include <array>
#include <cstdint>
#include <vector>

#include "sim/Random.h"
#include "sim/Scene.h"
#include "sim/SensorModel.h"
#include "sim/Settings.h"
#include "sim/StrongReturnArtefacts.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

class FrameBuilder {
 public:
  FrameBuilder(const SensorModel& model, const NoiseSettings& noise, uint64_t seed);

  // Fills `frame` (resized to the model's frame size) with frame `index` seen in `scene`.
  void Build(Scene& scene, uint32_t index, std::vector<_ori_point>& frame);

 private:
  // A measured return before it is written into the record.
  struct Return {
    double range = 0.0;
    double pulse = 0.0;
    double intensity = 0.0;
    uint32_t truth = 0;
  };
  struct Column {
    uint32_t slot;
    uint32_t column;
    double angleDeg;
    double cosAz;
    double sinAz;
    double time;  // seconds since the start of the recording
    uint64_t timestampNs;
    std::size_t base;  // index of the column's first point in the frame
  };

  void BuildColumn(Scene& scene, const Column& col, std::vector<_ori_point>& frame);
  double Rate(NoiseKind kind) const { return noise_[kind]; }
  Rng& NoiseRng(NoiseKind kind) { return noiseRng_[static_cast<std::size_t>(kind)]; }
  // One draw of the kind's own stream: true with the kind's rate.
  bool Happens(NoiseKind kind) { return NoiseRng(kind).Chance(Rate(kind)); }
  Return SurfaceReturn(const SurfaceHit& hit);
  void AddBeamNoise(const Column& col, uint32_t channelIndex, Return& ret);
  void WritePoint(const Column& col, uint32_t channelIndex, const Return& ret, _ori_point& p) const;
  bool IsEdgeChannel(uint32_t channelIndex) const;
  void AddEdgeEchoes(const Column& col, std::vector<_ori_point>& frame);
  void AddGhosts(const Column& col, std::vector<_ori_point>& frame);
  void AddGhost(const Column& col, uint32_t channelIndex, double range,
                std::vector<_ori_point>& frame);
  void AddDrag(const Column& col, std::vector<_ori_point>& frame);
  void AddSpike(Return& ret);
  void AddMixed(const Column& col, std::vector<_ori_point>& frame);

  const SensorModel& model_;
  NoiseSettings noise_;
  uint64_t seed_;
  // Surface measurements and each noise kind draw from streams of their own: turning a kind on
  // or off never changes the surface returns, and the per-beam kinds stay where they were.
  Rng surfaceRng_;
  std::array<Rng, kNoiseKindCount> noiseRng_;
  std::vector<double> cosEl_;
  std::vector<double> sinEl_;
  std::vector<int> groupOfChannel_;   // channel number -> group, -1 when none
  std::vector<SurfaceHit> beams_;     // surfaces met by the current column's beams
  std::vector<SurfaceHit> previous_;  // and by the previous column of the same sweep
  Column previousColumn_{};
  // Channels whose point in the current / previous column is the near edge of a smear; such a
  // point stays as it is, so that every smear keeps its edge.
  std::vector<uint8_t> edgeNow_;
  std::vector<uint8_t> edgePrevious_;
  StrongReturnArtefacts artefacts_;
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_FRAME_BUILDER_H
