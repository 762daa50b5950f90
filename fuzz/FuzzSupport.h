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

// Sweeps of a few columns with every field at ordinary values, the last point marked: the frame
// that follows a configuration so that its algorithms run.
std::vector<_ori_point> OrdinaryFrame(uint32_t columns, uint32_t channels);

// Whether a record leaving the pipeline is still one of the host's (identified by its
// timestamp, which no algorithm writes, among `stamps` handed in).
void CheckFromHost(const std::vector<_ori_point>& frame, uint64_t first_stamp, uint64_t end_stamp);

}  // namespace fuzz
}  // namespace velmar

#endif  // VELMAR_FUZZ_FUZZ_SUPPORT_H
