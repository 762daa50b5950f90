// Recording folders and PCD frame files: bit-exact round trips, headers that other point-cloud
// tools accept, and clear errors for malformed or truncated files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "CliTestSupport.h"
#include "sim/Random.h"
#include "sim/Recording.h"

namespace velmar {
namespace sim {
namespace {

using clitest::ReadText;
using clitest::WriteText;
using test::SameBytes;
using ScratchFolder = clitest::ScratchFolder;
using ::testing::AllOf;
using ::testing::HasSubstr;

// Every byte of every record random: reserved bytes, NaN payloads and all.
std::vector<_ori_point> RandomFrame(std::size_t count, uint64_t seed) {
  std::vector<_ori_point> frame(count);
  Rng rng(seed);
  auto* bytes = reinterpret_cast<unsigned char*>(frame.data());
  for (std::size_t i = 0; i < count * sizeof(_ori_point); ++i) {
    bytes[i] = static_cast<unsigned char>(rng.Next());
  }
  return frame;
}

// The message of the RecordingError that `read` throws, or "" when it throws none.
template <typename Read>
std::string ErrorOf(Read read) {
  try {
    read();
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "";
}

std::string PcdError(const std::string& path) {
  std::vector<_ori_point> frame;
  return ErrorOf([&] { ReadPcd(path, frame); });
}

std::string IndexError(const std::string& folder) {
  return ErrorOf([&] { RecordingReader reader(folder); });
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

RecordingInfo SampleInfo() {
  RecordingInfo info;
  info.model = "ZephelT";
  info.lidarType = LIDAR_ZEPHEL_T;
  info.packetPoints = 96;
  info.seed = std::numeric_limits<uint64_t>::max();
  info.scene.name = "highway";
  info.scene.egoSpeed = 27.5;
  info.scene.groundSlope = -0.03;
  info.noise[NoiseKind::kRain] = 1.0 / 3.0;
  info.noise[NoiseKind::kFixedEcho] = 0.1;
  info.attributes["config"] = "configs/a \"quoted\" path.json";
  return info;
}

// Checks a frame file against the rules of the PCD v0.7 header that other point-cloud tools
// apply, with a reader of its own rather than the recording code, and checks that the raw
// records of `frame` follow it.
void ExpectConformingFile(const std::string& path, const std::vector<_ori_point>& frame) {
  const std::string bytes = ReadText(path);
  std::vector<std::string> keys;
  std::map<std::string, std::vector<std::string>> entry;
  std::size_t at = 0;
  while (keys.empty() || keys.back() != "DATA") {
    const std::size_t end = bytes.find('\n', at);
    ASSERT_NE(end, std::string::npos) << "header ends early";
    std::istringstream words(bytes.substr(at, end - at));
    at = end + 1;
    std::string key;
    if (words >> key && key[0] != '#') {
      keys.push_back(key);
      for (std::string w; words >> w;) {
        entry[key].push_back(w);
      }
    }
  }
  ASSERT_EQ(keys, (std::vector<std::string>{"VERSION", "FIELDS", "SIZE", "TYPE", "COUNT", "WIDTH",
                                            "HEIGHT", "VIEWPOINT", "POINTS", "DATA"}));
  EXPECT_EQ(entry["VERSION"][0] + " " + entry["DATA"][0], "0.7 binary");
  const auto& fields = entry["FIELDS"];
  ASSERT_EQ(entry["SIZE"].size() + entry["TYPE"].size() + entry["COUNT"].size(), 3 * fields.size());
  std::size_t record_bytes = 0;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string& name = fields[i];
    const int size = std::stoi(entry["SIZE"][i]);
    const std::string& type = entry["TYPE"][i];
    EXPECT_TRUE(
        std::isalpha(static_cast<unsigned char>(name[0])) &&
        std::all_of(name.begin(), name.end(), [](char c) { return std::isalnum(c) || c == '_'; }) &&
        std::count(fields.begin(), fields.end(), name) == 1)
        << name;
    EXPECT_TRUE((size == 1 || size == 2 || size == 4 || size == 8) &&
                (type == "I" || type == "U" || (type == "F" && size >= 4)))
        << name;
    // Viewers look for these by name and expect floating-point values.
    EXPECT_TRUE(type == "F" || (name != "x" && name != "y" && name != "z" && name != "intensity"));
    record_bytes += static_cast<std::size_t>(size) * std::stoul(entry["COUNT"][i]);
  }
  for (const char* wanted : {"x", "y", "z", "intensity"}) {
    EXPECT_NE(std::find(fields.begin(), fields.end(), wanted), fields.end()) << wanted;
  }
  EXPECT_EQ(record_bytes, sizeof(_ori_point));
  EXPECT_EQ(std::stoul(entry["WIDTH"].at(0)) * std::stoul(entry["HEIGHT"].at(0)), frame.size());
  EXPECT_EQ(std::stoul(entry["POINTS"].at(0)), frame.size());
  ASSERT_EQ(entry["VIEWPOINT"].size(), 7u);
  for (const std::string& v : entry["VIEWPOINT"]) {
    EXPECT_NO_THROW(std::stod(v));
  }
  EXPECT_EQ(bytes.substr(at), std::string(reinterpret_cast<const char*>(frame.data()),
                                          frame.size() * sizeof(_ori_point)));
}

TEST(PcdRoundTripTest, EveryByteOfEveryRecordSurvivesInAConformingFile) {
  ScratchFolder dir;
  const std::vector<_ori_point> frames[] = {
      RandomFrame(0, 1), RandomFrame(1, 2), RandomFrame(97, 98),
      clitest::Generate(clitest::Settings("Marlo128", "empty")),
      clitest::Generate(clitest::Settings("ZephelT", "empty"))};
  for (const std::vector<_ori_point>& frame : frames) {
    const std::string path = dir.Path("f.pcd");
    WritePcd(path, frame);
    ExpectConformingFile(path, frame);
    std::vector<_ori_point> back = RandomFrame(5, 99);  // stale content must not survive
    ReadPcd(path, back);
    EXPECT_TRUE(SameBytes(frame, back)) << frame.size() << " points";
  }
}

TEST(RecordingRoundTripTest, FramesAndSettingsComeBackUnchanged) {
  ScratchFolder dir;
  const RecordingInfo info = SampleInfo();
  std::vector<std::vector<_ori_point>> frames = {RandomFrame(10, 1), RandomFrame(0, 2),
                                                 RandomFrame(300, 3)};
  {
    RecordingWriter writer(dir.Path("rec"), info);
    for (const auto& frame : frames) {
      writer.WriteFrame(frame);
    }
  }  // closed by the destructor
  RecordingReader reader(dir.Path("rec"));
  const RecordingInfo& back = reader.Info();
  EXPECT_EQ(back.model, info.model);
  EXPECT_EQ(back.lidarType, info.lidarType);
  EXPECT_EQ(back.packetPoints, info.packetPoints);
  EXPECT_EQ(back.seed, info.seed);
  EXPECT_EQ(back.scene.name, info.scene.name);
  EXPECT_EQ(back.scene.egoSpeed, info.scene.egoSpeed);
  EXPECT_EQ(back.scene.groundSlope, info.scene.groundSlope);
  EXPECT_EQ(back.noise.rate, info.noise.rate);
  EXPECT_EQ(back.attributes, info.attributes);
  ASSERT_EQ(reader.FrameCount(), 3u);

  std::vector<_ori_point> frame;
  for (const auto& expected : frames) {
    ASSERT_TRUE(reader.NextFrame(frame));
    EXPECT_TRUE(SameBytes(frame, expected));
  }
  EXPECT_FALSE(reader.NextFrame(frame));
  reader.Rewind();
  ASSERT_TRUE(reader.NextFrame(frame));
  EXPECT_TRUE(SameBytes(frame, frames[0]));
  reader.ReadFrame(2, frame);
  EXPECT_TRUE(SameBytes(frame, frames[2]));
}

TEST(RecordingRoundTripTest, AWriterThatStopsEarlyLeavesNoIndex) {
  ScratchFolder dir;
  RecordingWriter writer(dir.Path(), SampleInfo());
  writer.WriteFrame(RandomFrame(4, 1));
  // Not closed yet: the folder is not a recording.
  EXPECT_THROW(RecordingReader{dir.Path()}, RecordingError);
  writer.Close();
  EXPECT_EQ(RecordingReader(dir.Path()).FrameCount(), 1u);
  EXPECT_THROW(writer.WriteFrame(RandomFrame(4, 1)), RecordingError);
  // A writer left by an exception does not index what it wrote.
  try {
    RecordingWriter failing(dir.Path("failing"), SampleInfo());
    failing.WriteFrame(RandomFrame(4, 1));
    throw RecordingError("stop");
  } catch (const RecordingError&) {
  }
  EXPECT_THROW(RecordingReader{dir.Path("failing")}, RecordingError);
}

TEST(PcdErrorTest, DamagedFilesAreRejectedWithTheFileAndTheProblem) {
  ScratchFolder dir;
  const std::string path = dir.Path("frame.pcd");
  WritePcd(path, RandomFrame(4, 7));
  const std::string good = ReadText(path);
  EXPECT_EQ(PcdError(path), "");
  const std::pair<std::string, const char*> cases[] = {
      {Replaced(good, "VERSION 0.7", "VERSION 0.6"), "unsupported PCD version \"0.6\""},
      {Replaced(good, "FIELDS x y z intensity", "FIELDS x y z rgb"), "FIELDS is"},
      {Replaced(good, "SIZE 8 8 8 8", "SIZE 4 8 8 8"), "SIZE is"},
      {Replaced(good, "TYPE F F F F", "TYPE F F F U"), "TYPE is"},
      {Replaced(good, "COUNT 1 1 1", "COUNT 3 1 1"), "COUNT is"},
      {Replaced(good, "WIDTH 4", "WIDTH 5"), "WIDTH x HEIGHT (5 x 1) differs from POINTS 4"},
      {Replaced(good, "HEIGHT 1\n", ""), "expected HEIGHT in the header, found \"VIEWPOINT\""},
      {Replaced(good, "POINTS 4", "POINTS four"), "POINTS \"four\" is not a point count"},
      {Replaced(good, "WIDTH 4", "WIDTH -4"), "WIDTH \"-4\" is not a point count"},
      {Replaced(good, "DATA binary", "DATA ascii"), "DATA ascii is not supported"},
      {Replaced(good, "DATA binary", "DATA binary_compressed"),
       "DATA binary_compressed is not supported"},
      {good.substr(0, good.find("WIDTH")), "header ends before WIDTH"},
      {good.substr(0, good.size() - 1), "truncated: POINTS 4 needs 608 bytes of data"},
      // A huge count with little data is rejected before anything is allocated.
      {Replaced(Replaced(good, "WIDTH 4", "WIDTH 999999999999"), "POINTS 4", "POINTS 999999999999"),
       "truncated: POINTS 999999999999"},
      {good + "x", "1 unexpected bytes after the 4 points"},
      {"", "empty file or not a PCD file"},
      // A binary blob with no line ends is not read as an endless header line.
      {std::string(200000, '\x7f'), "header is too long"},
      {"ply\nformat binary_little_endian 1.0\n", "expected VERSION in the header"},
  };
  for (const auto& [bytes, problem] : cases) {
    WriteText(path, bytes);
    EXPECT_THAT(PcdError(path), AllOf(HasSubstr(path + ": "), HasSubstr(problem)));
  }
  // A truncated file is not read partially.
  WriteText(path, good.substr(0, good.size() - 1));
  std::vector<_ori_point> frame(2);
  const std::vector<_ori_point> before = frame;
  EXPECT_THROW(ReadPcd(path, frame), RecordingError);
  EXPECT_TRUE(SameBytes(frame, before));
  EXPECT_THAT(PcdError(dir.Path("none.pcd")), HasSubstr(dir.Path("none.pcd") + ": cannot open"));
  // Comments, blank lines and extra spaces in the header are accepted.
  WriteText(path, Replaced(Replaced(good, "VERSION 0.7\n", "VERSION 0.7\n# a test\n\n"), "WIDTH 4",
                           "WIDTH   4"));
  EXPECT_EQ(PcdError(path), "");
}

TEST(RecordingIndexErrorTest, BrokenIndexFilesAreRejectedWithTheirPath) {
  ScratchFolder dir;
  const std::string index = dir.Path("recording.json");
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr(index + ": cannot open"));
  {
    RecordingWriter writer(dir.Path(), SampleInfo());
    writer.WriteFrame(RandomFrame(2, 3));
  }
  const std::string good = ReadText(index);
  EXPECT_EQ(IndexError(dir.Path()), "");
  const std::pair<std::string, std::string> cases[] = {
      {good.substr(0, good.size() / 2), index + ": invalid JSON at offset"},
      {Replaced(good, "\"model\"", "\"modle\""), index + ": missing \"model\""},
      {Replaced(good, "\"frames\": 1", "\"frames\": 2"),
       "\"frame_files\" must list one file per frame"},
      {Replaced(good, "\"frames\": 1", "\"frames\": -1"),
       "\"frames\" must be a non-negative integer"},
      {Replaced(good, "velmar-recording", "other-recording"),
       "\"format\" must be \"velmar-recording\""},
      {Replaced(good, "frame_000000.pcd", "../frame_000000.pcd"),
       "entry 0 must be \"frame_000000.pcd\""},
  };
  for (const auto& [text, problem] : cases) {
    WriteText(index, text);
    EXPECT_THAT(IndexError(dir.Path()), HasSubstr(problem));
  }
}

TEST(RecordingIndexErrorTest, AMissingFrameFileIsNamed) {
  ScratchFolder dir;
  {
    RecordingWriter writer(dir.Path(), SampleInfo());
    writer.WriteFrame(RandomFrame(2, 3));
    writer.WriteFrame(RandomFrame(2, 4));
  }
  std::filesystem::remove(dir.Path("frame_000001.pcd"));
  RecordingReader reader(dir.Path());
  std::vector<_ori_point> frame;
  EXPECT_TRUE(reader.NextFrame(frame));
  EXPECT_THAT(ErrorOf([&] { reader.NextFrame(frame); }),
              HasSubstr(dir.Path("frame_000001.pcd") + ": cannot open"));
  EXPECT_THROW(reader.ReadFrame(2, frame), RecordingError);
}

}  // namespace
}  // namespace sim
}  // namespace velmar
