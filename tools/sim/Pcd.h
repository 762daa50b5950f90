// The header of a PCD v0.7 file, read for any field layout: frame files of recordings check it
// against the point record, the importer reads the fields other tools write.
#ifndef VELMAR_TOOLS_SIM_PCD_H
#define VELMAR_TOOLS_SIM_PCD_H

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>

namespace velmar {
namespace sim {

struct PcdHeader {
  uint64_t width = 0;
  uint64_t height = 0;
  uint64_t points = 0;
  std::size_t bytes = 0;  // header length, where the data starts
  // The entries as written, blanks collapsed: "x y z intensity", "4 4 4 4", "F F F F", ...
  std::string fields;
  std::string sizes;
  std::string types;
  std::string counts;
  std::string data;  // "ascii", "binary", ...
};

// Reads the header entries VERSION to DATA, in that order (comments and blank lines allowed).
// Throws RecordingError naming `path` for a header out of order, a version other than 0.7,
// counts that are not numbers, or WIDTH x HEIGHT different from POINTS.
PcdHeader ReadPcdHeader(std::istream& in, const std::string& path);

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_PCD_H
