// The plain-text data files that algorithms read (the road-boundary map, the reflectance
// calibration table) share one shape: a header line naming the format and its version, then lines
// of space-separated fields; '#' starts a comment and blank lines are skipped. This reader walks
// such text line by line and keeps the line number for messages.
#ifndef VELMAR_FRAMEWORK_DATA_TEXT_H
#define VELMAR_FRAMEWORK_DATA_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmar {

class DataTextReader {
 public:
  explicit DataTextReader(std::string_view text) : text_(text) {}

  // The fields of the next line that has any; false at the end of the text.
  bool Next(std::vector<std::string_view>& fields);
  // The number (from 1) of the line last returned by Next.
  std::size_t Line() const { return line_; }

  // Reads the header line "<format> <version>"; on failure sets `problem`.
  bool ReadHeader(const char* format, const char* version, std::string& problem);
  // "line <n>: <what>", the form every data-file problem is reported in.
  std::string Problem(const std::string& what) const;

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
  std::size_t line_ = 0;
};

// The first lines of a data file: "<format> <version>", then `comment` as '#' lines.
std::string DataTextHeader(const char* format, const char* version, const std::string& comment);

// A finite decimal number taking the whole field.
bool ParseFiniteNumber(std::string_view field, double& value);

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_DATA_TEXT_H
