#include "framework/DataText.h"

#include <charconv>
#include <cmath>

namespace velmar {

bool DataTextReader::Next(std::vector<std::string_view>& fields) {
  fields.clear();
  while (pos_ < text_.size() && fields.empty()) {
    std::size_t end = text_.find('\n', pos_);
    if (end == std::string_view::npos) {
      end = text_.size();
    }
    std::string_view line = text_.substr(pos_, end - pos_);
    pos_ = end + 1;
    ++line_;
    line = line.substr(0, line.find('#'));
    std::size_t at = 0;
    while (at < line.size()) {
      const std::size_t start = line.find_first_not_of(" \t\r", at);
      if (start == std::string_view::npos) {
        break;
      }
      std::size_t stop = line.find_first_of(" \t\r", start);
      if (stop == std::string_view::npos) {
        stop = line.size();
      }
      fields.push_back(line.substr(start, stop - start));
      at = stop;
    }
  }
  return !fields.empty();
}

bool DataTextReader::ReadHeader(const char* format, const char* version, std::string& problem) {
  std::vector<std::string_view> fields;
  if (!Next(fields)) {
    problem = "has no header line \"" + std::string(format) + " " + version + "\"";
    return false;
  }
  if (fields.size() != 2 || fields[0] != format || fields[1] != version) {
    problem = Problem("expected the header \"" + std::string(format) + " " + version + "\"");
    return false;
  }
  return true;
}

std::string DataTextReader::Problem(const std::string& what) const {
  return "line " + std::to_string(line_) + ": " + what;
}

std::string DataTextHeader(const char* format, const char* version, const std::string& comment) {
  std::string text = std::string(format) + " " + version + "\n";
  std::size_t start = 0;
  while (start < comment.size()) {
    std::size_t end = comment.find('\n', start);
    end = end == std::string::npos ? comment.size() : end;
    text += "# " + comment.substr(start, end - start) + "\n";
    start = end + 1;
  }
  return text;
}

bool ParseFiniteNumber(std::string_view field, double& value) {
  if (!field.empty() && field.front() == '+') {
    field.remove_prefix(1);
  }
  const char* end = field.data() + field.size();
  const auto result = std::from_chars(field.data(), end, value);
  return result.ec == std::errc() && result.ptr == end && std::isfinite(value);
}

}  // namespace velmar
