// The residual motion distortion of a simulated drive: how far each static return lies from
// where the sensor would have seen it at its frame's reference time (the end of the frame, the
// time the next frame starts), before and after a pipeline. The reference position is the same
// measured return moved with the drive's true motion (from the recording's ego speed and yaw
// rate), so range noise is in both and the figure is the motion error alone.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_DISTORTION_H
#define VELMAR_TOOLS_VELMAR_ALGO_DISTORTION_H

#include <memory>
#include <vector>

#include "FrameFeeder.h"
#include "sim/Recording.h"

namespace velmar {
namespace sim {
class Simulator;
}

namespace tools {

struct DistortionFigures {
  uint64_t returns = 0;
  double mean = 0.0;  // metres
  double p95 = 0.0;   // metres, 95th percentile
};

struct DistortionReport {
  bool measured = false;  // false when the recording has no known motion
  DistortionFigures before;
  DistortionFigures after;
  std::vector<DistortionFigures> afterByFrame;
};

class DistortionMeter {
 public:
  // Measures only recordings of a simulated scene in which the sensor moves.
  explicit DistortionMeter(const sim::RecordingInfo& info);
  ~DistortionMeter();

  bool Measuring() const { return simulator_ != nullptr; }
  // `representative`: for each input point, the output point that stands for it (or < 0).
  void Add(const FedFrame& frame, const std::vector<int64_t>& representative);
  DistortionReport Report() const;

 private:
  bool IsStatic(const _ori_point& p) const;

  std::unique_ptr<sim::Simulator> simulator_;
  std::vector<float> before_;
  std::vector<float> after_;
  std::vector<DistortionFigures> afterByFrame_;
};

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_DISTORTION_H
