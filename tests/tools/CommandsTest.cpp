// velmar-algo simulate, run, eval, render and info end to end: on simulated drives, on hand-built
// recordings whose outcome is known, and on every kind of bad input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "EvalReport.h"
#include "sim/Recording.h"

namespace velmar {
namespace clitest {
namespace {

using sim::TruthKind;
using test::SameBytes;

// The rain rule (id 4) and the underground rule (id 5), whose outcomes are fixed by their
// thresholds: returns nearer than 6 m with a weak echo go, and returns below -0.87 m.
const std::string kRain = test::EntryJson(
    4, "rain", R"({"validDistance": 6, "reflectionThreshold": 40, "intensityThreshold": 299})");
const std::string kUnder = test::EntryJson(5, "under", R"({"filter_ground_height": 0.87})");

TEST(SimulateTest, WritesTheSimulatorsFramesForEachModelFamily) {
  ScratchFolder scratch;
  const std::string out = scratch.Path("drive");
  for (const char* model : {"Marlo128", "ZephelB2/B3/MP", "ZephelT"}) {
    const CommandResult run = RunCli(std::string("simulate --model ") + model +
                                         " --scene city --rain 0.3 --frames 2 --seed 1 -o " + out,
                                     scratch);
    ASSERT_EQ(run.status, 0) << run.err;
    sim::RecordingReader reader(out);
    EXPECT_EQ(reader.Info().model, model);
    EXPECT_EQ(LidarTypeToStr(static_cast<int>(reader.Info().lidarType)), model);
    EXPECT_EQ(reader.Info().noise[sim::NoiseKind::kRain], 0.3);
    EXPECT_EQ(reader.Info().seed, 1u);
    ASSERT_EQ(reader.FrameCount(), 2u);
    std::vector<_ori_point> frame;
    reader.ReadFrame(1, frame);
    sim::SimulationSettings s = Settings(model, "city", 1);
    s.frames = 2;
    s.noise[sim::NoiseKind::kRain] = 0.3;
    EXPECT_TRUE(SameBytes(frame, Generate(s, 1)));
    std::filesystem::remove_all(out);
  }
}

TEST(SimulateTest, RefusesBadArgumentsWithoutWritingAndHelpListsTheChoices) {
  ScratchFolder scratch;
  const std::string out = scratch.Path("never");
  for (const char* arguments : {"simulate --model Marlo999 -o ", "simulate --rain 1.5 -o ",
                                "simulate --scene moon -o ", "simulate --frames -3 -o "}) {
    EXPECT_NE(RunCli(arguments + out, scratch).status, 0) << arguments;
    EXPECT_FALSE(std::filesystem::exists(out)) << arguments;
  }
  EXPECT_NE(RunCli("simulate --frames 1", scratch).status, 0);  // no output folder
  EXPECT_NE(RunCli("", scratch).status, 0);                     // no subcommand
  const CommandResult help = RunCli("simulate --help", scratch);
  EXPECT_EQ(help.status, 0);
  for (const sim::SensorModel& m : sim::SensorModels()) {
    EXPECT_THAT(help.out + help.err, ::testing::HasSubstr(m.name));
  }
  for (const sim::SceneInfo& scene : sim::SceneNames()) {
    EXPECT_THAT(help.out + help.err, ::testing::HasSubstr(std::string(scene.name) + ": "));
  }
  for (const sim::NoiseKindInfo& n : sim::NoiseKinds()) {
    EXPECT_THAT(help.out + help.err, ::testing::HasSubstr(std::string("--") + n.name));
  }
}

// A simulated drive run whole and in packets: every frame comes back, each slot changed at most
// by a zeroed range, the summary counts the removals, and with per-point rules the packets a
// host assembles are the whole frames' result.
TEST(RunTest, KeepsEveryFrameAndSlotAndAccountsForEveryReturn) {
  ScratchFolder scratch;
  const std::string drive = scratch.Path("drive");
  CommandResult made = RunCli(
      "simulate --model Marlo128 --scene city --rain 0.2 --frames 2 --seed 3 -o " + drive, scratch);
  ASSERT_EQ(made.status, 0) << made.err;
  const std::string config = scratch.Path("rain.json");
  WriteText(config, test::ConfigJson(kRain + "," + kUnder));
  const std::string run_with = "run --model Marlo128 --config " + config + " " + drive + " ";
  CommandResult run = RunCli(run_with + scratch.Path("out"), scratch);
  ASSERT_EQ(run.status, 0) << run.err;
  CommandResult packets = RunCli(run_with + scratch.Path("packets") + " --packet 128", scratch);
  ASSERT_EQ(packets.status, 0) << packets.err;
  std::vector<std::vector<_ori_point>> in = ReadRecording(drive);
  std::vector<std::vector<_ori_point>> out = ReadRecording(scratch.Path("out"));
  ASSERT_EQ(out.size(), in.size());
  uint64_t removed = 0;
  for (std::size_t f = 0; f < in.size(); ++f) {
    ASSERT_EQ(out[f].size(), in[f].size());
    for (std::size_t i = 0; i < in[f].size(); ++i) {
      _ori_point expected = in[f][i];
      expected.distance = out[f][i].distance;
      ASSERT_TRUE(SameBytes({expected}, {out[f][i]})) << "frame " << f << " point " << i;
      ASSERT_TRUE(out[f][i].distance == in[f][i].distance || out[f][i].distance == 0.0);
      removed += (in[f][i].distance != 0.0 && out[f][i].distance == 0.0) ? 1 : 0;
    }
  }
  EXPECT_GT(removed, 0u);
  EXPECT_NE(run.out.find("removed          " + std::to_string(removed) + " returns"),
            std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("frames           2"), std::string::npos);
  EXPECT_NE(run.out.find("[algo]: rain is added!"), std::string::npos);  // library messages shown
  const std::vector<std::vector<_ori_point>> assembled = ReadRecording(scratch.Path("packets"));
  ASSERT_EQ(assembled.size(), out.size());
  for (std::size_t f = 0; f < out.size(); ++f) {
    EXPECT_TRUE(SameBytes(assembled[f], out[f])) << "frame " << f;
  }
}

// One frame whose outcome under the rain rule (returns nearer than 6 m with a weak echo go) and
// the underground rule (returns below -0.87 m go) is known point by point.
std::vector<_ori_point> KnownFrame() {
  return {TruthPoint(TruthKind::kRain, 2.0, 5.0),            // echo 1.5: removed by rain
          TruthPoint(TruthKind::kRain, 3.0, 10.0),           // echo 4.5: removed by rain
          TruthPoint(TruthKind::kRain, 5.0, 60.0),           // echo 45: strong, kept
          TruthPoint(TruthKind::kFog, 1.0, 2.0),             // removed by rain
          TruthPoint(TruthKind::kReal, 20.0, 30.0),          // kept
          TruthPoint(TruthKind::kReal, 5.5, 80.0),           // near but strong: kept
          TruthPoint(TruthKind::kGround, 12.0, 30.0, -1.2),  // below ground: wrongly removed
          TruthPoint(TruthKind::kGround, 12.0, 30.0, -0.5),  // kept
          TruthPoint(TruthKind::kNoReturn, 0.0, 0.0)};
}

TEST(EvalTest, FiguresOfAHandBuiltRecordingMatchTheKnownOutcome) {
  ScratchFolder scratch;
  WriteRecording(scratch.Path("known"), "Marlo128", {KnownFrame(), KnownFrame()});
  WriteText(scratch.Path("c.json"), test::ConfigJson(kUnder + "," + kRain));
  tools::EvalOptions options;
  options.model = "Marlo128";
  options.config = scratch.Path("c.json");
  options.input = scratch.Path("known");
  tools::EvalReport report = tools::Evaluate(options);

  using C = std::vector<uint64_t>;
  EXPECT_EQ(report.frames, 2u);
  ASSERT_EQ(report.stages.size(), 2u);
  EXPECT_EQ(report.stages[0].id, 4u);  // pipeline order, whatever the file's order
  EXPECT_EQ(report.stages[1].id, 5u);
  const tools::OutcomeTally& rain = report.stages[0].tally;
  EXPECT_EQ(Counts(rain, TruthKind::kRain), (C{6, 4, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(rain, TruthKind::kFog), (C{2, 2, 0, 0, 0, 0}));
  EXPECT_EQ(rain.Surface().removed, 0u);
  EXPECT_EQ(Counts(report.stages[1].tally, TruthKind::kGround), (C{4, 2, 0, 0, 0, 0}));
  EXPECT_EQ(report.stages[1].tally.Noise().removed, 0u);
  const tools::OutcomeTally& all = report.pipeline;
  EXPECT_EQ(Counts(all, TruthKind::kRain), (C{6, 4, 0, 0, 0, 0}));
  EXPECT_EQ(Counts(all, TruthKind::kReal), (C{4, 0, 0, 0, 0, 0}));
  EXPECT_EQ(all.Noise().removed, 6u);
  EXPECT_DOUBLE_EQ(tools::NoiseRecall(all.Noise()), 6.0 / 8.0);
  EXPECT_DOUBLE_EQ(tools::RealRemovedShare(all.Surface()), 2.0 / 8.0);

  CommandResult eval = RunCli("eval --model Marlo128 --config " + scratch.Path("c.json") +
                                  " --packet 4 --json " + scratch.Path("e.json") + " --plot " +
                                  scratch.Path("e.png") + " " + scratch.Path("known"),
                              scratch);
  ASSERT_EQ(eval.status, 0) << eval.err;
  EXPECT_NE(eval.out.find("noise removal recall 75.00%, real returns wrongly removed 25.000%"),
            std::string::npos)
      << eval.out;
  rapidjson::Document json;
  json.Parse(ReadText(scratch.Path("e.json")).c_str());
  ASSERT_FALSE(json.HasParseError());
  EXPECT_EQ(json["algorithms"][0]["by_class"]["rain"]["removed"].GetUint64(), 4u);
  EXPECT_EQ(json["pipeline"]["by_class"]["ground"]["returns"].GetUint64(), 4u);
  EXPECT_DOUBLE_EQ(json["pipeline"]["noise_recall"].GetDouble(), 0.75);
  EXPECT_GT(ReadPngSize(scratch.Path("e.png")).width, 0u);
}

TEST(RenderTest, WritesAPngOfTheRequestedSizeWithAndWithoutAPipeline) {
  ScratchFolder scratch;
  WriteRecording(scratch.Path("known"), "Marlo128", {KnownFrame(), KnownFrame(), {}});
  WriteText(scratch.Path("c.json"), test::ConfigJson(kRain));
  CommandResult truth = RunCli("render " + scratch.Path("known") + " --frame 1 --width 320 " +
                                   "--height 200 -o " + scratch.Path("truth.png"),
                               scratch);
  ASSERT_EQ(truth.status, 0) << truth.err;
  PngSize size = ReadPngSize(scratch.Path("truth.png"));
  EXPECT_EQ(size.width, 320u);
  EXPECT_EQ(size.height, 200u);
  CommandResult outcome =
      RunCli("render " + scratch.Path("known") + " --frame 2 --config " + scratch.Path("c.json") +
                 " --width 641 --height 333 -o " + scratch.Path("outcome.png"),
             scratch);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  size = ReadPngSize(scratch.Path("outcome.png"));
  EXPECT_EQ(size.width, 641u);
  EXPECT_EQ(size.height, 333u);
}

TEST(InfoTest, PrintsMetadataAndCountsPerFrame) {
  ScratchFolder scratch;
  std::vector<_ori_point> marked = KnownFrame();
  marked.back().mark = 1;
  WriteRecording(scratch.Path("known"), "ZephelT", {KnownFrame(), marked});
  CommandResult info = RunCli("info " + scratch.Path("known"), scratch);
  ASSERT_EQ(info.status, 0) << info.err;
  EXPECT_NE(info.out.find("model            ZephelT (type 20)"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("     0         9         8      0"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("     1         9         8      1"), std::string::npos) << info.out;
}

struct ErrorCase {
  const char* arguments;  // KNOWN and CONFIG stand for a good recording and configuration
  int status;
  const char* message;
};

class ErrorPathTest : public ::testing::TestWithParam<ErrorCase> {};

std::string Substitute(std::string text, const std::string& key, const std::string& value) {
  for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at)) {
    text.replace(at, key.size(), value);
    at += value.size();
  }
  return text;
}

TEST_P(ErrorPathTest, GivesOneClearLineAndAFailingStatus) {
  ScratchFolder scratch;
  WriteRecording(scratch.Path("known"), "Marlo128", {KnownFrame()});
  WriteText(scratch.Path("good.json"), test::ConfigJson(kRain));
  WriteText(scratch.Path("old.json"), "{\"version\": \"2.0.5\", \"algo_list\": []}");
  WriteText(scratch.Path("broken.json"), "{\"version\": ");
  std::string arguments = Substitute(GetParam().arguments, "DIR", scratch.Path(""));
  CommandResult result = RunCli(arguments, scratch);
  EXPECT_EQ(result.status, GetParam().status) << result.err;
  std::string expected = Substitute(GetParam().message, "DIR", scratch.Path(""));
  EXPECT_NE(result.err.find(expected), std::string::npos) << result.err;
  ASSERT_FALSE(result.err.empty());
  EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "more than one line: " << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    EveryCommand, ErrorPathTest,
    ::testing::Values(
        ErrorCase{"run --model Marlo128 --config DIRgood.json DIRmissing DIRout", 1,
                  "velmar-algo run: DIRmissing: no such recording folder"},
        ErrorCase{"run --model Marlo129 --config DIRgood.json DIRknown DIRout", 2,
                  "velmar-algo run: unknown model \"Marlo129\" (known: Orvik16, Orvik32"},
        ErrorCase{"run --model ZephelT --config DIRgood.json DIRknown DIRout", 2,
                  "velmar-algo run: DIRknown: recording is of model \"Marlo128\", not \"ZephelT\""},
        ErrorCase{"run --model Marlo128 --config DIRnone.json DIRknown DIRout", 1,
                  "velmar-algo run: DIRnone.json: cannot open configuration file"},
        ErrorCase{"run --model Marlo128 --config DIRold.json DIRknown DIRout", 1,
                  "velmar-algo run: DIRold.json: configuration refused by the library"},
        ErrorCase{"run --model Marlo128 --config DIRbroken.json DIRknown DIRout", 1,
                  "configuration refused by the library"},
        ErrorCase{"run --model Marlo128 --config DIRgood.json DIRknown DIRknown", 1,
                  "velmar-algo run: DIRknown: output folder is the input recording"},
        ErrorCase{"eval --model ZephelT --config DIRgood.json DIRknown", 2,
                  "velmar-algo eval: DIRknown: recording is of model"},
        ErrorCase{"eval --model Marlo128 --config DIRold.json DIRknown", 1,
                  "velmar-algo eval: DIRold.json: configuration refused by the library"},
        ErrorCase{"eval --model Marlo128 --config DIRgood.json --json DIRno/such/e.json DIRknown",
                  1, "velmar-algo eval: DIRno/such/e.json: cannot write file"},
        ErrorCase{"render DIRknown --frame 1 -o DIRr.png", 1,
                  "velmar-algo render: frame 1 is out of range (DIRknown has 1 frames)"},
        ErrorCase{"render DIRknown --frame 0 --config DIRold.json -o DIRr.png", 1,
                  "velmar-algo render: DIRold.json: configuration refused by the library"},
        ErrorCase{"render DIRknown --frame 0 -o DIRno/such/r.png", 1,
                  "velmar-algo render: DIRno/such/r.png: cannot write picture"},
        ErrorCase{"info DIRmissing", 1, "velmar-algo info: DIRmissing: no such recording folder"}));

TEST(ErrorPathTest, AMalformedRecordingNamesTheFileAtFault) {
  ScratchFolder scratch;
  WriteRecording(scratch.Path("known"), "Marlo128", {KnownFrame()});
  WriteText(scratch.Path("known/recording.json"), "{ not json");
  CommandResult result = RunCli("info " + scratch.Path("known"), scratch);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.rfind("velmar-algo info: " + scratch.Path("known/recording.json"), 0), 0u)
      << result.err;
}

}  // namespace
}  // namespace clitest
}  // namespace velmar
