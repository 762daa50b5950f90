#include "geometry/SmallBlind.h"

#include "framework/AlgoCommon.h"
#include "framework/about.h"
#include "geometry/MirrorFaces.h"

namespace velmar {
namespace {

// Both faces are trusted this close to the separation, where their coverage overlaps.
constexpr double kSeparationTolerance = 0.05;

}  // namespace

bool SmallBlind::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kMarlo256_SmallBlind;
}

void SmallBlind::ParseParams() {
  ReadParam("separate_mirror_ABC_dist", separate_dist);
}

void SmallBlind::Process(std::vector<_ori_point>& frame) {
  const SeparationBand band(separate_dist, kSeparationTolerance);
  for (_ori_point& p : frame) {
    const bool near_on_far_face = p.mirror == kFace0 && p.distance < band.near_edge;
    const bool far_on_near_face = p.mirror == kFace1 && p.distance > band.far_edge;
    if (near_on_far_face || far_on_near_face) {
      ClearMeasures(p);
    }
  }
}

}  // namespace velmar
