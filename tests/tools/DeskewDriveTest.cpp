// Turning drives of the simulator, eval's residual distortion, and ground detection after the
// moving-platform undistortion on a Marlo128 drive.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "CliTestSupport.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using clitest::ReadText;
using clitest::RunCli;
using clitest::ScratchFolder;
using clitest::WriteText;

std::string DeskewEntry(const std::string& params) {
  return test::EntryJson(34, "deskew", params);
}

TEST(DeskewDrive, TurningDrivesAreRecordedAndEvalMeasuresTheDistortionLeft) {
  ScratchFolder scratch;
  ASSERT_EQ(RunCli("simulate --model QuillA4 --ego-speed 10 --yaw-rate 30 --frames 2 -o " +
                       scratch.Path("turn"),
                   scratch)
                .status,
            0);
  ASSERT_EQ(
      RunCli("simulate --model QuillA4 --ego-speed 10 --frames 1 -o " + scratch.Path("straight"),
             scratch)
          .status,
      0);
  EXPECT_NE(ReadText(scratch.Path("turn/recording.json")).find("\"yaw_rate\": 30"),
            std::string::npos);
  EXPECT_EQ(ReadText(scratch.Path("straight/recording.json")).find("yaw_rate"), std::string::npos);

  WriteText(scratch.Path("known.json"),
            test::ConfigJson(
                DeskewEntry(R"({"estimate_motion": 0, "forward_speed": 10, "yaw_rate": 30})")));
  const clitest::CommandResult eval =
      RunCli("eval --model QuillA4 --packet 128 --config " + scratch.Path("known.json") +
                 " --json " + scratch.Path("eval.json") + " " + scratch.Path("turn"),
             scratch);
  ASSERT_EQ(eval.status, 0) << eval.err;
  EXPECT_NE(eval.out.find("residual motion distortion of static returns"), std::string::npos);
  rapidjson::Document json;
  json.Parse(ReadText(scratch.Path("eval.json")).c_str());
  ASSERT_TRUE(json.IsObject() && json.HasMember("distortion"));
  const rapidjson::Value& distortion = json["distortion"];
  // Half a metre of smear on average before; after, the configured motion is the true one.
  EXPECT_GT(distortion["before"]["mean_m"].GetDouble(), 0.4);
  EXPECT_LT(distortion["after"]["mean_m"].GetDouble(), 1e-4);
  EXPECT_GT(distortion["after"]["returns"].GetUint64(), 100000u);
}

// Ground returns labelled by ground detection (its debug label 1) over frames 1 to 3 of a drive
// fed in packets of 128, with or without the undistortion before it.
uint64_t GroundLabelled(bool deskew) {
  sim::SimulationSettings settings = clitest::Settings("Marlo128");
  settings.scene.egoSpeed = 10.0;
  std::string output;
  const std::string ground = test::EntryJson(35, "ground", R"({"debug_using_echo": 1})");
  auto pipeline = test::CreatePipeline(
      LIDAR_MARLO128,
      test::ConfigJson(deskew ? DeskewEntry(R"({"estimate_motion": 0, "forward_speed": 10})") +
                                    "," + ground
                              : ground),
      &output);
  sim::Simulator simulator(settings);
  std::vector<_ori_point> frame;
  uint64_t labelled = 0;
  for (uint32_t index = 0; index < 3; ++index) {
    simulator.GenerateFrame(index, frame);
    for (std::size_t begin = 0; begin < frame.size(); begin += 128) {
      std::vector<_ori_point> packet(frame.begin() + begin, frame.begin() + begin + 128);
      pipeline->Process(packet);
      for (const _ori_point& p : packet) {
        labelled += index > 0 && p.label == 1 && sim::TruthKindOf(p) == sim::TruthKind::kGround;
      }
    }
  }
  return labelled;
}

TEST(DeskewDrive, GroundDetectionStillFitsAfterTheDeskewOfAMarlo128Drive) {
  const uint64_t plain = GroundLabelled(false);
  const uint64_t deskewed = GroundLabelled(true);
  ASSERT_GT(plain, 10000u);
  EXPECT_GT(deskewed, plain * 9 / 10);
}

}  // namespace
}  // namespace velmar
