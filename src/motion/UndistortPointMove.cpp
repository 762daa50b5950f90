#include "motion/UndistortPointMove.h"

#include <functional>

#include "framework/AlgoCommon.h"
#include "framework/Messages.h"
#include "framework/about.h"
#include "geometry/CalculateRotateAllPointCloud.h"
#include "geometry/MirrorMotionCompensation.h"

namespace velmar {
namespace {

constexpr const char* kClassName = "UndistortPointMove";

// Bounds of the configured and the believable motion: speeds in m/s, rates in degrees per
// second, accelerations per second.
constexpr double kSpeedLimit = 100.0;
constexpr double kRateLimitDeg = 360.0;
constexpr double kAccelerationLimit = 100.0;
constexpr double kAngularAccelerationLimitDeg = 3600.0;

// Bounds of the sizes that drive memory and work.
constexpr double kMinVoxel = 0.05;
constexpr double kMaxVoxel = 5.0;
constexpr double kMinSamples = 1024;
constexpr double kMaxSamples = 262144;
constexpr double kMinRegistrationPoints = 64;
constexpr double kMaxRegistrationPoints = 65536;
constexpr double kMaxIterations = 100;
constexpr double kMinCorrespondences = 6;
constexpr double kMaxRange = 1000.0;

const char* AxisName(uint32_t axes) {
  if (axes & kAxisForward) {
    return "forward";
  }
  if (axes & kAxisYaw) {
    return "yaw";
  }
  if (axes & kAxisLateral) {
    return "sideways";
  }
  return "vertical, roll or pitch";
}

}  // namespace

UndistortPointMove::UndistortPointMove(const std::string& name, const std::string& desc,
                                       LidarType type)
    : Algorithm(name, desc, type), timing_(type) {}

std::size_t UndistortPointMove::TableBytes(LidarType type, const NumberParams& params) {
  if (!ScanTiming(type).Known()) {
    return 0;  // the algorithm does nothing on a model whose scan timing it does not know
  }
  // A value out of range leaves the default, as ParseParams does.
  auto value = [&params](const char* key, double low, double high, double fallback) {
    const auto it = params.find(key);
    return it != params.end() && it->second >= low && it->second <= high ? it->second : fallback;
  };
  if (value("estimate_motion", 0, 1, 1.0) < 1.0) {
    return 0;
  }
  const double samples = value("max_samples", kMinSamples, kMaxSamples,
                               static_cast<double>(RegistrationSettings().max_samples));
  return ScanRegistration::TableBytes(TruncateToUint32(samples));
}

bool UndistortPointMove::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == LidarTypeToStr(static_cast<int>(lidar_type)) && timing_.Known();
}

