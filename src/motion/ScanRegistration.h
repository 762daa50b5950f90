// Estimates the platform's velocity from two consecutive frames: a point-to-plane registration of
// the newer frame against the older one, in which every return of the newer frame moves by the
// velocity over its own time since the older frame's reference time. The registration thereby
// uses the smear within the frame as well as the displacement between frames, and needs no pose
// beyond the one velocity (constant over both frames).
//
// As returns pass, a voxel sample of the frame is kept (the latest return of each voxel: the
// latest returns move farthest, which is what tells the velocity). At the frame's end the sample
// is registered against the planes of the previous frame's sample; then it is deskewed with the
// accepted velocity and becomes the next reference, summarised as one plane per coarser voxel.
// The sums that make a plane are kept per voxel and the plane is fitted when first needed.
//
// Correspondences come from the voxel the moved return falls in (and, without a prediction to
// start from, from the nearest plane of the 27 voxels around it); a Geman-McClure kernel whose
// width shrinks over the iterations weighs them, so moving objects and noise lose their say.
// Directions along which the planes leave the velocity uncertain (a corridor's length, an empty
// scene) are not updated: they keep the prediction and the result says which.
#ifndef VELMAR_MOTION_SCAN_REGISTRATION_H
#define VELMAR_MOTION_SCAN_REGISTRATION_H

#include <Eigen/Core>
#include <cstdint>
#include <vector>

#include "motion/PlatformMotion.h"
#include "motion/VoxelTable.h"

namespace velmar {

struct RegistrationSettings {
  double sample_voxel = 0.35;           // metres, edge of the sample's voxels
  double plane_voxel = 1.0;             // metres, edge of the reference's plane voxels
  uint32_t max_samples = 65536;         // sample voxels per frame
  uint32_t registration_points = 4096;  // sample returns registered per frame, at most
  uint32_t max_iterations = 20;
  uint32_t min_correspondences = 200;
  double min_range = 3.0;  // metres: nearer returns are not sampled
};

enum class RegistrationStatus {
  kNoReference,    // the first frame, or the first after Clear()
  kTooFewMatches,  // fewer correspondences than the settings ask for
  kDegenerate,     // converged, but some directions were left at the prediction
  kConverged,
};

// The six directions of the velocity, in the order of the registration's unknowns.
enum MotionAxis : uint32_t {
  kAxisLateral = 1u << 0,
  kAxisForward = 1u << 1,
  kAxisVertical = 1u << 2,
  kAxisPitch = 1u << 3,  // about the lateral axis x
  kAxisRoll = 1u << 4,   // about the forward axis y
  kAxisYaw = 1u << 5,
};

struct RegistrationResult {
  RegistrationStatus status = RegistrationStatus::kNoReference;
  PlatformMotion motion;
  uint32_t matches = 0;
  uint32_t iterations = 0;
  uint32_t degenerate_axes = 0;  // MotionAxis bits of the directions left at the prediction
};

class ScanRegistration {
 public:
  // Sizes every buffer. Allocates; call when the settings change, not per frame.
  void Configure(const RegistrationSettings& settings);
  // The bytes Configure allocates for `max_samples` sample voxels.
  static std::size_t TableBytes(uint32_t max_samples);
  // Forgets the reference frame and the sample collected so far.
  void Clear();

  // Offers one return of the frame, at its measured position in the platform's axes, seen
  // `seconds` after the frame started; `range` is its measured distance.
  void Add(const Eigen::Vector3d& position, double seconds, double range, uint32_t channel);

  // Registers the frame collected so far against the reference frame, starting from
  // `prediction` (the velocity expected from the frames before); without one
  // (`has_prediction` false) the search starts wide around standing still.
  RegistrationResult Register(const PlatformMotion& prediction, bool has_prediction);

  // Makes the frame collected so far the reference, deskewed with `motion` to the frame's end
  // (`frame_period` seconds after its start), and starts a new sample.
  void KeepAsReference(const PlatformMotion& motion, double frame_period);

  bool HasReference() const { return has_reference_; }
  uint32_t SampleCount() const { return sample_table_.Size(); }

 private:
  struct Sample {
    float x, y, z;
    float seconds;
  };
  // The sums of the reference returns of one plane voxel, relative to the voxel's first return,
  // and the plane fitted from them when first needed.
  struct PlaneVoxel {
    Eigen::Vector3f origin = Eigen::Vector3f::Zero();
    Eigen::Vector3f sum = Eigen::Vector3f::Zero();
    float xx = 0.0f, xy = 0.0f, xz = 0.0f, yy = 0.0f, yz = 0.0f, zz = 0.0f;
    uint32_t count = 0;
    float lag = 0.0f;   // seconds, mean of the returns' times less the reference time (<= 0)
    uint8_t state = 0;  // kUnfitted, kPlane, kNoPlane
    Eigen::Vector3f centre = Eigen::Vector3f::Zero();
    Eigen::Vector3f normal = Eigen::Vector3f::Zero();
  };
  struct LastVoxel {
    uint64_t key = 0;
    uint32_t index = 0;
    uint32_t generation = 0;
  };
  struct Accumulator {
    Eigen::Matrix<double, 6, 6> h = Eigen::Matrix<double, 6, 6>::Zero();
    Eigen::Matrix<double, 6, 1> g = Eigen::Matrix<double, 6, 1>::Zero();
    double weights = 0.0;
    double weighted_squares = 0.0;
    uint32_t count = 0;

    void Add(const Eigen::Matrix<double, 6, 1>& jacobian, double residual, double weight);
  };

  void ClearSample();
  const PlaneVoxel* PlaneAt(uint64_t key);
  const PlaneVoxel* NearestPlane(const Eigen::Vector3d& point);
  void FitPlane(PlaneVoxel& voxel) const;
  void AddToReference(const Eigen::Vector3f& point, double lag);
  void Agreement(const PlatformMotion& motion, uint32_t stride, double& score, double& along);
  bool SeedByScan(PlatformMotion& seed);
  // The normal equations of the chosen source returns at `motion`.
  Accumulator Linearize(const PlatformMotion& motion, double kernel_width);
  bool Iterate(PlatformMotion& motion, bool from_seed, Accumulator& sums,
               RegistrationResult& result);
  void BuildPlanes(const PlatformMotion& motion, uint32_t stride);
  static void AddVehiclePrior(const PlatformMotion& motion, Accumulator& sums);
  static Eigen::Matrix<double, 6, 1> Solve(const Accumulator& sums);
  static uint32_t KeepPredictionWhereWeak(const Accumulator& sums, const PlatformMotion& prediction,
                                          PlatformMotion& motion);

  RegistrationSettings settings_;
  VoxelTable sample_table_;
  std::vector<Sample> samples_;
  std::vector<LastVoxel> last_voxel_;  // per channel: the voxel of its last sampled return
  uint32_t sample_generation_ = 1;
  // The previous frame's sample, as measured, and the frame period it was deskewed over.
  std::vector<Sample> reference_samples_;
  uint32_t reference_count_ = 0;
  double frame_period_ = 0.0;
  PlatformMotion reference_motion_;  // the velocity the planes were built with
  VoxelTable plane_table_;
  std::vector<PlaneVoxel> planes_;
  bool has_reference_ = false;
};

}  // namespace velmar

#endif  // VELMAR_MOTION_SCAN_REGISTRATION_H
