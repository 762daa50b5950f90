// The velmar-algo simulate command, run as a user runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ToolsTestSupport.h"
#include "sim/Recording.h"

namespace velmar {
namespace sim {
namespace {

using ::testing::HasSubstr;

struct CommandResult {
  int status;
  std::string output;
};

CommandResult RunCommand(const test::TempDir& dir, const std::string& arguments) {
  const std::string log = dir.File("log.txt");
  const std::string command =
      std::string(VELMAR_ALGO_COMMAND) + " " + arguments + " > " + log + " 2>&1";
  const int raw = std::system(command.c_str());
  std::ifstream in(log);
  std::ostringstream text;
  text << in.rdbuf();
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, text.str()};
}

TEST(SimulateCommandTest, WritesARecordingForEachModelFamily) {
  test::TempDir dir;
  for (const char* model : {"Marlo128", "ZephelB2/B3/MP", "ZephelT"}) {
    const std::string out = dir.File("drive");
    const CommandResult run =
        RunCommand(dir, std::string("simulate --model ") + model +
                            " --scene city --rain 0.3 --frames 2 --seed 1 -o " + out);
    ASSERT_EQ(run.status, 0) << run.output;
    RecordingReader reader(out);
    EXPECT_EQ(reader.Info().model, model);
    EXPECT_EQ(LidarTypeToStr(static_cast<int>(reader.Info().lidarType)), model);
    EXPECT_EQ(reader.Info().noise[NoiseKind::kRain], 0.3);
    EXPECT_EQ(reader.Info().seed, 1u);
    ASSERT_EQ(reader.FrameCount(), 2u);
    std::vector<_ori_point> frame;
    reader.ReadFrame(1, frame);
    SimulationSettings s = test::Settings(model, "city", 1);
    s.frames = 2;
    s.noise[NoiseKind::kRain] = 0.3;
    EXPECT_TRUE(test::SameFrameBytes(frame, test::Generate(s, 1)));
    std::filesystem::remove_all(out);
  }
}

TEST(SimulateCommandTest, RefusesBadArgumentsWithoutWriting) {
  test::TempDir dir;
  const std::string out = dir.File("never");
  for (const char* arguments : {"simulate --model Marlo999 -o ", "simulate --rain 1.5 -o ",
                                "simulate --scene moon -o ", "simulate --frames -3 -o "}) {
    const CommandResult run = RunCommand(dir, arguments + out);
    EXPECT_NE(run.status, 0) << arguments;
    EXPECT_FALSE(std::filesystem::exists(out)) << arguments;
  }
  EXPECT_NE(RunCommand(dir, "simulate --frames 1").status, 0);  // no output folder
  EXPECT_NE(RunCommand(dir, "").status, 0);                     // no subcommand
}

TEST(SimulateCommandTest, HelpListsModelsScenesAndNoiseKinds) {
  test::TempDir dir;
  const CommandResult run = RunCommand(dir, "simulate --help");
  EXPECT_EQ(run.status, 0);
  for (const SensorModel& m : SensorModels()) {
    EXPECT_THAT(run.output, HasSubstr(m.name));
  }
  for (const SceneInfo& s : SceneNames()) {
    EXPECT_THAT(run.output, HasSubstr(std::string(s.name) + ": "));
  }
  for (const NoiseKindInfo& n : NoiseKinds()) {
    EXPECT_THAT(run.output, HasSubstr(std::string("--") + n.name));
  }
}

}  // namespace
}  // namespace sim
}  // namespace velmar
