// Recording folders and PCD frame files: bit-exact round trips, streaming, and clear errors for
// malformed or truncated files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>

#include "ToolsTestSupport.h"
#include "sim/Random.h"
#include "sim/Recording.h"

namespace velmar {
namespace sim {
namespace {

using test::SameFrameBytes;
using test::TempDir;
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

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

// The message of the RecordingError thrown by ReadPcd, or "" when none is thrown.
std::string PcdError(const std::string& path) {
  std::vector<_ori_point> frame;
  try {
    ReadPcd(path, frame);
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "";
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

TEST(PcdRoundTripTest, EveryByteOfEveryRecordSurvives) {
  TempDir dir;
  for (std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{97}}) {
    const std::vector<_ori_point> frame = RandomFrame(count, count + 1);
    const std::string path = dir.File("f" + std::to_string(count) + ".pcd");
    WritePcd(path, frame);
    std::vector<_ori_point> back = RandomFrame(5, 99);  // stale content must not survive
    ReadPcd(path, back);
    EXPECT_TRUE(SameFrameBytes(frame, back)) << count << " points";
  }
}

TEST(PcdRoundTripTest, FileIsTheHeaderFollowedByTheRawRecords) {
  TempDir dir;
  const std::vector<_ori_point> frame = RandomFrame(3, 5);
  WritePcd(dir.File("f.pcd"), frame);
  const std::string bytes = ReadBytes(dir.File("f.pcd"));
  const std::size_t dataStart = bytes.find("DATA binary\n");
  ASSERT_NE(dataStart, std::string::npos);
  const std::string data = bytes.substr(dataStart + 12);
  ASSERT_EQ(data.size(), 3 * sizeof(_ori_point));
  EXPECT_EQ(data, std::string(reinterpret_cast<const char*>(frame.data()), data.size()));
}

TEST(RecordingRoundTripTest, FramesAndSettingsComeBackUnchanged) {
  TempDir dir;
  const RecordingInfo info = SampleInfo();
  std::vector<std::vector<_ori_point>> frames = {RandomFrame(10, 1), RandomFrame(0, 2),
                                                 RandomFrame(300, 3)};
  {
    RecordingWriter writer(dir.Path() + "/rec", info);
    for (const auto& frame : frames) {
      writer.WriteFrame(frame);
    }
  }  // closed by the destructor
  RecordingReader reader(dir.Path() + "/rec");
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
    EXPECT_TRUE(SameFrameBytes(frame, expected));
  }
  EXPECT_FALSE(reader.NextFrame(frame));
  reader.Rewind();
  ASSERT_TRUE(reader.NextFrame(frame));
  EXPECT_TRUE(SameFrameBytes(frame, frames[0]));
  reader.ReadFrame(2, frame);
  EXPECT_TRUE(SameFrameBytes(frame, frames[2]));
}

TEST(RecordingRoundTripTest, SimulatedFramesRoundTrip) {
  TempDir dir;
  SimulationSettings s = test::Settings("Marlo128", "city", 21);
  s.frames = 2;
  s.noise[NoiseKind::kRain] = 0.1;
  Simulator simulator(s);
  RecordingInfo info;
  info.model = simulator.Model().name;
  RecordingWriter writer(dir.Path(), info);
  std::vector<std::vector<_ori_point>> written;
  std::vector<_ori_point> frame;
  while (simulator.NextFrame(frame)) {
    writer.WriteFrame(frame);
    written.push_back(frame);
  }
  writer.Close();
  EXPECT_THROW(writer.WriteFrame(frame), RecordingError);
  RecordingReader reader(dir.Path());
  ASSERT_EQ(reader.FrameCount(), 2u);
  for (const auto& expected : written) {
    ASSERT_TRUE(reader.NextFrame(frame));
    EXPECT_TRUE(SameFrameBytes(frame, expected));
  }
}

TEST(RecordingRoundTripTest, AWriterThatStopsEarlyLeavesAValidShorterRecording) {
  TempDir dir;
  RecordingWriter writer(dir.Path(), SampleInfo());
  writer.WriteFrame(RandomFrame(4, 1));
  // Not closed yet: the index still lists no frame, but it is readable.
  EXPECT_EQ(RecordingReader(dir.Path()).FrameCount(), 0u);
  writer.Close();
  EXPECT_EQ(RecordingReader(dir.Path()).FrameCount(), 1u);
}

// A valid file with one header line replaced.
class PcdHeaderErrorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.File("frame.pcd");
    WritePcd(path_, RandomFrame(4, 7));
    original_ = ReadBytes(path_);
  }
  std::string Replace(const std::string& from, const std::string& to) {
    std::string bytes = original_;
    const std::size_t at = bytes.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    bytes.replace(at, from.size(), to);
    WriteBytes(path_, bytes);
    return PcdError(path_);
  }
  TempDir dir_;
  std::string path_;
  std::string original_;
};

TEST_F(PcdHeaderErrorTest, MessagesNameTheFileAndTheProblem) {
  struct Case {
    const char* from;
    const char* to;
    const char* problem;
  };
  const Case cases[] = {
      {"VERSION 0.7", "VERSION 0.6", "unsupported PCD version \"0.6\""},
      {"FIELDS x y z intensity", "FIELDS x y z rgb", "FIELDS is"},
      {"SIZE 8 8 8 8", "SIZE 4 8 8 8", "SIZE is"},
      {"TYPE F F F F", "TYPE F F F U", "TYPE is"},
      {"COUNT 1 1 1", "COUNT 3 1 1", "COUNT is"},
      {"WIDTH 4", "WIDTH 5", "WIDTH x HEIGHT (5 x 1) differs from POINTS 4"},
      {"HEIGHT 1\n", "", "expected HEIGHT in the header, found \"VIEWPOINT\""},
      {"POINTS 4", "POINTS four", "POINTS \"four\" is not a point count"},
      {"WIDTH 4", "WIDTH -4", "WIDTH \"-4\" is not a point count"},
      {"DATA binary", "DATA ascii", "DATA ascii is not supported"},
      {"DATA binary", "DATA binary_compressed", "DATA binary_compressed is not supported"},
  };
  for (const Case& c : cases) {
    EXPECT_THAT(Replace(c.from, c.to), AllOf(HasSubstr(path_ + ": "), HasSubstr(c.problem)))
        << c.from << " -> " << c.to;
  }
}

TEST_F(PcdHeaderErrorTest, CommentsAndBlankLinesInTheHeaderAreAccepted) {
  EXPECT_EQ(Replace("VERSION 0.7\n", "VERSION 0.7\n# written by a test\n\n"), "");
  EXPECT_EQ(Replace("WIDTH 4", "WIDTH   4"), "");
}

TEST_F(PcdHeaderErrorTest, TruncatedDataIsRejectedNotReadPartially) {
  WriteBytes(path_, original_.substr(0, original_.size() - 1));
  std::vector<_ori_point> frame(2);
  const std::vector<_ori_point> before = frame;
  EXPECT_THAT(PcdError(path_), AllOf(HasSubstr(path_ + ": truncated"),
                                     HasSubstr("POINTS 4 needs 608 bytes of data")));
  EXPECT_THROW(ReadPcd(path_, frame), RecordingError);
  EXPECT_TRUE(SameFrameBytes(frame, before));
}

TEST_F(PcdHeaderErrorTest, TruncatedHeaderIsRejected) {
  WriteBytes(path_, original_.substr(0, original_.find("WIDTH")));
  EXPECT_THAT(PcdError(path_), HasSubstr(path_ + ": header ends before WIDTH"));
}

TEST_F(PcdHeaderErrorTest, HugePointCountWithLittleDataIsRejectedBeforeAllocating) {
  std::string bytes = original_;
  bytes.replace(bytes.find("WIDTH 4"), 7, "WIDTH 999999999999");
  bytes.replace(bytes.find("POINTS 4"), 8, "POINTS 999999999999");
  WriteBytes(path_, bytes);
  EXPECT_THAT(PcdError(path_), HasSubstr("truncated: POINTS 999999999999"));
}

TEST_F(PcdHeaderErrorTest, BytesAfterThePointsAreRejected) {
  WriteBytes(path_, original_ + "x");
  EXPECT_THAT(PcdError(path_), HasSubstr(path_ + ": 1 unexpected bytes after the 4 points"));
}

TEST(PcdFileErrorTest, MissingEmptyAndForeignFilesAreRejected) {
  TempDir dir;
  EXPECT_THAT(PcdError(dir.File("none.pcd")), HasSubstr(dir.File("none.pcd") + ": cannot open"));
  WriteBytes(dir.File("empty.pcd"), "");
  EXPECT_THAT(PcdError(dir.File("empty.pcd")), HasSubstr("empty file or not a PCD file"));
  // A binary blob with no line ends is not read as an endless header line.
  WriteBytes(dir.File("blob.pcd"), std::string(200000, '\x7f'));
  EXPECT_THAT(PcdError(dir.File("blob.pcd")), HasSubstr("header is too long"));
  WriteBytes(dir.File("ply.pcd"), "ply\nformat binary_little_endian 1.0\n");
  EXPECT_THAT(PcdError(dir.File("ply.pcd")), HasSubstr("expected VERSION in the header"));
}

std::string IndexError(const std::string& folder) {
  try {
    RecordingReader reader(folder);
  } catch (const RecordingError& error) {
    return error.what();
  }
  return "";
}

TEST(RecordingIndexErrorTest, BrokenIndexFilesAreRejectedWithTheirPath) {
  TempDir dir;
  const std::string index = dir.File("recording.json");
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr(index + ": cannot open"));
  {
    RecordingWriter writer(dir.Path(), SampleInfo());
    writer.WriteFrame(RandomFrame(2, 3));
  }
  const std::string good = ReadBytes(index);
  EXPECT_EQ(IndexError(dir.Path()), "");

