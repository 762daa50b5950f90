// The frames and scores of peers_bench: a wrong class or a shifted point here would silently
// change every figure of the comparison with PCL and Open3D.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "PeerFrame.h"
#include "Scores.h"
#include "sim/Truth.h"

namespace velmar {
namespace peers {
namespace {

// ctest runs every test as its own process, several at once: a file name shared by two tests
// would let one truncate what the other is reading.
std::string TempPath(const std::string& name) {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  return testing::TempDir() + "peer_frame_" + test->name() + "_" + name;
}

template <typename T>
std::string WriteFile(const std::string& name, const std::vector<T>& values) {
  const std::string path = TempPath(name);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(values.data()),
             static_cast<std::streamsize>(values.size() * sizeof(T)));
  return path;
}

TEST(PeerFrame, SemanticLabelsMapToTheScoredClasses) {
  const struct {
    uint32_t label;
    PointClass expected;
  } cases[] = {
      {0, PointClass::kUnscored},
      {110, PointClass::kNoise},
      {40, PointClass::kGround},
      {44, PointClass::kGround},
      {48, PointClass::kGround},
      {49, PointClass::kGround},
      {60, PointClass::kGround},
      {72, PointClass::kGround},
      {111, PointClass::kGround},
      {50, PointClass::kObject},
      {10, PointClass::kObject},
      {70, PointClass::kObject},
      {(7u << 16) | 110, PointClass::kNoise},  // the instance in the high bits is ignored
      {1u << 16, PointClass::kUnscored},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ClassOfSemanticLabel(c.label), c.expected) << "label " << c.label;
  }
}

TEST(PeerFrame, ReadsKittiPointsAndLabels) {
  const std::string bin = WriteFile<float>("two.bin", {1.f, 2.f, 3.f, 0.5f, -4.f, 5.f, -6.f, 0.f});
  const PeerFrame plain = ReadKittiFrame(bin);
  ASSERT_EQ(plain.points.size(), 2u);
  EXPECT_EQ(plain.points[1], Eigen::Vector3f(-4.f, 5.f, -6.f));
  EXPECT_EQ(plain.classes, std::vector<PointClass>(2, PointClass::kUnscored));
  EXPECT_TRUE(plain.kinds.empty());

  const PeerFrame labelled =
      ReadLabelledKittiFrame(bin, WriteFile<uint32_t>("two.label", {110, 40}));
  EXPECT_EQ(labelled.classes, (std::vector<PointClass>{PointClass::kNoise, PointClass::kGround}));
}

TEST(PeerFrame, RefusesFilesThatDoNotHoldWholePoints) {
  const std::string bin = WriteFile<float>("two.bin", {1.f, 2.f, 3.f, 0.f, 4.f, 5.f, 6.f, 0.f});
  EXPECT_THROW(ReadKittiFrame(WriteFile<float>("short.bin", {1.f, 2.f, 3.f})), FrameError);
  EXPECT_THROW(ReadKittiFrame(TempPath("missing.bin")), FrameError);
  EXPECT_THROW(ReadLabelledKittiFrame(bin, WriteFile<uint32_t>("one.label", {110})), FrameError);
  EXPECT_THROW(ReadLabelledKittiFrame(bin, TempPath("missing.label")), FrameError);
}

TEST(PeerFrame, RecordsGiveTheirReturnsClassedByTruth) {
  std::vector<_ori_point> records(5);
  const sim::TruthKind kinds[] = {sim::TruthKind::kRain, sim::TruthKind::kGround,
                                  sim::TruthKind::kReal, sim::TruthKind::kReal,
                                  sim::TruthKind::kNoReturn};
  for (std::size_t i = 0; i < records.size(); ++i) {
    records[i].x = static_cast<double>(i);
    records[i].distance = 10.0;
    records[i].reserved_a = sim::EncodeTruth(kinds[i], static_cast<uint32_t>(i) * 1000);
  }
  records[3].distance = 0.0;  // removed: not a return
  records[1].distance = std::nan("");
  records[4].distance = 5.0;  // a return without a truth class

  const PeerFrame frame = FrameFromRecords(records);
  ASSERT_EQ(frame.points.size(), 3u);
  EXPECT_EQ(frame.points[1].x(), 2.f);
  EXPECT_EQ(frame.classes, (std::vector<PointClass>{PointClass::kNoise, PointClass::kObject,
                                                    PointClass::kUnscored}));
  EXPECT_EQ(frame.kinds, (std::vector<uint8_t>{3, 1, 0}));
}

TEST(PeerScores, RecallPrecisionAndLossesOfTheTargetClass) {
  PeerFrame frame;
  frame.classes = {PointClass::kNoise,  PointClass::kNoise,   PointClass::kNoise,
                   PointClass::kNoise,  PointClass::kGround,  PointClass::kObject,
                   PointClass::kObject, PointClass::kUnscored};
  frame.points.resize(frame.classes.size());
  Tally tally;
  tally.Add(frame, {1, 1, 1, 0, 0, 1, 0, 1});

  const Score noise = ScoreOf(tally, PointClass::kNoise);
  EXPECT_TRUE(noise.labelled);
  EXPECT_DOUBLE_EQ(noise.flaggedShare, 5.0 / 8.0);  // unscored returns count here only
  EXPECT_DOUBLE_EQ(noise.recall, 0.75);
  EXPECT_DOUBLE_EQ(noise.precision, 0.75);
  EXPECT_DOUBLE_EQ(noise.f1, 0.75);
  EXPECT_DOUBLE_EQ(noise.othersFlagged, 1.0 / 3.0);

  const Score ground = ScoreOf(tally, PointClass::kGround);
  EXPECT_DOUBLE_EQ(ground.recall, 0.0);
  EXPECT_DOUBLE_EQ(ground.precision, 0.0);
  EXPECT_DOUBLE_EQ(ground.f1, 0.0);
  EXPECT_DOUBLE_EQ(ground.othersFlagged, 4.0 / 6.0);
}

TEST(PeerScores, UnlabelledFramesGiveOnlyTheFlaggedShare) {
  PeerFrame frame;
  frame.points.resize(4);
  frame.classes.assign(4, PointClass::kUnscored);
  Tally tally;
  tally.Add(frame, {1, 0, 0, 0});
  const Score score = ScoreOf(tally, PointClass::kNoise);
  EXPECT_FALSE(score.labelled);
  EXPECT_DOUBLE_EQ(score.flaggedShare, 0.25);
  EXPECT_DOUBLE_EQ(ScoreOf(Tally{}, PointClass::kNoise).flaggedShare, 0.0);
}

TEST(PeerFrame, SharedSnowfallFrameHasTheClassesItsReadmeCounts) {
  const std::string folder = std::string(VELMAR_SHARED_DATA_DIR) + "/wads-sample";
  if (!std::ifstream(folder + "/sample.bin").good()) {
    GTEST_SKIP() << folder << " is absent: the real snowfall frame is not checked";
  }
  const PeerFrame frame = ReadLabelledKittiFrame(folder + "/sample.bin", folder + "/sample.label");
  Tally tally;
  tally.Add(frame, {});
  EXPECT_EQ(tally.all.returns, 115881u);
  EXPECT_EQ(tally[PointClass::kNoise].returns, 14276u);
  EXPECT_EQ(tally[PointClass::kUnscored].returns, 10722u);
  EXPECT_GT(tally[PointClass::kGround].returns, 13943u);  // lying snow and the road classes
}

}  // namespace
}  // namespace peers
}  // namespace velmar
