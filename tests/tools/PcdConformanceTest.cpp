// Checks written frame files against the rules of the PCD v0.7 header that other point-cloud
// tools apply when they open a file, with a reader of its own rather than the recording code.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>
#include <sstream>

#include "ToolsTestSupport.h"
#include "sim/Recording.h"

namespace velmar {
namespace sim {
namespace {

struct Header {
  std::vector<std::string> keys;  // in file order, comments skipped
  std::vector<std::vector<std::string>> values;
  std::size_t dataOffset = 0;
};

Header ParseHeader(const std::string& bytes) {
  Header header;
  std::size_t at = 0;
  while (at < bytes.size()) {
    const std::size_t end = bytes.find('\n', at);
    if (end == std::string::npos) {
      break;
    }
    const std::string line = bytes.substr(at, end - at);
    at = end + 1;
    if (line.empty() || line[0] == '#') {
      continue;
    }
    std::istringstream words(line);
    std::string key;
    words >> key;
    std::vector<std::string> values;
    for (std::string w; words >> w;) {
      values.push_back(w);
    }
    header.keys.push_back(key);
    header.values.push_back(values);
    if (key == "DATA") {
      header.dataOffset = at;
      break;
    }
  }
  return header;
}

const std::vector<std::string>& Entry(const Header& h, const std::string& key) {
  for (std::size_t i = 0; i < h.keys.size(); ++i) {
    if (h.keys[i] == key) {
      return h.values[i];
    }
  }
  static const std::vector<std::string> none;
  return none;
}

bool IsIdentifier(const std::string& name) {
  if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0]))) {
    return false;
  }
  for (char c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') {
      return false;
    }
  }
  return true;
}

void ExpectConformingFile(const std::string& path, std::size_t expectedPoints) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  const std::string bytes = all.str();
  const Header h = ParseHeader(bytes);

  const std::vector<std::string> order = {"VERSION", "FIELDS", "SIZE",      "TYPE",   "COUNT",
                                          "WIDTH",   "HEIGHT", "VIEWPOINT", "POINTS", "DATA"};
  ASSERT_EQ(h.keys, order);
  EXPECT_EQ(Entry(h, "VERSION"), std::vector<std::string>{"0.7"});

  const auto& fields = Entry(h, "FIELDS");
  const auto& sizes = Entry(h, "SIZE");
  const auto& types = Entry(h, "TYPE");
  const auto& counts = Entry(h, "COUNT");
  ASSERT_EQ(sizes.size(), fields.size());
  ASSERT_EQ(types.size(), fields.size());
  ASSERT_EQ(counts.size(), fields.size());
  std::set<std::string> unique;
  std::size_t recordBytes = 0;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    EXPECT_TRUE(IsIdentifier(fields[i])) << fields[i];
    EXPECT_TRUE(unique.insert(fields[i]).second) << "duplicate field " << fields[i];
    const int size = std::stoi(sizes[i]);
    const int count = std::stoi(counts[i]);
    EXPECT_TRUE(size == 1 || size == 2 || size == 4 || size == 8) << fields[i];
    EXPECT_TRUE(types[i] == "I" || types[i] == "U" || types[i] == "F") << fields[i];
    if (types[i] == "F") {
      EXPECT_TRUE(size == 4 || size == 8) << fields[i];
    }
    EXPECT_GE(count, 1) << fields[i];
    recordBytes += static_cast<std::size_t>(size) * count;
  }
  // Viewers look for these by name and expect floating-point values.
  for (const char* wanted : {"x", "y", "z", "intensity"}) {
    const auto it = std::find(fields.begin(), fields.end(), wanted);
    ASSERT_NE(it, fields.end()) << wanted;
    EXPECT_EQ(types[it - fields.begin()], "F") << wanted;
  }
  EXPECT_EQ(recordBytes, sizeof(_ori_point));

  const std::size_t width = std::stoul(Entry(h, "WIDTH").at(0));
  const std::size_t height = std::stoul(Entry(h, "HEIGHT").at(0));
  const std::size_t points = std::stoul(Entry(h, "POINTS").at(0));
  EXPECT_EQ(width * height, points);
  EXPECT_EQ(points, expectedPoints);
  ASSERT_EQ(Entry(h, "VIEWPOINT").size(), 7u);
  for (const std::string& v : Entry(h, "VIEWPOINT")) {
    EXPECT_NO_THROW(std::stod(v));
  }
  EXPECT_EQ(Entry(h, "DATA"), std::vector<std::string>{"binary"});
  EXPECT_EQ(bytes.size() - h.dataOffset, points * recordBytes);
}

TEST(PcdConformanceTest, SimulatedFrameFilesFollowTheHeaderRules) {
  test::TempDir dir;
  for (const char* model : {"Marlo128", "ZephelT"}) {
    const std::vector<_ori_point> frame = test::Generate(test::Settings(model, "empty"));
    const std::string path = dir.File("frame.pcd");
    WritePcd(path, frame);
    ExpectConformingFile(path, frame.size());
  }
}

TEST(PcdConformanceTest, EmptyFrameFileFollowsTheHeaderRules) {
  test::TempDir dir;
  WritePcd(dir.File("empty.pcd"), {});
  ExpectConformingFile(dir.File("empty.pcd"), 0);
}

}  // namespace
}  // namespace sim
}  // namespace velmar
