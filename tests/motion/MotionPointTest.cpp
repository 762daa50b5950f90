// The moving point flagger, and the motion algorithms assembled from a configuration.
#include "motion/MotionPoint.h"

#include <gtest/gtest.h>

#include "framework/AlgoCommon.h"
#include "motion/MotionFrames.h"

namespace velmar {
namespace {

using test::EntryJson;
using test::MakeAlgoAs;
using test::Return;
using test::Revolution;
using test::RunOnce;
using test::RunUnchanged;

constexpr LidarType kType = LIDAR_QUILL_A4;

TEST(MotionPointTest, FlagsExactlyTheMovingReturnsAfterTheWarmUp) {
  auto algo = MakeAlgoAs<MotionPoint>(21, kType);
  const std::vector<_ori_point> still = {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 10.0),
                                         Return(60.0, 5, 0, 0, 10.0)};
  const std::vector<_ori_point> moved = {Return(50.0, 5, 0, 0, 10.0),
                                         Return(50.0, 5, 1, 0, 6.0),
                                         Return(60.0, 5, 0, 0, 0.0),
                                         Return(70.0, 5, 2, 0, 8.0),
                                         Return(kSweepGridFirstAngle - 0.1, 5, 1, 0, 3.0),
                                         Return(90.0, 192, 1, 0, 3.0)};
  ASSERT_TRUE(RunUnchanged(*algo, kType, still, 10));
  ASSERT_TRUE(RunUnchanged(*algo, kType, moved, 1));
  std::vector<_ori_point> expected = Revolution(kType, moved);
  for (const std::size_t i : {2, 3, 4}) {
    expected[i].motion_flag = 1.0;
  }
  EXPECT_TRUE(test::SameBytes(RunOnce(*algo, kType, moved), expected));
}

// Unlike the undistortion, the flagger's range map is never cleared: a cell seen once keeps
// voting with that range in every later revolution.
TEST(MotionPointTest, ACellKeepsItsLastRangeAcrossRevolutions) {
  auto algo = MakeAlgoAs<MotionPoint>(21, kType);
  ASSERT_TRUE(RunUnchanged(*algo, kType, {Return(80.0, 7, 1, 0, 12.0)}, 1));
  ASSERT_TRUE(RunUnchanged(*algo, kType, {}, 11));
  const int32_t id = algo->ComputeGridID(80.0, 7, 1);  // the vote by id is the frame's vote
  EXPECT_TRUE(algo->ShouldKeepPoint(id, 12.0));
  EXPECT_FALSE(algo->ShouldKeepPoint(id, 12.5));
  EXPECT_EQ(RunOnce(*algo, kType, {Return(80.0, 7, 1, 0, 12.0)})[1].motion_flag, 0.0);
  EXPECT_EQ(RunOnce(*algo, kType, {Return(80.0, 7, 1, 0, 12.5)})[1].motion_flag, 1.0);
}

TEST(MotionPointTest, PushesOncePerRevolution) {
  auto algo = MakeAlgoAs<MotionPoint>(21, kType);
  std::vector<_ori_point> frame = {Return(151.0, 0, 2, 0, 1.0), Return(160.0, 0, 2, 0, 1.0),
                                   Return(151.0, 3, 1, 0, 1.0)};
  algo->Process(frame);
  EXPECT_EQ(algo->Grid().FramesSeen(), 1);
  frame = {Return(151.0, 0, 2, 0, 1.0), Return(10.0, 0, 0, 0, 1.0), Return(152.0, 0, 2, 0, 1.0)};
  algo->Process(frame);
  EXPECT_EQ(algo->Grid().FramesSeen(), 2);
}

// The flagger and the undistortion take the Zephel models; the wide undistortion the Marlo
// models besides. On QuillA4 a moving return is removed by the undistortion and then flagged: an
// empty return where the history saw a surface.
TEST(MotionPipelineTest, EachModelGetsItsAlgorithmsAndAMovingReturnIsBothRemovedAndFlagged) {
  const std::string config = test::ConfigJson(EntryJson(21, "flag") + "," + EntryJson(27, "wide") +
                                              "," + EntryJson(1, "undistort"));
  const std::string all =
      "[algo]: flag is added!\n[algo]: wide is added!\n"
      "[algo]: undistort is added!\n";
  const std::string wide = "[algo]: wide is added!\n";
  const std::pair<LidarType, std::string> models[] = {
      {LIDAR_ZEPHEL_B2_B3_MP, all}, {LIDAR_MARLO128, wide}, {LIDAR_MARLO128H, wide},
      {LIDAR_MARLO256, wide},       {LIDAR_MARLO128F, ""},  {LIDAR_QUILL_A4, all}};
  std::string output;
  for (const auto& [type, added] : models) {
    test::CreatePipeline(type, config, &output);
    EXPECT_EQ(output, added) << type;
  }
  auto pipeline = test::CreatePipeline(LIDAR_QUILL_A4, config);
  for (int i = 0; i < test::kWarmUpRevolutions; ++i) {
    std::vector<_ori_point> frame = test::Revolution(
        LIDAR_QUILL_A4, {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 10.0)});
    pipeline->Process(frame);
  }
  std::vector<_ori_point> frame = Revolution(LIDAR_QUILL_A4, {Return(50.0, 5, 1, 0, 4.0)});
  pipeline->Process(frame);
  EXPECT_EQ(frame[1].distance, 0.0);
  EXPECT_EQ(frame[1].motion_flag, 1.0);
}

}  // namespace
}  // namespace velmar
