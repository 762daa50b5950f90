// Configuration text from outside: read by Create as a file and by UpdateAlgoParam as text, then
// a simulated drive through whatever was built. The model is the first one the text names (so
// that a configuration runs on the model it is written for), or one picked from its bytes.
// Nothing may crash, throw or leave records that are not the host's.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>

#include "FuzzSupport.h"
#include "velmar/lidar_algo.h"

namespace {

constexpr int kModels = 22;

// The model whose name appears first in the text (the longest name at that place), or one
// chosen by the bytes' sum when none does.
velmar::LidarType ModelOf(const std::string& text, const uint8_t* data, std::size_t size) {
  std::size_t first = std::string::npos;
  std::size_t longest = 0;
  int model = static_cast<int>(std::accumulate(data, data + size, 0u) % kModels);
  for (int type = 0; type < kModels; ++type) {
    const std::string name = velmar::LidarTypeToStr(type);
    const std::size_t at = text.find(name);
    if (at != std::string::npos && (at < first || (at == first && name.size() > longest))) {
      first = at;
      longest = name.size();
      model = type;
    }
  }
  return static_cast<velmar::LidarType>(model);
}

void FeedDrive(velmar::ILidarAlgo& pipeline, velmar::LidarType model) {
  const auto& packets = velmar::fuzz::DrivePackets(model);
  const uint64_t end_stamp = packets.back().back().timestamp + 1;
  for (const auto& input : packets) {
    std::vector<velmar::_ori_point> packet = input;
    pipeline.Process(packet);
    velmar::fuzz::CheckFromHost(packet, 1, end_stamp);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  velmar::fuzz::SilenceLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const velmar::LidarType model = ModelOf(text, data, size);
  std::unique_ptr<velmar::ILidarAlgo> pipeline =
      velmar::ILidarAlgo::Create(model, velmar::fuzz::InMemoryFile(data, size));
  FeedDrive(*pipeline, model);
  pipeline->UpdateAlgoParam(text);
  FeedDrive(*pipeline, model);
  pipeline->ClearCache();
  FeedDrive(*pipeline, model);
  return 0;
}
