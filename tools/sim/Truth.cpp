#include "sim/Truth.h"

namespace velmar {
namespace sim {

std::string TruthKindName(TruthKind kind) {
  switch (kind) {
    case TruthKind::kNoReturn:
      return "none";
    case TruthKind::kReal:
      return "real";
    case TruthKind::kGround:
      return "ground";
    case TruthKind::kRain:
      return "rain";
    case TruthKind::kFog:
      return "fog";
    case TruthKind::kSunlight:
      return "sunlight";
    case TruthKind::kDrag:
      return "drag";
    case TruthKind::kInterference:
      return "interference";
    case TruthKind::kGhost:
      return "ghost";
    case TruthKind::kCloseRange:
      return "close-range";
    case TruthKind::kFixedEcho:
      return "fixed-echo";
    case TruthKind::kCrosstalkVertical:
      return "crosstalk-v";
    case TruthKind::kCrosstalkHorizontal:
      return "crosstalk-h";
    case TruthKind::kBloom:
      return "bloom";
    case TruthKind::kSnow:
      return "snow";
    case TruthKind::kUnlabelled:
      return "unlabelled";
    case TruthKind::kSpike:
      return "spike";
    case TruthKind::kMixed:
      return "mixed";
  }
  return "none";
}

}  // namespace sim
}  // namespace velmar
