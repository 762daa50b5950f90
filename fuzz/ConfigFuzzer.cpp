// Configuration text from outside: read by Create as a file and by UpdateAlgoParam as text, on a
// model picked from the text itself, then frames through whatever was built. Nothing may crash,
// throw or leave records that are not the host's.
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>

#include "FuzzSupport.h"
#include "velmar/lidar_algo.h"

namespace {

constexpr uint32_t kModels = 22;
constexpr uint32_t kColumns = 12;
constexpr uint32_t kChannels = 64;

void ProcessChecked(velmar::ILidarAlgo& pipeline, const std::vector<velmar::_ori_point>& input) {
  std::vector<velmar::_ori_point> frame = input;
  pipeline.Process(frame);
  velmar::fuzz::CheckFromHost(frame, input.front().timestamp, input.back().timestamp + 1);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  velmar::fuzz::SilenceLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const std::vector<velmar::_ori_point> kFrame =
      velmar::fuzz::OrdinaryFrame(kColumns, kChannels);
  const auto model =
      static_cast<velmar::LidarType>(std::accumulate(data, data + size, 0u) % kModels);
  std::unique_ptr<velmar::ILidarAlgo> pipeline =
      velmar::ILidarAlgo::Create(model, velmar::fuzz::InMemoryFile(data, size));
  ProcessChecked(*pipeline, kFrame);
  pipeline->UpdateAlgoParam(std::string(reinterpret_cast<const char*>(data), size));
  ProcessChecked(*pipeline, kFrame);
  pipeline->ClearCache();
  ProcessChecked(*pipeline, kFrame);
  return 0;
}
