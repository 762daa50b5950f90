#include "geometry/SmallBlindMarlo128.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"
#include "geometry/MirrorFaces.h"

namespace velmar {
namespace {

// Both sides are trusted this close to the separation, where the coverages overlap.
constexpr double kSeparationTolerance = 0.1;

// A return of a near-field face is trusted up to the separation, any other from it on.
void RemoveUncovered(_ori_point& p, bool near_field, const SeparationBand& band) {
  const bool uncovered = near_field ? band.far_edge < p.distance : band.near_edge > p.distance;
  if (uncovered) {
    ClearMeasures(p);
  }
}

}  // namespace

bool SmallBlindMarlo128::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo128F || lidarTypeName == kMarlo128;
}

void SmallBlindMarlo128::ParseParams() {
  ReadParam("separate_mirror_ABC_dist_marlo128f", separate_dist_f);
  ReadParam("separate_mirror_ABC_dist_marlo128", separate_dist);
}

void SmallBlindMarlo128::Process(std::vector<_ori_point>& frame) {
  if (lidar_type == LIDAR_MARLO128F) {
    ProcessMarlo128F(frame);
  } else if (lidar_type == LIDAR_MARLO128) {
    ProcessMarlo128(frame);
  }
}

void SmallBlindMarlo128::ProcessMarlo128F(std::vector<_ori_point>& frame) const {
  const SeparationBand band(separate_dist_f, kSeparationTolerance);
  for (_ori_point& p : frame) {
    RemoveUncovered(p, p.mirror == kFace2, band);
  }
}

void SmallBlindMarlo128::ProcessMarlo128(std::vector<_ori_point>& frame) const {
  const SeparationBand band(separate_dist, kSeparationTolerance);
  for (_ori_point& p : frame) {
    // The host flags the returns that must pass this correction untouched.
    if (p.aux_flag != 0) {
      continue;
    }
    const bool second_echo = p.echo == 1;
    const bool near_field = second_echo ? p.mirror == kFace2 : p.mirror == kFace1;
    RemoveUncovered(p, near_field, band);
  }
}

}  // namespace velmar