  WriteBytes(index, good.substr(0, good.size() / 2));
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr(index + ": invalid JSON at offset"));

  auto without = [&good](const std::string& from, const std::string& to) {
    std::string text = good;
    text.replace(text.find(from), from.size(), to);
    return text;
  };
  WriteBytes(index, without("\"model\"", "\"modle\""));
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr(index + ": missing \"model\""));
  WriteBytes(index, without("\"frames\": 1", "\"frames\": 2"));
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr("\"frame_files\" must list one file per frame"));
  WriteBytes(index, without("\"frames\": 1", "\"frames\": -1"));
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr("\"frames\" must be a non-negative integer"));
  WriteBytes(index, without("velmar-recording", "other-recording"));
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr("\"format\" must be \"velmar-recording\""));
  WriteBytes(index, without("frame_000000.pcd", "../frame_000000.pcd"));
  EXPECT_THAT(IndexError(dir.Path()), HasSubstr("entry 0 must be \"frame_000000.pcd\""));
}

TEST(RecordingIndexErrorTest, AMissingFrameFileIsNamed) {
  TempDir dir;
  {
    RecordingWriter writer(dir.Path(), SampleInfo());
    writer.WriteFrame(RandomFrame(2, 3));
    writer.WriteFrame(RandomFrame(2, 4));
  }
  std::filesystem::remove(dir.File("frame_000001.pcd"));
  RecordingReader reader(dir.Path());
  std::vector<_ori_point> frame;
  EXPECT_TRUE(reader.NextFrame(frame));
  try {
    reader.NextFrame(frame);
    FAIL() << "a missing frame file was not reported";
  } catch (const RecordingError& error) {
    EXPECT_THAT(error.what(), HasSubstr(dir.File("frame_000001.pcd") + ": cannot open"));
  }
  EXPECT_THROW(reader.ReadFrame(2, frame), RecordingError);
}

}  // namespace
}  // namespace sim
}  // namespace velmar
