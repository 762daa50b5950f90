#include "motion/MotionPoint.h"

#include <gtest/gtest.h>

#include "motion/MotionFrames.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::Return;
using test::Revolution;
using test::RunOnce;
using test::RunUnchanged;

constexpr LidarType kType = LIDAR_QUILL_A4;

TEST(MotionPoint, FlagsExactlyTheMovingReturnsAfterTheWarmUp) {
  auto algo = MakeAlgoAs<MotionPoint>(21, kType);
  const std::vector<_ori_point> still = {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 10.0),
                                         Return(60.0, 5, 0, 0, 10.0)};
  const std::vector<_ori_point> moved = {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 6.0),
                                         Return(60.0, 5, 0, 0, 0.0),  Return(70.0, 5, 2, 0, 8.0),
                                         Return(29.9, 5, 1, 0, 3.0),  Return(90.0, 192, 1, 0, 3.0)};
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
TEST(MotionPoint, ACellKeepsItsLastRangeAcrossRevolutions) {
  auto algo = MakeAlgoAs<MotionPoint>(21, kType);
  ASSERT_TRUE(RunUnchanged(*algo, kType, {Return(80.0, 7, 1, 0, 12.0)}, 1));
  ASSERT_TRUE(RunUnchanged(*algo, kType, {}, 11));
  EXPECT_EQ(RunOnce(*algo, kType, {Return(80.0, 7, 1, 0, 12.0)})[1].motion_flag, 0.0);
  EXPECT_EQ(RunOnce(*algo, kType, {Return(80.0, 7, 1, 0, 12.5)})[1].motion_flag, 1.0);
}

TEST(MotionPoint, PushesOncePerRevolutionAndParsesItsParameters) {
  auto algo = MakeAlgoAs<MotionPoint>(21, kType, R"({"num_thred": 2.7, "r_thred": 0.3})");
  EXPECT_EQ(algo->num_thred, 2);
  EXPECT_EQ(algo->r_thred, 0.3);
  EXPECT_TRUE(algo->IsSupported("ZephelB2/B3/MP") && !algo->IsSupported("Marlo256"));
  std::vector<_ori_point> frame = {Return(151.0, 0, 2, 0, 1.0), Return(160.0, 0, 2, 0, 1.0),
                                   Return(151.0, 3, 1, 0, 1.0)};
  algo->Process(frame);
  EXPECT_EQ(algo->Grid().FramesSeen(), 1);
  frame = {Return(151.0, 0, 2, 0, 1.0), Return(10.0, 0, 0, 0, 1.0), Return(152.0, 0, 2, 0, 1.0)};
  algo->Process(frame);
  EXPECT_EQ(algo->Grid().FramesSeen(), 2);
}

}  // namespace
}  // namespace velmar
