// Binary PCD v0.7 files holding whole point records. The fields below cover the record byte for
// byte, in order and without gaps, so the data section is the frame's memory as it stands and a
// frame read back is identical to the frame written.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "sim/Recording.h"

namespace velmar {
namespace sim {
namespace {

struct PcdField {
  const char* name;
  std::size_t size;
  char type;
  std::size_t count;
  std::size_t offset;
};

#define VELMAR_PCD_FIELD(member, type, count) \
  { #member, sizeof(_ori_point::member) / (count), type, count, offsetof(_ori_point, member) }

const PcdField kFields[] = {
    VELMAR_PCD_FIELD(x, 'F', 1),           VELMAR_PCD_FIELD(y, 'F', 1),
    VELMAR_PCD_FIELD(z, 'F', 1),           VELMAR_PCD_FIELD(intensity, 'F', 1),
    VELMAR_PCD_FIELD(distance, 'F', 1),    VELMAR_PCD_FIELD(channel, 'U', 1),
    VELMAR_PCD_FIELD(reserved_a, 'U', 1),  VELMAR_PCD_FIELD(hor_angle, 'F', 1),
    VELMAR_PCD_FIELD(pulse_width, 'F', 1), VELMAR_PCD_FIELD(label, 'I', 1),
    VELMAR_PCD_FIELD(mirror, 'U', 1),      VELMAR_PCD_FIELD(echo, 'U', 1),
    VELMAR_PCD_FIELD(drag_level, 'U', 1),  VELMAR_PCD_FIELD(reserved_b, 'U', 32),
    VELMAR_PCD_FIELD(motion_flag, 'F', 1), VELMAR_PCD_FIELD(reserved_c, 'U', 8),
    VELMAR_PCD_FIELD(mark, 'U', 1),        VELMAR_PCD_FIELD(aux_flag, 'U', 1),
    VELMAR_PCD_FIELD(reserved_d, 'U', 6),  VELMAR_PCD_FIELD(aux_index, 'I', 1),
    VELMAR_PCD_FIELD(aux_value, 'U', 1),   VELMAR_PCD_FIELD(timestamp, 'U', 1),
};

#undef VELMAR_PCD_FIELD

// Header lines longer than this, or more header bytes than this, mean the file is not a PCD
// header at all; stop before reading binary data as text.
constexpr std::size_t kMaxHeaderBytes = 64 * 1024;

bool FieldsCoverRecord() {
  std::size_t next = 0;
  for (const PcdField& f : kFields) {
    if (f.offset != next) {
      return false;
    }
    next += f.size * f.count;
  }
  return next == sizeof(_ori_point);
}

std::string Joined(std::string (*item)(const PcdField&)) {
  std::string text;
  for (const PcdField& f : kFields) {
    if (!text.empty()) {
      text += ' ';
    }
    text += item(f);
  }
  return text;
}

std::string FieldNames() {
  return Joined([](const PcdField& f) { return std::string(f.name); });
}
std::string FieldSizes() {
  return Joined([](const PcdField& f) { return std::to_string(f.size); });
}
std::string FieldTypes() {
  return Joined([](const PcdField& f) { return std::string(1, f.type); });
}
std::string FieldCounts() {
  return Joined([](const PcdField& f) { return std::to_string(f.count); });
}

[[noreturn]] void Fail(const std::string& path, const std::string& problem) {
  throw RecordingError(path + ": " + problem);
}

// Splits "KEY rest of line" and collapses runs of blanks in the rest.
void SplitEntry(const std::string& line, std::string& key, std::string& value) {
  std::istringstream in(line);
  in >> key;
  value.clear();
  std::string word;
  while (in >> word) {
    if (!value.empty()) {
      value += ' ';
    }
    value += word;
  }
}

bool ParseCount(const std::string& text, uint64_t& value) {
  if (text.empty() || text.size() > 12) {
    return false;
  }
  value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') {
      return false;
    }
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return true;
}

struct PcdHeader {
  uint64_t width = 0;
  uint64_t height = 0;
  uint64_t points = 0;
  std::size_t bytes = 0;  // header length, where the data starts
};

// Reads one header line; false at end of file. Fails on an over-long line.
bool ReadHeaderLine(std::istream& in, const std::string& path, std::size_t& used,
                    std::string& line) {
  line.clear();
  char c;
  while (in.get(c)) {
    ++used;
    if (used > kMaxHeaderBytes) {
      Fail(path, "header is too long or not a PCD header");
    }
    if (c == '\n') {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      return true;
    }
    line += c;
  }
  return !line.empty();
}

void CheckEntry(const std::string& path, const std::string& key, const std::string& value,
                const std::string& expected) {
  if (value != expected) {
    Fail(path, key + " is \"" + value + "\", expected \"" + expected + "\"");
  }
}

PcdHeader ReadHeader(std::istream& in, const std::string& path) {
  static const char* const kOrder[] = {"VERSION", "FIELDS", "SIZE",      "TYPE",   "COUNT",
                                       "WIDTH",   "HEIGHT", "VIEWPOINT", "POINTS", "DATA"};
  PcdHeader header;
  std::size_t entry = 0;
  std::string line, key, value;
  while (entry < std::size(kOrder)) {
    if (!ReadHeaderLine(in, path, header.bytes, line)) {
      Fail(path, entry == 0 ? "empty file or not a PCD file"
                            : std::string("header ends before ") + kOrder[entry]);
    }
    if (line.empty() || line[0] == '#') {
      continue;
    }
    SplitEntry(line, key, value);
    if (key != kOrder[entry]) {
      Fail(path,
           "expected " + std::string(kOrder[entry]) + " in the header, found \"" + key + "\"");
    }
    if (key == "VERSION") {
      if (value != "0.7" && value != ".7") {
        Fail(path, "unsupported PCD version \"" + value + "\" (expected 0.7)");
      }
    } else if (key == "FIELDS") {
      CheckEntry(path, key, value, FieldNames());
    } else if (key == "SIZE") {
      CheckEntry(path, key, value, FieldSizes());
    } else if (key == "TYPE") {
      CheckEntry(path, key, value, FieldTypes());
    } else if (key == "COUNT") {
      CheckEntry(path, key, value, FieldCounts());
    } else if (key == "WIDTH" || key == "HEIGHT" || key == "POINTS") {
      uint64_t number = 0;
      if (!ParseCount(value, number)) {
        Fail(path, key + " \"" + value + "\" is not a point count");
      }
      (key == "WIDTH" ? header.width : key == "HEIGHT" ? header.height : header.points) = number;
    } else if (key == "DATA") {
      if (value != "binary") {
        Fail(path, "DATA " + value + " is not supported (only binary)");
      }
    }
    ++entry;
  }
  if (header.width * header.height != header.points) {
    Fail(path, "WIDTH x HEIGHT (" + std::to_string(header.width) + " x " +
                   std::to_string(header.height) + ") differs from POINTS " +
                   std::to_string(header.points));
  }
  return header;
}

}  // namespace

void WritePcd(const std::string& path, const std::vector<_ori_point>& frame) {
  static_assert(sizeof(_ori_point) == 152, "the PCD layout covers the whole record");
  if (!FieldsCoverRecord()) {
    Fail(path, "internal error: PCD fields do not cover the point record");
  }
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) {
    Fail(path, WriteProblem("cannot create the file"));
  }
  out << "# .PCD v0.7 - Point Cloud Data file format\n"
      << "VERSION 0.7\n"
      << "FIELDS " << FieldNames() << "\n"
      << "SIZE " << FieldSizes() << "\n"
      << "TYPE " << FieldTypes() << "\n"
      << "COUNT " << FieldCounts() << "\n"
      << "WIDTH " << frame.size() << "\n"
      << "HEIGHT 1\n"
      << "VIEWPOINT 0 0 0 1 0 0 0\n"
      << "POINTS " << frame.size() << "\n"
      << "DATA binary\n";
  out.write(reinterpret_cast<const char*>(frame.data()),
            static_cast<std::streamsize>(frame.size() * sizeof(_ori_point)));
  out.flush();
  if (!out) {
    Fail(path, WriteProblem("write failed"));
  }
}

void ReadPcd(const std::string& path, std::vector<_ori_point>& frame) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    Fail(path, "cannot open the file");
  }
  const PcdHeader header = ReadHeader(in, path);
  in.seekg(0, std::ios::end);
  const uint64_t fileBytes = static_cast<uint64_t>(in.tellg());
  const uint64_t dataBytes = fileBytes - header.bytes;
  const uint64_t expected = header.points * sizeof(_ori_point);
  if (dataBytes < expected) {
    Fail(path, "truncated: POINTS " + std::to_string(header.points) + " needs " +
                   std::to_string(expected) + " bytes of data, the file holds " +
                   std::to_string(dataBytes));
  }
  if (dataBytes > expected) {
    Fail(path, std::to_string(dataBytes - expected) + " unexpected bytes after the " +
                   std::to_string(header.points) + " points");
  }
  frame.resize(header.points);
  in.seekg(static_cast<std::streamoff>(header.bytes));
  in.read(reinterpret_cast<char*>(frame.data()), static_cast<std::streamsize>(expected));
  if (!in) {
    Fail(path, "read failed");
  }
}

}  // namespace sim
}  // namespace velmar
