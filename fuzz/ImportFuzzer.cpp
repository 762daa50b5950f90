// Other sensors' frames from outside, through the importer. The first byte, modulo 3, chooses the
// reader:
//  0: a KITTI .bin alone (the rest of the input);
//  1: a .bin and its .label (the last four bytes per whole 20-byte point of the rest are labels);
//  2: a PCD file, ASCII or binary (the rest of the input);
// and its next digit, base 3, the mapping: even the generic one, odd the Marlo128 frame (a whole
// frame of the sensor's layout, so a slower run).
// A reader must give a cloud or refuse with ImportError, never crash, hang or allocate beyond what
// the file holds. The mapping must account for each point once (written, invalid or outside) and
// write only finite returns.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "sim/Import.h"

namespace {

namespace sim = velmar::sim;

constexpr std::size_t kKittiPointBytes = 16;
constexpr std::size_t kLabelBytes = 4;

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

sim::SourceCloud Read(uint8_t reader, const uint8_t* begin, const uint8_t* end) {
  const std::string& folder = velmar::fuzz::TempFolder();
  const std::string bin = folder + "/frame.bin";
  const std::string label = folder + "/frame.label";
  const std::string pcd = folder + "/frame.pcd";
  switch (reader % 3) {
    case 0:
      velmar::fuzz::WriteFile(bin, begin, end);
      return sim::ReadKittiBin(bin);
    case 1: {
      const std::size_t labels =
          static_cast<std::size_t>(end - begin) / (kKittiPointBytes + kLabelBytes);
      const uint8_t* split = end - labels * kLabelBytes;
      velmar::fuzz::WriteFile(bin, begin, split);
      velmar::fuzz::WriteFile(label, split, end);
      return sim::ReadKittiBin(bin, label);
    }
    default:
      velmar::fuzz::WriteFile(pcd, begin, end);
      return sim::ReadPcdCloud(pcd);
  }
}

void CheckMapping(const sim::SourceCloud& cloud, sim::ImportMapping mapping) {
  sim::ImportOptions options;
  options.mapping = mapping;
  sim::ImportReport report;
  const std::vector<velmar::_ori_point> frame = sim::MapFrame(cloud, options, 3, &report);
  Require(report.points == cloud.Size());
  Require(report.written + report.invalid + report.outside == report.points);
  std::size_t returns = 0;
  for (const velmar::_ori_point& p : frame) {
    if (p.distance == 0.0) {
      continue;
    }
    ++returns;
    Require(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) &&
            std::isfinite(p.distance) && std::isfinite(p.intensity) &&
            std::isfinite(p.pulse_width));
  }
  Require(returns == report.written);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  sim::SourceCloud cloud;
  try {
    cloud = Read(data[0], data + 1, data + size);
  } catch (const sim::ImportError&) {
    return 0;
  }
  const std::size_t n = cloud.Size();
  Require(cloud.y.size() == n && cloud.z.size() == n && cloud.intensity.size() == n);
  Require((cloud.ring.empty() || cloud.ring.size() == n) &&
          (cloud.time.empty() || cloud.time.size() == n) &&
          (cloud.label.empty() || cloud.label.size() == n));
  const bool marlo = (data[0] / 3) % 2 == 1;
  CheckMapping(cloud, marlo ? sim::ImportMapping::kMarlo128 : sim::ImportMapping::kGeneric);
  return 0;
}
