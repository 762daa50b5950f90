// What the mirror-face corrections share: the face numbering and the band around a separation
// distance within which both neighbouring faces are trusted.
#ifndef VELMAR_GEOMETRY_MIRROR_FACES_H
#define VELMAR_GEOMETRY_MIRROR_FACES_H

#include <cstdint>

namespace velmar {

constexpr uint32_t kFace0 = 0;
constexpr uint32_t kFace1 = 1;
constexpr uint32_t kFace2 = 2;
constexpr uint32_t kFaceCount = 3;

// The edges are computed in double from the stored separation, so a separation read in single
// precision keeps its rounding in both edges.
struct SeparationBand {
  SeparationBand(double separation, double tolerance)
      : near_edge(separation - tolerance), far_edge(separation + tolerance) {}

  double near_edge;
  double far_edge;
};

}  // namespace velmar

#endif  // VELMAR_GEOMETRY_MIRROR_FACES_H
