// Recordings from outside: the input is a recording.json and a PCD frame file, split at the
// first NUL byte; both frame files of a two-frame recording hold the PCD bytes. The reader must
// accept the pair or refuse it with RecordingError, never crash, hang or allocate beyond what
// the files hold.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "sim/Recording.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  namespace sim = velmar::sim;
  using velmar::fuzz::WriteFile;
  const std::string& folder = velmar::fuzz::TempFolder();
  const uint8_t* split = std::find(data, data + size, 0);
  const uint8_t* pcd = split == data + size ? split : split + 1;
  WriteFile(folder + "/recording.json", data, split);
  WriteFile(folder + "/" + sim::FrameFileName(0), pcd, data + size);
  WriteFile(folder + "/" + sim::FrameFileName(1), pcd, data + size);
  std::vector<velmar::_ori_point> frame;
  try {
    sim::ReadPcd(folder + "/" + sim::FrameFileName(0), frame);
  } catch (const sim::RecordingError&) {
  }
  try {
    sim::RecordingReader reader(folder);
    while (reader.NextFrame(frame)) {
    }
  } catch (const sim::RecordingError&) {
  }
  return 0;
}
