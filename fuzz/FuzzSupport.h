// What the fuzz targets share: quiet library output, configuration text handed over as a file
// without touching the disk, and frames with the values that break careless code.
#ifndef VELMAR_FUZZ_FUZZ_SUPPORT_H
#define VELMAR_FUZZ_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace fuzz {

// Sends the library's standard output and error stream lines nowhere; libFuzzer reports on the
// C error stream, which stays.
void SilenceLibraryOutput();

// A path that reads back `text`, held in memory (a memfd) until the next call.
std::string InMemoryFile(const uint8_t* data, std::size_t size);

// A folder of the process's own under TMPDIR (or /tmp) for the files a target writes; made on the
// first call. WriteFile replaces the file at `path` with the bytes [begin, end).
const std::string& TempFolder();
void WriteFile(const std::string& path, const uint8_t* begin, const uint8_t* end);

// Packets of two simulated frames of `model` when the simulator knows it (every eighth packet,
// those past the end of a face's sweep and those that close a frame), then of twelve frames of a
// plain sweep with a moving wall: what follows a configuration so that its algorithms do real
// work, the motion algorithms past their warm-up included. Every record has a unique timestamp,
// counting from 1. Made once per model.
const std::vector<std::vector<_ori_point>>& DrivePackets(LidarType model);

// Aborts unless every record leaving the pipeline is one of the host's: its timestamp, which no
// algorithm writes, lies in [first_stamp, end_stamp).
void CheckFromHost(const std::vector<_ori_point>& frame, uint64_t first_stamp, uint64_t end_stamp);

}  // namespace fuzz
}  // namespace velmar

#endif  // VELMAR_FUZZ_FUZZ_SUPPORT_H
