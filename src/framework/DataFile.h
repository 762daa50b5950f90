// Reading the data files that algorithms name in their parameters (a road-boundary map, a
// reflectance calibration table). An algorithm reads them while the pipeline is being built,
// with the pipeline's mutex held, so a read must end quickly whatever the path names: only
// regular files are read, never a FIFO, a device or a folder (the file is opened without
// blocking and checked before its first byte is read), and never more than a size cap.
#ifndef VELMAR_FRAMEWORK_DATA_FILE_H
#define VELMAR_FRAMEWORK_DATA_FILE_H

#include <cstddef>
#include <string>

namespace velmar {

// The cap on a data file unless its algorithm documents a smaller one.
constexpr std::size_t kMaxDataFileBytes = std::size_t{64} << 20;

enum class DataFileStatus {
  kRead,
  kCannotOpen,  // missing or unreadable
  kNotRegular,  // a FIFO, a device, a socket or a folder
  kTooLarge,    // more than the cap
  kReadError,
};

// Reads the whole file at `path` into `contents` (left empty unless the read succeeds).
DataFileStatus ReadDataFile(const std::string& path, std::string& contents,
                            std::size_t max_bytes = kMaxDataFileBytes);

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_DATA_FILE_H