void UndistortPointMove::ParseParams() {
  // Each key is optional; a value outside its bounds (NaN included) is reported and the
  // default stays.
  auto read = [this](const char* key, double low, double high,
                     const std::function<void(double)>& apply) {
    double value = 0.0;
    if (!ReadParam(key, value)) {
      return;
    }
    if (!(value >= low && value <= high)) {
      PrintParamOutOfRange(kClassName, key);
      return;
    }
    apply(value);
  };
  read("deskew", 0, 1, [this](double v) { deskew = v >= 1.0; });
  read("estimate_motion", 0, 1, [this](double v) { estimate_motion = v >= 1.0; });
  read("forward_speed", -kSpeedLimit, kSpeedLimit,
       [this](double v) { configured_motion.linear.y() = v; });
  read("lateral_speed", -kSpeedLimit, kSpeedLimit,
       [this](double v) { configured_motion.linear.x() = v; });
  read("vertical_speed", -kSpeedLimit, kSpeedLimit,
       [this](double v) { configured_motion.linear.z() = v; });
  read("yaw_rate", -kRateLimitDeg, kRateLimitDeg,
       [this](double v) { configured_motion.angular.z() = v * kDegToRad; });
  read("pitch_rate", -kRateLimitDeg, kRateLimitDeg,
       [this](double v) { configured_motion.angular.x() = v * kDegToRad; });
  read("roll_rate", -kRateLimitDeg, kRateLimitDeg,
       [this](double v) { configured_motion.angular.y() = v * kDegToRad; });
  read("max_speed", 1.0, kSpeedLimit, [this](double v) { max_speed = v; });
  read("max_turn_rate", 1.0, kRateLimitDeg, [this](double v) { max_turn_rate = v * kDegToRad; });
  read("max_acceleration", 0.1, kAccelerationLimit, [this](double v) { max_acceleration = v; });
  read("max_angular_acceleration", 1.0, kAngularAccelerationLimitDeg,
       [this](double v) { max_angular_acceleration = v * kDegToRad; });
  read("voxel_size", kMinVoxel, kMaxVoxel, [this](double v) { registration.sample_voxel = v; });
  read("plane_voxel_size", kMinVoxel, kMaxVoxel,
       [this](double v) { registration.plane_voxel = v; });
  read("max_samples", kMinSamples, kMaxSamples,
       [this](double v) { registration.max_samples = TruncateToUint32(v); });
  read("registration_points", kMinRegistrationPoints, kMaxRegistrationPoints,
       [this](double v) { registration.registration_points = TruncateToUint32(v); });
  read("max_iterations", 1, kMaxIterations,
       [this](double v) { registration.max_iterations = TruncateToUint32(v); });
  read("min_correspondences", kMinCorrespondences, kMaxRegistrationPoints,
       [this](double v) { registration.min_correspondences = TruncateToUint32(v); });
  read("min_range", 0.0, kMaxRange, [this](double v) { registration.min_range = v; });
  registrar_ready_ = false;
  ClearCache();
}

void UndistortPointMove::ClearCache() {
  if (registrar_ready_) {
    registrar_.Clear();
  }
  last_registration_ = RegistrationResult();
  frames_since_good_ = 0;
  warned_ = false;
  UseMotion(estimate_motion ? PlatformMotion() : configured_motion, !estimate_motion);
}

// Where the face shift (6) runs before this algorithm, learn once what it adds to a return of
// each face and echo, as seen after everything between it and here (the coordinate transform,
// 31): the same probe passed through the pipeline with and without the shift.
void UndistortPointMove::JoinPipeline(const std::vector<std::shared_ptr<AlgoBase>>& pipeline) {
  has_face_shift_ = false;
  for (const std::shared_ptr<AlgoBase>& algo : pipeline) {
    has_face_shift_ = has_face_shift_ ||
                      (algo->Id() < Id() && dynamic_cast<MirrorMotionCompensation*>(algo.get()));
  }
  if (!has_face_shift_) {
    return;
  }
  for (uint32_t mirror = 0; mirror < face_shift_.size(); ++mirror) {
    for (uint32_t echo = 0; echo < face_shift_[mirror].size(); ++echo) {
      _ori_point probe{};
      probe.mirror = mirror;
      probe.echo = echo;
      probe.distance = 1.0;
      std::vector<_ori_point> shifted{probe};
      std::vector<_ori_point> unshifted{probe};
      for (const std::shared_ptr<AlgoBase>& algo : pipeline) {
        if (algo->Id() >= Id()) {
          break;
        }
        if (dynamic_cast<MirrorMotionCompensation*>(algo.get()) != nullptr) {
          algo->Process(shifted);
        } else if (dynamic_cast<CalculateRotateAllPointCloud*>(algo.get()) != nullptr) {
          algo->Process(shifted);
          algo->Process(unshifted);
        }
      }
      face_shift_[mirror][echo] =
          Eigen::Vector3d(shifted[0].x - unshifted[0].x, shifted[0].y - unshifted[0].y,
                          shifted[0].z - unshifted[0].z);
    }
  }
}

Eigen::Vector3d UndistortPointMove::FaceShift(const _ori_point& p) const {
  if (p.mirror >= face_shift_.size() || p.echo >= face_shift_[0].size()) {
    return Eigen::Vector3d::Zero();
  }
  return face_shift_[p.mirror][p.echo];
}

