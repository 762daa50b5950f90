// Recordings from outside: the input is a recording.json and a PCD frame file, split at the
// first NUL byte; both frame files of a two-frame recording hold the PCD bytes. The reader must
// accept the pair or refuse it with RecordingError, never crash, hang or allocate beyond what
// the files hold.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "sim/Recording.h"

namespace {

std::string g_folder;

void WriteFile(const std::string& path, const uint8_t* begin, const uint8_t* end) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(begin), end - begin);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/velmar-fuzz-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    std::abort();
  }
  g_folder = pattern;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  namespace sim = velmar::sim;
  const uint8_t* split = std::find(data, data + size, 0);
  const uint8_t* pcd = split == data + size ? split : split + 1;
  WriteFile(g_folder + "/recording.json", data, split);
  WriteFile(g_folder + "/" + sim::FrameFileName(0), pcd, data + size);
  WriteFile(g_folder + "/" + sim::FrameFileName(1), pcd, data + size);
  std::vector<velmar::_ori_point> frame;
  try {
    sim::ReadPcd(g_folder + "/" + sim::FrameFileName(0), frame);
  } catch (const sim::RecordingError&) {
  }
  try {
    sim::RecordingReader reader(g_folder);
    while (reader.NextFrame(frame)) {
    }
  } catch (const sim::RecordingError&) {
  }
  return 0;
}
