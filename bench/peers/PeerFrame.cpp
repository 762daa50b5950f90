#include "PeerFrame.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include "sim/Truth.h"

namespace velmar {
namespace peers {
namespace {

constexpr uint32_t kFallingSnow = 110;
constexpr uint32_t kGroundClasses[] = {40, 44, 48, 49, 60, 72, 111};
constexpr uint32_t kSemanticClassMask = 0xFFFFu;
constexpr std::size_t kKittiFloatsPerPoint = 4;

std::vector<char> ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw FrameError(path + ": cannot open");
  }
  return std::vector<char>(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

PointClass ClassOfSemanticLabel(uint32_t label) {
  const uint32_t semantic = label & kSemanticClassMask;
  if (semantic == 0) {
    return PointClass::kUnscored;
  }
  if (semantic == kFallingSnow) {
    return PointClass::kNoise;
  }
  for (const uint32_t ground : kGroundClasses) {
    if (semantic == ground) {
      return PointClass::kGround;
    }
  }
  return PointClass::kObject;
}

PeerFrame ReadKittiFrame(const std::string& binPath) {
  const std::vector<char> bytes = ReadBytes(binPath);
  constexpr std::size_t kPointBytes = kKittiFloatsPerPoint * sizeof(float);
  if (bytes.size() % kPointBytes != 0) {
    throw FrameError(binPath + ": " + std::to_string(bytes.size()) +
                     " bytes is not a whole number of 16-byte points");
  }
  PeerFrame frame;
  const std::size_t count = bytes.size() / kPointBytes;
  frame.points.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    float xyzi[kKittiFloatsPerPoint];
    std::memcpy(xyzi, bytes.data() + i * kPointBytes, kPointBytes);
    frame.points[i] = Eigen::Vector3f(xyzi[0], xyzi[1], xyzi[2]);
  }
  frame.classes.assign(count, PointClass::kUnscored);
  return frame;
}

PeerFrame ReadLabelledKittiFrame(const std::string& binPath, const std::string& labelPath) {
  PeerFrame frame = ReadKittiFrame(binPath);
  const std::vector<char> bytes = ReadBytes(labelPath);
  if (bytes.size() != frame.points.size() * sizeof(uint32_t)) {
    throw FrameError(labelPath + ": " + std::to_string(bytes.size()) + " bytes, expected one " +
                     "uint32 label for each of the " + std::to_string(frame.points.size()) +
                     " points");
  }
  for (std::size_t i = 0; i < frame.points.size(); ++i) {
    uint32_t label;
    std::memcpy(&label, bytes.data() + i * sizeof label, sizeof label);
    frame.classes[i] = ClassOfSemanticLabel(label);
  }
  return frame;
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