void UndistortPointMove::Process(std::vector<_ori_point>& frame) {
  if (!timing_.Known()) {
    return;
  }
  if (estimate_motion && !registrar_ready_) {
    registrar_.Configure(registration);
    registrar_ready_ = true;
  }
  for (_ori_point& p : frame) {
    if (p.distance > 0.0) {
      HandleReturn(p);
    }
    if (p.mark != 0) {
      EndFrame();
    }
  }
}

void UndistortPointMove::HandleReturn(_ori_point& p) {
  const double seconds = timing_.TimeInFrame(p);
  Eigen::Vector3d measured(p.x, p.y, p.z);
  if (has_face_shift_) {
    measured -= FaceShift(p);
  }
  if (estimate_motion) {
    // Frames that are not to be deskewed are taken as already deskewed: seen at their end.
    registrar_.Add(measured, deskew ? seconds : timing_.FramePeriod(), p.distance, p.channel);
  }
  if (deskew && moving_) {
    const Eigen::Vector3d at_end =
        to_frame_end_.At(seconds - timing_.FramePeriod()).Apply(measured);
    p.x = at_end.x();
    p.y = at_end.y();
    p.z = at_end.z();
  }
}

void UndistortPointMove::EndFrame() {
  if (!estimate_motion) {
    return;
  }
  // Until a motion is estimated, a configured one is where the estimation starts, and what the
  // frame kept as the reference is deskewed with.
  const RegistrationResult result = registrar_.Register(Start(), HasStart());
  last_registration_ = result;
  Judge(result);
  registrar_.KeepAsReference(Start(), timing_.FramePeriod());
}

bool UndistortPointMove::HasStart() const {
  return has_motion_ || !configured_motion.IsZero();
}

const PlatformMotion& UndistortPointMove::Start() const {
  return has_motion_ ? motion_ : configured_motion;
}

void UndistortPointMove::Judge(const RegistrationResult& result) {
  switch (result.status) {
    case RegistrationStatus::kNoReference:
      return;
    case RegistrationStatus::kTooFewMatches:
      Fallback("too few correspondences");
      return;
    case RegistrationStatus::kDegenerate:
      if (!HasStart()) {
        Fallback("the scene does not show the speed");
        return;
      }
      if (!Plausible(result.motion)) {
        Fallback("a jump beyond physical limits");
        return;
      }
      // The well-measured directions are taken; the others kept the last good motion.
      UseMotion(result.motion, true);
      ++frames_since_good_;
      if (!warned_) {
        PrintLine(std::string("[algo]:") + kClassName + " registration is degenerate along " +
                  AxisName(result.degenerate_axes) + ", keeping the last good motion there!");
        warned_ = true;
      }
      return;
    case RegistrationStatus::kConverged:
      if (!Plausible(result.motion)) {
        Fallback("a jump beyond physical limits");
        return;
      }
      UseMotion(result.motion, true);
      frames_since_good_ = 0;
      warned_ = false;
      return;
  }
}

// Within the speed and turn-rate limits, and, when a motion is known (or configured as the
// start), no farther from it than the limits of acceleration allow over the frames since it was
// last confirmed.
bool UndistortPointMove::Plausible(const PlatformMotion& candidate) const {
  if (!candidate.IsFinite() || candidate.linear.norm() > max_speed ||
      candidate.angular.norm() > max_turn_rate) {
    return false;
  }
  if (!HasStart()) {
    return true;
  }
  const double elapsed = timing_.FramePeriod() * (frames_since_good_ + 1);
  return (candidate.linear - Start().linear).norm() <= max_acceleration * elapsed &&
         (candidate.angular - Start().angular).norm() <= max_angular_acceleration * elapsed;
}

void UndistortPointMove::Fallback(const char* reason) {
  ++frames_since_good_;
  if (warned_) {
    return;
  }
  PrintLine(std::string("[algo]:") + kClassName + " motion estimate failed (" + reason + "), " +
            (has_motion_ ? "keeping the last good motion!" : "frames stay as measured!"));
  warned_ = true;
}

void UndistortPointMove::UseMotion(const PlatformMotion& motion, bool known) {
  motion_ = motion;
  has_motion_ = known && motion.IsFinite();
  moving_ = has_motion_ && !motion.IsZero();
  to_frame_end_.Reset(motion_);
}

}  // namespace velmar
