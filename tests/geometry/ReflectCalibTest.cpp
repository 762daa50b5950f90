// The calibration table (its text both ways, each malformed form) and the calibration that
// applies it, loaded from a file that may change between configurations.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "geometry/CalibTable.h"
#include "geometry/ReflectCalib.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr int kCalibId = 11;

const char* const kTable = R"(velmar-calib 1
# gain 2 on channel 1, a bend on channel 3
1 0:0 100:200
3 0:10 50:60 255:255   # three knots
)";

std::vector<_ori_point> ChannelFrame(double intensity) {
  std::vector<_ori_point> frame;
  for (uint32_t channel : {0u, 1u, 3u, 4000u}) {
    _ori_point p = test::Ret(10.0).Channel(channel);
    p.intensity = intensity;
    frame.push_back(p);
  }
  return frame;
}

std::vector<double> Intensities(const std::vector<_ori_point>& frame) {
  std::vector<double> values;
  for (const _ori_point& p : frame) {
    values.push_back(p.intensity);
  }
  return values;
}

std::string CalibParams(const std::string& path) {
  return "{\"calib_file\": \"" + path + "\"}";
}

TEST(CalibTable, CurvesInterpolateExtendAndClamp) {
  CalibTable table;
  std::string problem;
  ASSERT_TRUE(table.Parse(kTable, problem)) << problem;
  ASSERT_EQ(table.Curves().size(), 4u);
  EXPECT_EQ(table.Curves()[0].knots, 0u);
  const CalibCurve& gain = table.Curves()[1];
  EXPECT_DOUBLE_EQ(gain.Apply(30.0), 60.0);
  EXPECT_DOUBLE_EQ(gain.Apply(120.0), 240.0);  // the last segment goes on
  EXPECT_DOUBLE_EQ(gain.Apply(200.0), 255.0);  // up to full scale
  const CalibCurve& bend = table.Curves()[3];
  EXPECT_DOUBLE_EQ(bend.Apply(25.0), 35.0);
  EXPECT_DOUBLE_EQ(bend.Apply(152.5), 157.5);

  CalibTable again;
  ASSERT_TRUE(again.Parse(CalibTable::Write(table.Curves(), "written back"), problem)) << problem;
  EXPECT_DOUBLE_EQ(again.Curves()[3].Apply(152.5), 157.5);
  EXPECT_EQ(again.Curves()[0].knots, 0u);
}

TEST(CalibTable, MalformedTablesAreRefusedWithTheirLine) {
  const std::string header = "velmar-calib 1\n";
  const std::pair<std::string, const char*> cases[] = {
      {"1 0:0 255:255\n", "line 1: expected the header"},
      {header + "x 0:0 255:255\n", "line 2: expected a channel"},
      {header + "1.5 0:0 255:255\n", "line 2: expected a channel"},
      {header + "4096 0:0 255:255\n", "line 2: expected a channel"},
      {header + "1 0:0\n", "line 2: a channel needs 2 to 16 knots"},
      {header + "1 0:0 1:1 2:2 3:3 4:4 5:5 6:6 7:7 8:8 9:9 10:10 11:11 12:12 13:13 14:14 15:15 "
                "16:16\n",
       "line 2: a channel needs"},
      {header + "1 0:0 255\n", "line 2: expected a knot"},
      {header + "1 0:0 255:nan\n", "line 2: expected a knot"},
      {header + "1 0:0 2000:255\n", "line 2: expected a knot"},
      {header + "1 0:-1 255:255\n", "line 2: expected a knot"},
      {header + "1 100:0 100:255\n", "line 2: raw values of the knots must increase"},
      {header + "1 0:0 255:255\n\n1 0:0 255:255\n", "line 4: channel 1 is listed twice"},
      {header, "lists no channel"},
  };
  for (const auto& [text, expected] : cases) {
    CalibTable table;
    std::string problem;
    EXPECT_FALSE(table.Parse(text, problem)) << text;
    EXPECT_NE(problem.find(expected), std::string::npos) << text << " -> " << problem;
    EXPECT_TRUE(table.Empty());
  }
}

TEST(ReflectCalib, ListedChannelsAreCalibratedOthersPassThrough) {
  const std::string path = test::WriteTempFile(kTable);
  std::vector<_ori_point> frame = ChannelFrame(30.0);
  frame.push_back(frame[1]);
  frame.back().intensity = NAN;
  test::MakeAlgo(kCalibId, LIDAR_MARLO128, CalibParams(path))->Process(frame);
  EXPECT_EQ(Intensities(frame)[0], 30.0);
  EXPECT_EQ(Intensities(frame)[1], 60.0);
  EXPECT_EQ(Intensities(frame)[2], 40.0);
  EXPECT_EQ(Intensities(frame)[3], 30.0);
  EXPECT_TRUE(std::isnan(frame[4].intensity));
}

TEST(ReflectCalib, UnusableTablesLeaveFramesUnchanged) {
  const std::string bad = test::WriteTempFile("velmar-calib 1\n1 0:0 10:5 5:1\n");
  const std::pair<std::string, std::string> cases[] = {
      {CalibParams(bad), "[algo]:ReflectCalib calib_file " + bad +
                             " line 2: raw values of the knots must increase!\n"},
      {CalibParams("/dev/zero"),
       "[algo]:ReflectCalib calib_file /dev/zero is not a regular file!\n"},
      {"{}", "[algo]:ReflectCalib param is invalid!\n"},
  };
  for (const auto& [params, message] : cases) {
    std::string output;
    auto algo = test::MakeAlgo(kCalibId, LIDAR_MARLO128, params, &output);
    EXPECT_EQ(output, message);
    std::vector<_ori_point> frame = ChannelFrame(30.0);
    const std::vector<_ori_point> before = frame;
    algo->Process(frame);
    EXPECT_TRUE(test::SameBytes(frame, before));
  }
}

// A table replaced between two configurations: the running one keeps what it loaded, the next
// one reads the new file.
TEST(ReflectCalib, ATableReplacedCountsFromTheNextConfiguration) {
  const std::string path = test::WriteTempFile(kTable);
  const std::string json = test::ConfigJson(test::EntryJson(kCalibId, "calib", CalibParams(path)));
  auto pipeline = test::CreatePipeline(LIDAR_MARLO128, json);
  std::ofstream(path, std::ios::trunc) << "velmar-calib 1\n1 0:0 100:50\n";
  std::vector<_ori_point> frame = ChannelFrame(30.0);
  pipeline->Process(frame);
  EXPECT_EQ(Intensities(frame)[1], 60.0);
  test::CaptureOutput([&] { EXPECT_TRUE(pipeline->UpdateAlgoParam(json)); });
  frame = ChannelFrame(30.0);
  pipeline->Process(frame);
  EXPECT_EQ(Intensities(frame)[1], 15.0);
  EXPECT_EQ(Intensities(frame)[2], 30.0);
}

}  // namespace
}  // namespace velmar
