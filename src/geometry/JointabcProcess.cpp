#include "geometry/JointabcProcess.h"

#include "framework/AlgoCommon.h"
#include "framework/Messages.h"
#include "framework/about.h"
#include "geometry/MirrorFaces.h"

namespace velmar {
namespace {

constexpr const char* kClassName = "JointabcProcess";
constexpr const char* kNode1Key = "jointabc_node1";
constexpr const char* kNode2Key = "jointabc_node2";
constexpr const char* kOneFaceKey = "jointabc_one_face";
constexpr const char* kTwoFaceKey = "jointabc_two_face";
// Both faces are trusted this close to a node, where their coverage overlaps.
constexpr double kNodeTolerance = 0.05;

}  // namespace

bool JointabcProcess::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kQuillA2 || lidarTypeName == kZephelB1;
}

void JointabcProcess::ParseParams() {
  if (!HasAllParams({kNode1Key, kNode2Key, kOneFaceKey, kTwoFaceKey})) {
    PrintParamInvalid(kClassName);
    return;
  }
  ParseNodes();
  ParseFaces();
}

void JointabcProcess::ParseNodes() {
  // The nodes only make sense as a pair, so a bad one keeps both previous values.
  double first = 0.0;
  double second = 0.0;
  ReadParam(kNode1Key, first);
  ReadParam(kNode2Key, second);
  if (first < 0.0 || second < 0.0) {
    PrintParamOutOfRange(kClassName, std::string(kNode1Key) + "/" + kNode2Key);
    return;
  }
  if (first > second) {
    PrintLine(std::string("[algo]:") + kClassName + " " + kNode1Key + " > " + kNode2Key +
              " is not correct!");
    return;
  }
  node1 = first;
  node2 = second;
}

void JointabcProcess::ParseFaces() {
  double single = 0.0;
  ReadParam(kOneFaceKey, single);
  if (single == 0.0 || single == 1.0 || single == 2.0) {
    one_face = static_cast<uint32_t>(single);
  } else {
    PrintParamOutOfRange(kClassName, kOneFaceKey);
  }
  double pair = 0.0;
  ReadParam(kTwoFaceKey, pair);
  if (pair == 1.0 || pair == 2.0 || pair == 3.0) {
    two_face = static_cast<uint32_t>(pair);
  } else {
    PrintParamOutOfRange(kClassName, kTwoFaceKey);
  }
}

bool JointabcProcess::BandKeepsFace(uint32_t face) const {
  switch (two_face) {
    case 1:
      return face == kFace0 || face == kFace1;
    case 2:
      return face == kFace0 || face == kFace2;
    case 3:
      return face == kFace1 || face == kFace2;
    default:
      return false;
  }
}

void JointabcProcess::Process(std::vector<_ori_point>& frame) {
  const SeparationBand first(node1, kNodeTolerance);
  const SeparationBand second(node2, kNodeTolerance);
  for (_ori_point& p : frame) {
    const double d = p.distance;
    if (d < first.near_edge) {
      if (p.mirror != one_face) {
        ClearMeasures(p);
      }
    } else if (d >= first.far_edge && d < second.near_edge) {
      if (!BandKeepsFace(p.mirror)) {
        ClearMeasures(p);
      }
    }
  }
}

}  // namespace velmar
