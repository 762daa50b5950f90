// The command line never loses or half-writes a recording: outputs appear whole or not at all,
// a previous recording is replaced only by a complete one, a full disk is one clear error, and
// the input is never overwritten.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "../support/SmallStack.h"
#include "CliTestSupport.h"
#include "sim/Recording.h"

namespace velmar {
namespace {

using clitest::ReadText;
using clitest::RunCli;
using clitest::ScratchFolder;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

// Folders beside `path` whose names start with its own and ".partial-".
std::vector<fs::path> Leftovers(const std::string& path) {
  std::vector<fs::path> found;
  const std::string prefix = fs::path(path).filename().string() + ".partial-";
  for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path())) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) {
      found.push_back(entry.path());
    }
  }
  return found;
}

// Runs the command line through the shell after `setup` (a limit, a timeout wrapper).
clitest::CommandResult RunLimited(const std::string& setup, const std::string& arguments,
                                  const ScratchFolder& scratch) {
  const std::string out = scratch.Path("limited.out");
  const std::string err = scratch.Path("limited.err");
  const std::string line =
      "sh -c '" + setup + " " + VELMAR_ALGO_COMMAND + " " + arguments + "' >" + out + " 2>" + err;
  const int raw = std::system(line.c_str());
  clitest::CommandResult result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  result.out = ReadText(out);
  result.err = ReadText(err);
  return result;
}

std::string Simulate(const std::string& model, const std::string& output) {
  return "simulate --model " + model + " --frames 1 -o " + output;
}

TEST(RecordingSafety, AFullDiskIsOneErrorAndLeavesNothingBehind) {
  ScratchFolder scratch;
  const std::string out = scratch.Path("drive");
  // 256 KiB per file: the first frame file fails part-way through.
  const clitest::CommandResult full =
      RunLimited("ulimit -f 256;", Simulate("ZephelT", out), scratch);
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.err, HasSubstr("velmar-algo simulate: "));
  EXPECT_THAT(full.err, HasSubstr("write failed (File too large)"));
  EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
  EXPECT_FALSE(fs::exists(out));
  EXPECT_TRUE(Leftovers(out).empty());

  // The same for run, whose previous output stays as it was.
  ASSERT_EQ(RunCli(Simulate("ZephelT", scratch.Path("in")), scratch).status, 0);
  clitest::WriteText(scratch.Path("c.json"), test::ConfigJson(""));
  const std::string run =
      "run --model ZephelT --config " + scratch.Path("c.json") + " " + scratch.Path("in") + " ";
  ASSERT_EQ(RunCli(run + out, scratch).status, 0);
  const std::string before = ReadText(out + "/recording.json");
  const clitest::CommandResult failed = RunLimited("ulimit -f 256;", run + out, scratch);
  EXPECT_EQ(failed.status, 1);
  EXPECT_THAT(failed.err, HasSubstr("velmar-algo run: "));
  EXPECT_THAT(failed.err, HasSubstr("(File too large)"));
  EXPECT_EQ(ReadText(out + "/recording.json"), before);
  EXPECT_TRUE(Leftovers(out).empty());
}

TEST(RecordingSafety, AnInterruptedRunLeavesNoFolderThatLooksComplete) {
  ScratchFolder scratch;
  const std::string out = scratch.Path("drive");
  RunLimited("exec timeout -s KILL 0.5", "simulate --model Marlo128 --frames 50 -o " + out,
             scratch);
  EXPECT_FALSE(fs::exists(out));
  for (const fs::path& partial : Leftovers(out)) {
    EXPECT_FALSE(fs::exists(partial / "recording.json")) << partial;
  }
}

TEST(RecordingSafety, OutputsReplaceOnlyRecordingsAndNeverTheInput) {
  ScratchFolder scratch;
  const std::string in = scratch.Path("in");
  ASSERT_EQ(RunCli(Simulate("ZephelT", in), scratch).status, 0);
  const std::string index = ReadText(in + "/recording.json");
  clitest::WriteText(scratch.Path("c.json"), test::ConfigJson(""));
  const std::string run = "run --model ZephelT --config " + scratch.Path("c.json") + " " + in + " ";
  for (const std::string& output : {in, in + "/", scratch.Path(""), scratch.Path("in/..")}) {
    const clitest::CommandResult result = RunCli(run + output, scratch);
    EXPECT_NE(result.status, 0) << output;
    EXPECT_THAT(result.err, HasSubstr("output folder is the input recording or holds it"));
  }
  EXPECT_EQ(ReadText(in + "/recording.json"), index);

  // A folder holding something else is left alone; a previous recording is replaced whole.
  const std::string other = scratch.Path("other");
  fs::create_directory(other);
  clitest::WriteText(other + "/notes.txt", "keep");
  const clitest::CommandResult refused = RunCli(Simulate("ZephelT", other), scratch);
  EXPECT_NE(refused.status, 0);
  EXPECT_THAT(refused.err, HasSubstr("exists and is not a recording folder"));
  EXPECT_EQ(ReadText(other + "/notes.txt"), "keep");
  const std::string previous = scratch.Path("previous");
  ASSERT_EQ(RunCli(Simulate("Marlo128", previous), scratch).status, 0);
  ASSERT_EQ(RunCli(run + previous, scratch).status, 0);
  EXPECT_EQ(sim::RecordingReader(previous).Info().model, "ZephelT");
  EXPECT_TRUE(Leftovers(previous).empty());
}

// recording.json is parsed without recursion: 100,000 levels of nesting are a clean error on a
// thread with a 256 KiB stack, not a stack overflow.
TEST(RecordingSafety, ADeeplyNestedIndexIsRefusedOnASmallStack) {
  ScratchFolder scratch;
  clitest::WriteText(scratch.Path("recording.json"), std::string(100000, '['));
  std::string error;
  ASSERT_TRUE(test::OnSmallStack([&] {
    try {
      sim::RecordingReader{scratch.Path()};
    } catch (const sim::RecordingError& e) {
      error = e.what();
    }
  }));
  EXPECT_THAT(error, HasSubstr("invalid JSON"));
}

}  // namespace
}  // namespace velmar
