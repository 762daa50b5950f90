#include "Distortion.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "Outcome.h"
#include "sim/Scene.h"
#include "sim/Simulator.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

constexpr double kNanosecond = 1e-9;
constexpr double kPercentile = 0.95;

struct Vec3 {
  double x, y, z;
};

// A point of the sensor's axes at `pose`, in world axes.
Vec3 ToWorld(const sim::SensorPose& pose, const Vec3& p) {
  const double c = std::cos(pose.heading);
  const double s = std::sin(pose.heading);
  return {pose.x + c * p.x - s * p.y, pose.y + s * p.x + c * p.y, pose.z + p.z};
}

Vec3 FromWorld(const sim::SensorPose& pose, const Vec3& w) {
  const double c = std::cos(pose.heading);
  const double s = std::sin(pose.heading);
  const double dx = w.x - pose.x;
  const double dy = w.y - pose.y;
  return {c * dx + s * dy, -s * dx + c * dy, w.z - pose.z};
}

double Distance(const _ori_point& p, const Vec3& q) {
  return std::sqrt((p.x - q.x) * (p.x - q.x) + (p.y - q.y) * (p.y - q.y) +
                   (p.z - q.z) * (p.z - q.z));
}

DistortionFigures Figures(std::vector<float> distances) {
  DistortionFigures figures;
  figures.returns = distances.size();
  if (distances.empty()) {
    return figures;
  }
  double sum = 0.0;
  for (float d : distances) {
    sum += d;
  }
  figures.mean = sum / static_cast<double>(distances.size());
  const std::size_t rank = static_cast<std::size_t>(kPercentile * (distances.size() - 1));
  std::nth_element(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(rank),
                   distances.end());
  figures.p95 = distances[rank];
  return figures;
}

}  // namespace

DistortionMeter::DistortionMeter(const sim::RecordingInfo& info) {
  if (info.scene.egoSpeed == 0.0 && info.scene.yawRate == 0.0) {
    return;
  }
  try {
    simulator_ = std::make_unique<sim::Simulator>(sim::SettingsOf(info));
  } catch (const std::invalid_argument&) {
    simulator_.reset();  // not a simulated scene: its motion is unknown
  }
}

DistortionMeter::~DistortionMeter() = default;

// A return of the road or of an object that does not move.
bool DistortionMeter::IsStatic(const _ori_point& p) const {
  if (!sim::IsSurfaceTruth(sim::TruthKindOf(p))) {
    return false;
  }
  const uint32_t object = sim::TruthObjectOf(p);
  const std::vector<sim::SceneBox>& boxes = simulator_->World().Boxes();
  return object == sim::kNoTruthObject || (object <= boxes.size() && !boxes[object - 1].moving);
}

void DistortionMeter::Add(const FedFrame& frame, const std::vector<int64_t>& representative) {
  if (!Measuring()) {
    return;
  }
  const sim::Scene& world = simulator_->World();
  const double frameEnd = (frame.index + 1) * simulator_->Model().FramePeriodSec();
  const sim::SensorPose end = world.PoseAt(frameEnd);
  std::vector<float> after;
  for (std::size_t i = 0; i < frame.input.size(); ++i) {
    const _ori_point& in = frame.input[i];
    const int64_t j = representative[i];
    if (!IsReturn(in) || !IsStatic(in) || j < 0 || !IsReturn(frame.output[j])) {
      continue;
    }
    const sim::SensorPose seen = world.PoseAt(in.timestamp * kNanosecond);
    const Vec3 ideal = FromWorld(end, ToWorld(seen, {in.x, in.y, in.z}));
    before_.push_back(static_cast<float>(Distance(in, ideal)));
    after.push_back(static_cast<float>(Distance(frame.output[j], ideal)));
  }
  after_.insert(after_.end(), after.begin(), after.end());
  afterByFrame_.push_back(Figures(std::move(after)));
}

DistortionReport DistortionMeter::Report() const {
  DistortionReport report;
  report.measured = Measuring();
  report.before = Figures(before_);
  report.after = Figures(after_);
  report.afterByFrame = afterByFrame_;
  return report;
}

}  // namespace tools
}  // namespace velmar
