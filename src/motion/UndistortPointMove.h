// Undistortion for a moving platform. A sweep takes a whole frame, and the platform moves and
// turns meanwhile: every return is moved to where it would have been seen at the end of its
// frame, from its own time within the frame (ScanTiming) and the platform's velocity. The
// velocity is either configured (a platform of known constant motion) or estimated from the
// frames themselves by registering each frame against the one before (ScanRegistration).
//
// Runs after the coordinate transform (31), in its axes, and changes x, y and z only: `distance`
// and `hor_angle` stay as measured, as ground detection (35) and hosts expect. Where the mirror
// face shift (6) runs too, the shift it added is taken back before a return is moved, so the
// travel between faces is corrected once.
#ifndef VELMAR_MOTION_UNDISTORT_POINT_MOVE_H
#define VELMAR_MOTION_UNDISTORT_POINT_MOVE_H

#include <Eigen/Core>
#include <array>

#include "framework/Algorithm.h"
#include "motion/PlatformMotion.h"
#include "motion/ScanRegistration.h"
#include "motion/ScanTiming.h"

namespace velmar {

class UndistortPointMove : public Algorithm {
 public:
  UndistortPointMove(const std::string& name, const std::string& desc, LidarType type);
  // The registration's tables, sized by "max_samples" (none when estimation is off or the
  // model's scan timing is unknown).
  static std::size_t TableBytes(LidarType type, const NumberParams& params);

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override;
  void ClearCache() override;
  void JoinPipeline(const std::vector<std::shared_ptr<AlgoBase>>& pipeline) override;

  // The velocity frames are deskewed with, when there is one.
  bool HasMotion() const { return has_motion_; }
  const PlatformMotion& Motion() const { return motion_; }
  // What the registration at the last frame end found.
  const RegistrationResult& LastRegistration() const { return last_registration_; }

  // Parameters (see docs/algorithms.md for their keys and bounds).
  bool deskew = true;
  bool estimate_motion = true;
  PlatformMotion configured_motion;          // used when estimate_motion is off
  double max_speed = 70.0;                   // m/s
  double max_turn_rate = 2.0944;             // rad/s (120 degrees per second)
  double max_acceleration = 15.0;            // m/s^2
  double max_angular_acceleration = 3.4907;  // rad/s^2 (200 degrees per second squared)
  RegistrationSettings registration;

 private:
  // Moves one return to the frame's end and offers it to the registration.
  void HandleReturn(_ori_point& p);
  void EndFrame();
  // The velocity the estimation starts from: the last good one, else the configured one.
  bool HasStart() const;
  const PlatformMotion& Start() const;
  void Judge(const RegistrationResult& result);
  bool Plausible(const PlatformMotion& candidate) const;
  void Fallback(const char* reason);
  void UseMotion(const PlatformMotion& motion, bool known);
  // The shift the mirror face correction (6) added to a return of this face and echo.
  Eigen::Vector3d FaceShift(const _ori_point& p) const;

  ScanTiming timing_;
  ScanRegistration registrar_;
  bool registrar_ready_ = false;
  PlatformMotion motion_;
  bool has_motion_ = false;
  bool moving_ = false;  // a motion is known and it is not standing still
  MotionCache to_frame_end_;
  RegistrationResult last_registration_;
  uint32_t frames_since_good_ = 0;
  bool warned_ = false;  // a fallback was reported and no good estimate came since

  // Per face and echo, what the face shift of id 6 moved a return by, in this pipeline's axes.
  bool has_face_shift_ = false;
  std::array<std::array<Eigen::Vector3d, 2>, 3> face_shift_{};
};

}  // namespace velmar

#endif  // VELMAR_MOTION_UNDISTORT_POINT_MOVE_H
