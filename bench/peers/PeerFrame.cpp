#include "PeerFrame.h"

#include "sim/Import.h"
#include "sim/Truth.h"

namespace velmar {
namespace peers {
namespace {

constexpr uint32_t kSemanticClassMask = 0xFFFFu;

PeerFrame ReadFrame(const std::string& binPath, const std::string& labelPath) {
  try {
    return FrameOfCloud(sim::ReadKittiBin(binPath, labelPath));
  } catch (const sim::ImportError& error) {
    throw FrameError(error.what());
  }
}

}  // namespace

// One mapping of the dataset's classes, the importer's, so that peers_bench and eval score the
// same returns as noise, ground and objects.
PointClass ClassOfSemanticLabel(uint32_t label) {
  switch (sim::TruthOfDatasetClass(label & kSemanticClassMask)) {
    case sim::TruthKind::kUnlabelled:
      return PointClass::kUnscored;
    case sim::TruthKind::kSnow:
      return PointClass::kNoise;
    case sim::TruthKind::kGround:
      return PointClass::kGround;
    default:
      return PointClass::kObject;
  }
}

PeerFrame FrameOfCloud(const sim::SourceCloud& cloud) {
  PeerFrame frame;
  frame.points.reserve(cloud.Size());
  for (std::size_t i = 0; i < cloud.Size(); ++i) {
    frame.points.emplace_back(cloud.x[i], cloud.y[i], cloud.z[i]);
  }
  frame.classes.assign(cloud.Size(), PointClass::kUnscored);
  for (std::size_t i = 0; i < cloud.label.size(); ++i) {
    frame.classes[i] = ClassOfSemanticLabel(cloud.label[i]);
  }
  return frame;
}

PeerFrame ReadKittiFrame(const std::string& binPath) {
  return ReadFrame(binPath, "");
}

PeerFrame ReadLabelledKittiFrame(const std::string& binPath, const std::string& labelPath) {
  return ReadFrame(binPath, labelPath);
}

PeerFrame FrameFromRecords(const std::vector<_ori_point>& records) {
  PeerFrame frame;
  for (const _ori_point& p : records) {
    if (!(p.distance > 0.0)) {
      continue;
    }
    const sim::TruthKind kind = sim::TruthKindOf(p);
    frame.points.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y),
                              static_cast<float>(p.z));
    frame.kinds.push_back(static_cast<uint8_t>(kind));
    if (sim::IsNoiseTruth(kind)) {
      frame.classes.push_back(PointClass::kNoise);
    } else if (kind == sim::TruthKind::kGround) {
      frame.classes.push_back(PointClass::kGround);
    } else if (kind == sim::TruthKind::kReal) {
      frame.classes.push_back(PointClass::kObject);
    } else {
      frame.classes.push_back(PointClass::kUnscored);
    }
  }
  return frame;
}

}  // namespace peers
}  // namespace velmar
