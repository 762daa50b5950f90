#include "motion/ScanRegistration.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>

namespace velmar {
namespace {

using Vector6 = Eigen::Matrix<double, 6, 1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

enum PlaneState : uint8_t { kUnfitted, kPlane, kNoPlane };

// Channels whose last voxel is remembered while a frame is sampled; every model has fewer.
constexpr std::size_t kCachedChannels = 256;

// A plane needs a few returns that spread in two directions and lie thin in the third.
constexpr uint32_t kMinPlaneReturns = 4;
constexpr float kMaxPlaneThickness = 0.05f;  // metres, root mean square
constexpr float kMinSpreadRatio = 4.0f;      // middle over smallest eigenvalue

// Kernel width (metres) over the iterations: it starts wide enough for the error of the start
// (a prediction, or the coarse seed) and shrinks to about the returns' own scatter.
constexpr double kPredictedStartWidth = 0.3;
constexpr double kSeededStartWidth = 0.5;
// Without a prediction the reference was deskewed with nothing: the registration is repeated,
// each time against the reference deskewed with the last estimate.
constexpr uint32_t kUnpredictedPasses = 3;
constexpr double kFinalWidth = 0.05;
constexpr double kWidthDecay = 0.7;
constexpr double kResidualGate = 3.0;  // kernel widths
constexpr double kPlaneGate = 1.5;     // plane voxels between a return and the plane's centre

// Converged when a step changes the velocity by less than this.
constexpr double kLinearStep = 1e-3;   // m/s
constexpr double kAngularStep = 1e-5;  // rad/s

// Rotation rates are weighed as the speed they give 10 m away, so that the uncertainty of every
// direction reads in m/s. A direction whose uncertainty (residual scatter over the square root
// of its information) is above kMaxUncertainty is left at the prediction.
constexpr double kLeverArm = 10.0;
constexpr double kMaxUncertainty = 0.05;    // m/s
constexpr double kMinResidualScale = 0.01;  // metres

// The coarse search for a start without prediction: forward speeds (m/s) and yaw rates (rad/s)
// in steps within the capture range of the first iterations.
constexpr uint32_t kSeedPoints = 1024;
constexpr double kSeedWidth = 0.3;
constexpr double kSeedMinSpeed = -10.0;
constexpr double kSeedSpeedStep = 2.0;
constexpr int kSeedSpeeds = 31;              // up to 50 m/s
constexpr double kSeedYawRateStep = 0.1745;  // 10 degrees per second
constexpr int kSeedYawRates = 13;            // up to 60 degrees per second either way
// The best speed's support from surfaces facing along the path must be this many times that of
// any speed outside its own peak.
constexpr double kSeedProminence = 2.0;

// The vehicle's usual motion, as a spread around zero of its sideways and vertical speeds (m/s)
// and its roll and pitch rates (rad/s), against the scatter of a return about its plane.
constexpr double kPriorResidual = 0.05;
constexpr double kPriorLinearSpread = 0.3;
constexpr double kPriorAngularSpread = 0.05;

// Eigenvalues below this share of the largest count as no information in a step.
constexpr double kNumericalFloor = 1e-9;

Vector6 LeverScale() {
  Vector6 scale;
  scale << 1.0, 1.0, 1.0, 1.0 / kLeverArm, 1.0 / kLeverArm, 1.0 / kLeverArm;
  return scale;
}

double GemanMcClure(double residual, double width) {
  const double w2 = width * width;
  const double ratio = w2 / (w2 + residual * residual);
  return ratio * ratio;
}

}  // namespace

void ScanRegistration::Accumulator::Add(const Vector6& jacobian, double residual, double weight) {
  h.noalias() += weight * jacobian * jacobian.transpose();
  g.noalias() += weight * residual * jacobian;
  weights += weight;
  weighted_squares += weight * residual * residual;
  ++count;
}

std::size_t ScanRegistration::TableBytes(uint32_t max_samples) {
  // Large blocks come straight from the system in whole pages: each of the six tables may hold
  // up to a page more than it asked for.
  constexpr std::size_t kTables = 6;
  constexpr std::size_t kPage = 4096;
  return 2 * VoxelTable::TableBytes(max_samples) + 2 * std::size_t{max_samples} * sizeof(Sample) +
         kCachedChannels * sizeof(LastVoxel) + std::size_t{max_samples} * sizeof(PlaneVoxel) +
         kTables * kPage;
}

void ScanRegistration::Configure(const RegistrationSettings& settings) {
  settings_ = settings;
  sample_table_.Configure(settings.max_samples, settings.sample_voxel);
  samples_.assign(settings.max_samples, Sample{});
  reference_samples_.assign(settings.max_samples, Sample{});
  last_voxel_.assign(kCachedChannels, LastVoxel{});
  reference_count_ = 0;
  plane_table_.Configure(settings.max_samples, settings.plane_voxel);
  planes_.assign(settings.max_samples, PlaneVoxel{});
  has_reference_ = false;
}

void ScanRegistration::ClearSample() {
  sample_table_.Clear();
  ++sample_generation_;
}

void ScanRegistration::Clear() {
  ClearSample();
  plane_table_.Clear();
  has_reference_ = false;
}

void ScanRegistration::Add(const Eigen::Vector3d& position, double seconds, double range,
                           uint32_t channel) {
  uint64_t key = 0;
  if (!(range >= settings_.min_range) ||
      !sample_table_.KeyOf(position.x(), position.y(), position.z(), key)) {
    return;
  }
  // A channel's next return usually falls in the voxel of its previous one: the table is asked
  // only when it does not.
  uint32_t index = VoxelTable::kNone;
  LastVoxel* last = channel < last_voxel_.size() ? &last_voxel_[channel] : nullptr;
  if (last != nullptr && last->generation == sample_generation_ && last->key == key) {
    index = last->index;
  } else {
    bool added = false;
    index = sample_table_.FindOrAdd(key, added);
    if (last != nullptr) {
      *last = LastVoxel{key, index, sample_generation_};
    }
  }
  if (index != VoxelTable::kNone) {
    // The latest return of a voxel replaces the earlier ones.
    samples_[index] = Sample{static_cast<float>(position.x()), static_cast<float>(position.y()),
                             static_cast<float>(position.z()), static_cast<float>(seconds)};
  }
}

void ScanRegistration::KeepAsReference(const PlatformMotion& motion, double frame_period) {
  samples_.swap(reference_samples_);
  reference_count_ = sample_table_.Size();
  ClearSample();
  frame_period_ = frame_period;
  BuildPlanes(motion, 1);
  has_reference_ = true;
}

void ScanRegistration::BuildPlanes(const PlatformMotion& motion, uint32_t stride) {
  plane_table_.Clear();
  MotionCache cache;
  cache.Reset(motion);
  for (uint32_t i = 0; i < reference_count_; i += stride) {
    const Sample& s = reference_samples_[i];
    const Eigen::Vector3d at_end =
        cache.At(s.seconds - frame_period_).Apply(Eigen::Vector3d(s.x, s.y, s.z));
    AddToReference(at_end.cast<float>(), s.seconds - frame_period_);
  }
  reference_motion_ = motion;
}

void ScanRegistration::AddToReference(const Eigen::Vector3f& point, double lag) {
  uint64_t key = 0;
  if (!plane_table_.KeyOf(point.x(), point.y(), point.z(), key)) {
    return;
  }
  bool added = false;
  const uint32_t index = plane_table_.FindOrAdd(key, added);
  if (index == VoxelTable::kNone) {
    return;
  }
  PlaneVoxel& voxel = planes_[index];
  if (added) {
    voxel.origin = point;
    voxel.sum.setZero();
    voxel.xx = voxel.xy = voxel.xz = voxel.yy = voxel.yz = voxel.zz = 0.0f;
    voxel.count = 0;
    voxel.lag = 0.0f;
    voxel.state = kUnfitted;
  }
  voxel.lag += static_cast<float>(lag);
  const Eigen::Vector3f d = point - voxel.origin;
  voxel.sum += d;
  voxel.xx += d.x() * d.x();
  voxel.xy += d.x() * d.y();
  voxel.xz += d.x() * d.z();
  voxel.yy += d.y() * d.y();
  voxel.yz += d.y() * d.z();
  voxel.zz += d.z() * d.z();
  ++voxel.count;
}

void ScanRegistration::FitPlane(PlaneVoxel& voxel) const {
  voxel.state = kNoPlane;
  if (voxel.count < kMinPlaneReturns) {
    return;
  }
  const float n = static_cast<float>(voxel.count);
  const Eigen::Vector3f mean = voxel.sum / n;
  Eigen::Matrix3f covariance;
  covariance << voxel.xx, voxel.xy, voxel.xz, voxel.xy, voxel.yy, voxel.yz, voxel.xz, voxel.yz,
      voxel.zz;
  covariance = covariance / n - mean * mean.transpose();
  Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver;
  solver.computeDirect(covariance);
  const Eigen::Vector3f eigenvalues = solver.eigenvalues();  // ascending
  if (!(eigenvalues(0) <= kMaxPlaneThickness * kMaxPlaneThickness) ||
      !(eigenvalues(1) >= kMinSpreadRatio * std::max(eigenvalues(0), 0.0f))) {
    return;
  }
  voxel.centre = voxel.origin + mean;
  voxel.lag /= n;
  voxel.normal = solver.eigenvectors().col(0).normalized();
  voxel.state = kPlane;
}

const ScanRegistration::PlaneVoxel* ScanRegistration::PlaneAt(uint64_t key) {
  const uint32_t index = plane_table_.Find(key);
  if (index == VoxelTable::kNone) {
    return nullptr;
  }
  PlaneVoxel& voxel = planes_[index];
  if (voxel.state == kUnfitted) {
    FitPlane(voxel);
  }
  return voxel.state == kPlane ? &voxel : nullptr;
}

// The plane of the voxel the point falls in; failing that, the plane with the nearest centre
// among the six voxels sharing a face with it.
const ScanRegistration::PlaneVoxel* ScanRegistration::NearestPlane(const Eigen::Vector3d& point) {
  uint64_t key = 0;
  if (!plane_table_.KeyOf(point.x(), point.y(), point.z(), key)) {
    return nullptr;
  }
  const PlaneVoxel* own = PlaneAt(key);
  if (own != nullptr) {
    return own;
  }
  static constexpr int kFaces[6][3] = {{-1, 0, 0}, {1, 0, 0},  {0, -1, 0},
                                       {0, 1, 0},  {0, 0, -1}, {0, 0, 1}};
  const Eigen::Vector3f p = point.cast<float>();
  const PlaneVoxel* best = nullptr;
  float best_distance = 0.0f;
  for (const auto& face : kFaces) {
    const PlaneVoxel* plane = PlaneAt(VoxelTable::Neighbour(key, face[0], face[1], face[2]));
    if (plane == nullptr) {
      continue;
    }
    const float distance = (p - plane->centre).squaredNorm();
    if (best == nullptr || distance < best_distance) {
      best = plane;
      best_distance = distance;
    }
  }
  return best;
}

RegistrationResult ScanRegistration::Register(const PlatformMotion& prediction,
                                              bool has_prediction) {
  RegistrationResult result;
  result.motion = prediction;
  if (!has_reference_) {
    return result;
  }
  // The reference was deskewed with the velocity accepted for it. Without a prediction that
  // velocity was unknown, so the reference is deskewed again with each new estimate.
  PlatformMotion motion = prediction;
  if (!has_prediction && !SeedByScan(motion)) {
    result.status = RegistrationStatus::kDegenerate;
    result.degenerate_axes = kAxisForward;
    return result;
  }
  Accumulator sums;
  const uint32_t passes = has_prediction ? 1 : kUnpredictedPasses;
  for (uint32_t pass = 0; pass < passes; ++pass) {
    if (!has_prediction) {
      BuildPlanes(motion, 1);
    }
    if (!Iterate(motion, pass == 0 && !has_prediction, sums, result)) {
      result.status = RegistrationStatus::kTooFewMatches;
      result.motion = prediction;
      return result;
    }
  }
  result.degenerate_axes = KeepPredictionWhereWeak(sums, prediction, motion);
  result.motion = motion;
  result.status = result.degenerate_axes != 0 ? RegistrationStatus::kDegenerate
                                              : RegistrationStatus::kConverged;
  return result;
}

// How well the chosen source returns lie on the planes of the reference as measured (not
// deskewed) once moved by one frame period of `motion`. A scanner sees a static point at the same
// moment of every frame, so between two frames as measured the smear cancels and one rigid motion
// remains. `score` sums the returns' kernel weights; `along` sums them weighted by how much their
// plane faces along the forward axis, the part that tells the speed.
void ScanRegistration::Agreement(const PlatformMotion& motion, uint32_t stride, double& score,
                                 double& along) {
  const RigidMotion frame_motion = MotionOver(motion, frame_period_);
  score = 0.0;
  along = 0.0;
  for (uint32_t i = 0; i < sample_table_.Size(); i += stride) {
    const Sample& s = samples_[i];
    const Eigen::Vector3d moved = frame_motion.Apply(Eigen::Vector3d(s.x, s.y, s.z));
    uint64_t key = 0;
    if (!plane_table_.KeyOf(moved.x(), moved.y(), moved.z(), key)) {
      continue;
    }
    const PlaneVoxel* plane = PlaneAt(key);
    if (plane != nullptr) {
      const double residual =
          plane->normal.cast<double>().dot(moved - plane->centre.cast<double>());
      const double weight = GemanMcClure(residual, kSeedWidth);
      score += weight;
      along += weight * plane->normal.y() * plane->normal.y();
    }
  }
}

// Without a prediction, the registration starts from the forward speed and yaw rate that agree
// best with the reference, on a coarse grid (a vehicle's other four directions are small). False
// when the speed is ambiguous: some other speed, well apart, is backed by surfaces facing along
// the path nearly as well. A long corridor, open ground, or a road where only other vehicles
// show their fronts and backs gives such a profile, and guessing there would be drifting.
bool ScanRegistration::SeedByScan(PlatformMotion& seed) {
  const uint32_t stride = std::max<uint32_t>(1, sample_table_.Size() / kSeedPoints);
  BuildPlanes(PlatformMotion(), 1);
  // The speed from the surfaces facing along the path, the yaw rate from all of them.
  double along_by_speed[kSeedSpeeds];
  double score_by_speed[kSeedSpeeds];
  double yaw_by_speed[kSeedSpeeds];
  for (int i = 0; i < kSeedSpeeds; ++i) {
    along_by_speed[i] = 0.0;
    score_by_speed[i] = -1.0;
    yaw_by_speed[i] = 0.0;
    for (int j = 0; j < kSeedYawRates; ++j) {
      PlatformMotion candidate;
      candidate.linear.y() = kSeedMinSpeed + i * kSeedSpeedStep;
      candidate.angular.z() = (j - kSeedYawRates / 2) * kSeedYawRateStep;
      double score = 0.0;
      double along = 0.0;
      Agreement(candidate, stride, score, along);
      along_by_speed[i] = std::max(along_by_speed[i], along);
      if (score > score_by_speed[i]) {
        score_by_speed[i] = score;
        yaw_by_speed[i] = candidate.angular.z();
      }
    }
  }
  // Smoothed over neighbouring speeds: the voxel grid makes single speeds score unevenly.
  double smooth[kSeedSpeeds];
  for (int i = 0; i < kSeedSpeeds; ++i) {
    const double left = along_by_speed[std::max(i - 1, 0)];
    const double right = along_by_speed[std::min(i + 1, kSeedSpeeds - 1)];
    smooth[i] = 0.25 * left + 0.5 * along_by_speed[i] + 0.25 * right;
  }
  const int best_speed = static_cast<int>(std::max_element(smooth, smooth + kSeedSpeeds) - smooth);
  seed = PlatformMotion();
  seed.linear.y() = kSeedMinSpeed + best_speed * kSeedSpeedStep;
  seed.angular.z() = yaw_by_speed[best_speed];
  // The best speed's peak runs down on each side as far as the support keeps falling; the rival
  // is the best support beyond it.
  int low = best_speed;
  while (low > 0 && smooth[low - 1] <= smooth[low]) {
    --low;
  }
  int high = best_speed;
  while (high < kSeedSpeeds - 1 && smooth[high + 1] <= smooth[high]) {
    ++high;
  }
  double rival = 0.0;
  for (int i = 0; i < kSeedSpeeds; ++i) {
    if (i < low || i > high) {
      rival = std::max(rival, smooth[i]);
    }
  }
  // A best speed at the end of the range tried may only be the slope towards one beyond it.
  const bool inside = best_speed > 0 && best_speed < kSeedSpeeds - 1;
  return inside && smooth[best_speed] > 0.0 && smooth[best_speed] >= kSeedProminence * rival;
}

// Gauss-Newton from `motion` while the kernel narrows; false when too few returns match.
bool ScanRegistration::Iterate(PlatformMotion& motion, bool from_seed, Accumulator& sums,
                               RegistrationResult& result) {
  double width = from_seed ? kSeededStartWidth : kPredictedStartWidth;
  for (uint32_t iteration = 0; iteration < settings_.max_iterations; ++iteration) {
    ++result.iterations;
    sums = Linearize(motion, width);
    result.matches = sums.count;
    if (sums.count < settings_.min_correspondences || !(sums.weights > 0.0)) {
      return false;
    }
    const Vector6 step = Solve(sums);
    if (!step.allFinite()) {
      return false;
    }
    motion.linear += step.head<3>();
    motion.angular += step.tail<3>();
    const bool settled =
        step.head<3>().norm() < kLinearStep && step.tail<3>().norm() < kAngularStep;
    if (settled && width <= kFinalWidth) {
      break;
    }
    width = std::max(kFinalWidth, width * kWidthDecay);
  }
  return true;
}

ScanRegistration::Accumulator ScanRegistration::Linearize(const PlatformMotion& motion,
                                                          double kernel_width) {
  const uint32_t count = sample_table_.Size();
  const uint32_t stride =
      std::max<uint32_t>(1, (count + settings_.registration_points - 1) /
                                std::max<uint32_t>(settings_.registration_points, 1));
  const double gate = kPlaneGate * settings_.plane_voxel;
  // The reference was deskewed with reference_motion_; moving it with `motion` instead would
  // shift each plane by its returns' mean lag behind the reference time times the difference.
  // That shift enters to first order, so that both frames are judged with the same velocity.
  const Eigen::Vector3d linear_change = motion.linear - reference_motion_.linear;
  const Eigen::Vector3d angular_change = motion.angular - reference_motion_.angular;
  MotionCache cache;
  cache.Reset(motion);
  Accumulator sums;
  for (uint32_t i = 0; i < count; i += stride) {
    const Sample& s = samples_[i];
    const Eigen::Vector3d moved = cache.At(s.seconds).Apply(Eigen::Vector3d(s.x, s.y, s.z));
    const PlaneVoxel* plane = NearestPlane(moved);
    if (plane == nullptr) {
      continue;
    }
    const Eigen::Vector3d normal = plane->normal.cast<double>();
    const double lag = plane->lag;
    Eigen::Vector3d centre = plane->centre.cast<double>();
    centre += lag * (linear_change + angular_change.cross(centre));
    const Eigen::Vector3d offset = moved - centre;
    const double residual = normal.dot(offset);
    if (offset.squaredNorm() > gate * gate || std::fabs(residual) > kResidualGate * kernel_width) {
      continue;
    }
    Vector6 jacobian;
    jacobian.head<3>() = (s.seconds - lag) * normal;
    jacobian.tail<3>() = s.seconds * moved.cross(normal) - lag * centre.cross(normal);
    sums.Add(jacobian, residual, GemanMcClure(residual, kernel_width));
  }
  AddVehiclePrior(motion, sums);
  return sums;
}

// A vehicle moves along its forward axis and turns about its vertical one; sideways and vertical
// speeds and roll and pitch rates stay small. Weighed as measurements of those four values as
// zero, this holds them where the returns say little (a narrow field of view cannot tell a
// sideways drift from a turn well) and is outweighed wherever the returns do speak.
void ScanRegistration::AddVehiclePrior(const PlatformMotion& motion, Accumulator& sums) {
  const double linear = kPriorResidual / kPriorLinearSpread;
  const double angular = kPriorResidual / kPriorAngularSpread;
  const double information[6] = {linear * linear,   0.0, linear * linear, angular * angular,
                                 angular * angular, 0.0};
  Vector6 value;
  value << motion.linear, motion.angular;
  for (int k = 0; k < 6; ++k) {
    sums.h(k, k) += information[k];
    sums.g(k) += information[k] * value(k);
  }
}

// The Gauss-Newton step, solved in units where every direction reads in m/s; directions with no
// information at all (numerically) are not moved.
Vector6 ScanRegistration::Solve(const Accumulator& sums) {
  const Vector6 scale = LeverScale();
  const Matrix6 h = scale.asDiagonal() * sums.h * scale.asDiagonal();
  const Vector6 g = scale.asDiagonal() * sums.g;
  Eigen::SelfAdjointEigenSolver<Matrix6> solver(h);
  const double floor = kNumericalFloor * std::max(solver.eigenvalues()(5), 0.0);
  Vector6 step = Vector6::Zero();
  for (int k = 0; k < 6; ++k) {
    const double information = solver.eigenvalues()(k);
    if (information > floor && information > 0.0) {
      const Vector6 e = solver.eigenvectors().col(k);
      step -= (e.dot(g) / information) * e;
    }
  }
  return scale.asDiagonal() * step;
}

// Where the planes leave a direction of the velocity uncertain (its uncertainty, the residuals'
// scatter over the square root of the direction's information, above kMaxUncertainty), the
// registration has no say: the velocity keeps the prediction's value along it.
uint32_t ScanRegistration::KeepPredictionWhereWeak(const Accumulator& sums,
                                                   const PlatformMotion& prediction,
                                                   PlatformMotion& motion) {
  const Vector6 scale = LeverScale();
  const Matrix6 h = scale.asDiagonal() * sums.h * scale.asDiagonal();
  Eigen::SelfAdjointEigenSolver<Matrix6> solver(h);
  const double residual_scale =
      std::max(kMinResidualScale, std::sqrt(sums.weighted_squares / sums.weights));
  Vector6 change;
  change << motion.linear - prediction.linear, motion.angular - prediction.angular;
  change = scale.cwiseInverse().asDiagonal() * change;
  uint32_t axes = 0;
  for (int k = 0; k < 6; ++k) {
    const double information = solver.eigenvalues()(k);
    if (information > 0.0 && residual_scale <= kMaxUncertainty * std::sqrt(information)) {
      continue;
    }
    const Vector6 e = solver.eigenvectors().col(k);
    change -= e.dot(change) * e;
    int axis = 0;
    e.cwiseAbs().maxCoeff(&axis);
    axes |= 1u << axis;
  }
  change = scale.asDiagonal() * change;
  motion.linear = prediction.linear + change.head<3>();
  motion.angular = prediction.angular + change.tail<3>();
  return axes;
}

}  // namespace velmar
