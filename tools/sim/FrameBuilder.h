// Turns the surfaces that a model's beams meet into point records: measured range, pulse width
// and intensity of each return, the noise and artefacts of the enabled kinds, the truth class,
// and the model's point order, face, echo and timing fields.
#ifndef VELMAR_TOOLS_SIM_FRAME_BUILDER_H
#define VELMAR_TOOLS_SIM_FRAME_BUILDER_H

#include <cstdint>
#include <vector>

#include "sim/Random.h"
#include "sim/Scene.h"
#include "sim/SensorModel.h"
#include "sim/Settings.h"
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
    uint64_t timestampNs;
    std::size_t base;  // index of the column's first point in the frame
  };

  double Rate(NoiseKind kind) const { return noise_[kind]; }
  Return SurfaceReturn(const SurfaceHit& hit);
  void AddBeamNoise(const Column& col, uint32_t channelIndex, Return& ret);
  void WritePoint(const Column& col, uint32_t channelIndex, const Return& ret, _ori_point& p) const;
  bool IsEdgeChannel(uint32_t channelIndex) const;
  void AddEdgeEchoes(const Column& col, std::vector<_ori_point>& frame);
  void AddGhosts(const Column& col, std::vector<_ori_point>& frame);
  void AddGhost(const Column& col, uint32_t channelIndex, double range,
                std::vector<_ori_point>& frame);
  void AddDrag(const Column& col, std::vector<_ori_point>& frame);

  const SensorModel& model_;
  NoiseSettings noise_;
  uint64_t seed_;
  Rng rng_;
  std::vector<double> cosEl_;
  std::vector<double> sinEl_;
  std::vector<int> groupOfChannel_;   // channel number -> group, -1 when none
  std::vector<SurfaceHit> beams_;     // surfaces met by the current column's beams
  std::vector<SurfaceHit> previous_;  // and by the previous column of the same sweep
  Column previousColumn_{};
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_FRAME_BUILDER_H
