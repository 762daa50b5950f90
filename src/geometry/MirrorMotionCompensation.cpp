#include "geometry/MirrorMotionCompensation.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

// A speed in km/h divided by this is in metres per millisecond.
constexpr double kKmPerHourPerMetrePerMs = 3600.0;

}  // namespace

bool MirrorMotionCompensation::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo192 || lidarTypeName == kQuillA2 || lidarTypeName == kOrvik32 ||
         lidarTypeName == kQuillA1 || lidarTypeName == kBrisel;
}

void MirrorMotionCompensation::ParseParams() {
  double value = 0.0;
  if (!ReadParam("speed", value) || value < 0.0) {
    PrintParamInvalid("MirrorMotionCompensation");
    return;
  }
  speed = TruncateToInt32(value);
}

void MirrorMotionCompensation::Process(std::vector<_ori_point>& frame) {
  UpdateFaceOffsets();
  if (frame.empty()) {
    return;
  }
  if (ShiftsByFaceOnly()) {
    ShiftByFace(frame);
  } else {
    ShiftByFaceAndEcho(frame);
  }
}

void MirrorMotionCompensation::UpdateFaceOffsets() {
  const float step = static_cast<float>(speed / kKmPerHourPerMetrePerMs * kMirrorFacePeriodMs);
  face_offset[kFace0] = 0.0f;
  face_offset[kFace1] = step;
  face_offset[kFace2] = 2.0f * step;
}

bool MirrorMotionCompensation::ShiftsByFaceOnly() const {
  return lidar_type == LIDAR_ORVIK32 || lidar_type == LIDAR_MARLO192 ||
         lidar_type == LIDAR_QUILL_A1 || lidar_type == LIDAR_QUILL_A2;
}

void MirrorMotionCompensation::ShiftByFace(std::vector<_ori_point>& frame) const {
  for (_ori_point& p : frame) {
    if (p.mirror < kFaceCount) {
      p.y += face_offset[p.mirror];
    }
  }
}

void MirrorMotionCompensation::ShiftByFaceAndEcho(std::vector<_ori_point>& frame) const {
  // The second echo of a face is sampled one face step later than its first echo, so a return
  // lags by (face + echo) steps; face 0 first echo is the reference and is not touched.
  for (_ori_point& p : frame) {
    if (p.echo > 1 || p.mirror >= kFaceCount) {
      continue;
    }
    const uint32_t steps = p.mirror + p.echo;
    if (steps == 1 || steps == 2) {
      p.y += face_offset[steps];
    }
  }
}

}  // namespace velmar
