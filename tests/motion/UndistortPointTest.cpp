#include "motion/UndistortPoint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "framework/AlgoCommon.h"
#include "motion/MotionFrames.h"
#include "motion/UndistortPoint2.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::Return;
using test::Revolution;
using test::RunOnce;
using test::RunUnchanged;

constexpr double kGridStart = kSweepGridFirstAngle;
constexpr double kGridEnd = kSweepGridFirstAngle + kSweepGridColumns * kSweepGridColumnStep;

// Returns at `angles` on `channel`, one per face, all at `range`.
std::vector<_ori_point> StillScene(std::initializer_list<double> angles, uint32_t channel,
                                   double range) {
  std::vector<_ori_point> cells;
  for (const double angle : angles) {
    for (uint32_t mirror = 0; mirror < 3; ++mirror) {
      cells.push_back(Return(angle, channel, mirror, mirror == 0 ? 1 : 0, range));
    }
  }
  return cells;
}

void ExpectMovedTo(const _ori_point& p, double range, double measured) {
  EXPECT_NEAR(test::Norm(p), range, 1e-9);
  EXPECT_NEAR(p.x / range, test::kDirX, 1e-12);
  EXPECT_NEAR(p.z / range, test::kDirZ, 1e-12);
  EXPECT_EQ(p.distance, measured);
}

TEST(UndistortPointTest, ZephelCorrectsMovingFacesOnlyAfterTheWarmUp) {
  const LidarType type = LIDAR_QUILL_A4;
  auto algo = MakeAlgoAs<UndistortPoint>(1, type, R"({"debug_using_echo": 7})");
  const auto moved = std::vector<_ori_point>{
      Return(50.0, 5, 0, 0, 5.0),  Return(50.0, 5, 1, 0, 6.0), Return(50.0, 5, 2, 0, 7.0),
      Return(60.0, 5, 0, 0, 10.0), Return(60.0, 5, 1, 0, 4.0), Return(70.0, 5, 0, 0, 2.0),
      Return(70.0, 5, 1, 0, 6.0),  Return(80.0, 5, 1, 0, 10.0)};
  ASSERT_TRUE(RunUnchanged(*algo, type, StillScene({50.0, 60.0, 70.0, 80.0}, 5, 10.0), 10));
  ASSERT_TRUE(RunUnchanged(*algo, type, moved, 1));  // the eleventh push is still warm-up
  const std::vector<_ori_point> input = Revolution(type, moved);
  std::vector<_ori_point> out = input;
  algo->Process(out);
  ASSERT_EQ(out.size(), input.size());
  EXPECT_TRUE(test::SameBytes({out[1]}, {input[1]}));  // the reference itself stays
  ExpectMovedTo(out[2], 5.0, 6.0);
  ExpectMovedTo(out[3], 5.0, 7.0);
  EXPECT_EQ(out[2].label, 7);
  EXPECT_EQ(out[5].distance, 0.0);  // moving, and its base face is static: no reference
  // A reference nearer than the blind zone is not trusted: the point is only labelled.
  EXPECT_EQ(out[7].label, 6);
  out[7].label = input[7].label;
  out[5].distance = input[5].distance;
  EXPECT_TRUE(test::SameBytes({out[4], out[5], out[6], out[7], out[8]},
                              {input[4], input[5], input[6], input[7], input[8]}));
}

TEST(UndistortPointTest, RemovalAndAgreementLimitsAreStrict) {
  const LidarType type = LIDAR_ZEPHEL_B2_B3_MP;
  auto algo = MakeAlgoAs<UndistortPoint>(1, type, R"({"dis_redund_thred": 8, "r_thred": 0.25})");
  ASSERT_TRUE(RunUnchanged(*algo, type, StillScene({50.0, 60.0, 70.0, 80.0}, 9, 5.0), 11));
  const auto out = RunOnce(*algo, type,
                           {Return(50.0, 9, 1, 0, 8.0), Return(60.0, 9, 1, 0, 7.99),
                            Return(70.0, 9, 1, 0, 5.25), Return(80.0, 9, 2, 0, 5.24)});
  EXPECT_EQ(out[1].distance, 8.0);
  EXPECT_EQ(out[2].distance, 0.0);
  EXPECT_EQ(out[3].distance, 0.0);  // 0.25 off is not within 0.25
  EXPECT_EQ(out[4].distance, 5.24);
}

TEST(UndistortPointTest, ReturnsOffTheGridAreNeverTouched) {
  const LidarType type = LIDAR_QUILL_A4;
  auto algo = MakeAlgoAs<UndistortPoint>(1, type);
  ASSERT_TRUE(RunUnchanged(*algo, type, {Return(50.0, 5, 0, 1, 10.0)}, 11));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // The first two lie just inside: unseen cells vote "moving", so these returns are removed.
  const std::vector<_ori_point> cells = {Return(kGridStart, 0, 1, 0, 3.0),
                                         Return(kGridEnd - 1e-4, 191, 1, 0, 3.0),
                                         Return(kGridStart - 1e-3, 0, 1, 0, 3.0),
                                         Return(kGridEnd, 0, 1, 0, 3.0),
                                         Return(90.0, 192, 1, 0, 3.0),
                                         Return(nan, 5, 1, 0, 3.0),
                                         Return(90.0, 4000000000u, 1, 0, 3.0),
                                         Return(150.2, 191, 4000000000u, 0, 3.0)};
  const auto out = RunOnce(*algo, type, cells);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    EXPECT_EQ(out[1 + i].distance, i < 2 ? 0.0 : 3.0) << "return " << i;
  }
}

// The range map starts every revolution empty, so a cell that has not been seen for a while
// has no history left to agree with.
TEST(UndistortPointTest, ACellUnseenForTenRevolutionsHasNoHistory) {
  const LidarType type = LIDAR_QUILL_A4;
  auto algo = MakeAlgoAs<UndistortPoint>(1, type);
  ASSERT_TRUE(RunUnchanged(*algo, type, {Return(80.0, 7, 1, 0, 12.0)}, 2));
  ASSERT_TRUE(RunUnchanged(*algo, type, {}, 10));
  EXPECT_EQ(RunOnce(*algo, type, {Return(80.0, 7, 1, 0, 12.0)})[1].distance, 0.0);
}

// Cell A is settled as empty before it ever sees a return; cell B learns its far wall. Later,
// with both histories filled by a nearer object, only B still recognises its wall.
TEST(UndistortPointTest, AnEmptyBackgroundIsFrozen) {
  const LidarType type = LIDAR_QUILL_A4;
  auto algo = MakeAlgoAs<UndistortPoint>(1, type);
  const auto scene = [](double a, double b) {
    return std::vector<_ori_point>{Return(50.0, 5, 1, 0, a), Return(60.0, 5, 1, 0, b)};
  };
  ASSERT_TRUE(RunUnchanged(*algo, type, scene(0.0, 10.0), 12));
  const int32_t a = algo->ComputeGridID(50.0, 5, 1);
  const int32_t b = algo->ComputeGridID(60.0, 5, 1);
  EXPECT_EQ(algo->Background(a), 0.0f);
  EXPECT_EQ(algo->Background(b), 10.0f);
  // The named forms by cell id answer as the returns of a frame are judged.
  EXPECT_TRUE(algo->ShouldKeepPoint(b, 10.0) && algo->IsBackGroundPoint(b, 10.0));
  EXPECT_FALSE(algo->ShouldKeepPoint(b, 12.0) || algo->IsBackGroundPoint(b, 12.0));
  for (int i = 0; i < 20; ++i) {
    RunOnce(*algo, type, scene(i < 10 ? 10.0 : 5.0, i < 10 ? 10.0 : 5.0));
  }
  EXPECT_EQ(algo->Background(a), 0.0f);
  const auto out = RunOnce(*algo, type, scene(10.0, 10.0));
  EXPECT_EQ(out[1].distance, 0.0);
  EXPECT_EQ(out[2].distance, 10.0);
  // Within 0.1 of the wall only before the difference is narrowed to a float.
  EXPECT_EQ(RunOnce(*algo, type, scene(10.0, 10.099999999))[2].distance, 0.0);
  for (int i = 0; i < 10; ++i) {
    RunOnce(*algo, type, scene(0.0, 0.0));
  }
  EXPECT_EQ(algo->Background(b), 10.0f);  // a learned background is not reset to empty
}

// Marlo256 and Marlo128H take a moving non-base return out of the frame and bring it back at
// the end, at the range of its moving base-face partner.
struct MarloPair {
  LidarType type;
  uint32_t stored_channel;  // sub-cell 0
  uint32_t base_channel;    // sub-cell 1 of the same row
};

class UndistortMarloPairTest : public ::testing::TestWithParam<MarloPair> {};

TEST_P(UndistortMarloPairTest, ReemitsTheStoredReturnAtTheEndOfTheFrame) {
  const MarloPair pair = GetParam();
  auto algo =
      MakeAlgoAs<UndistortPoint2>(27, pair.type, R"({"debug_using_echo": 3, "r_thred": 0.01})");
  const std::vector<_ori_point> still = {Return(50.0, pair.stored_channel, 0, 0, 10.0),
                                         Return(50.0, pair.base_channel, 1, 0, 10.0),
                                         Return(60.0, pair.stored_channel, 0, 0, 10.0)};
  ASSERT_TRUE(RunUnchanged(*algo, pair.type, still, 11));
  const auto out = RunOnce(
      *algo, pair.type,
      {Return(50.0, pair.stored_channel, 0, 0, 6.0), Return(50.0, pair.base_channel, 1, 0, 5.0),
       Return(60.0, pair.stored_channel, 0, 0, 10.12)});
  EXPECT_EQ(algo->r_thred, 0.15);
  ASSERT_EQ(out.size(), 6u);
  EXPECT_EQ(out[1].distance, 0.0);
  EXPECT_EQ(out[1].label, 3);
  EXPECT_EQ(out[2].distance, 5.0);
  EXPECT_EQ(out[2].x, test::kDirX * 5.0);
  EXPECT_EQ(out[3].distance, 10.12);  // within the 0.15 these models always use
  EXPECT_EQ(out[5].channel, pair.stored_channel);
  EXPECT_EQ(out[5].label, 3);
  ExpectMovedTo(out[5], 5.0, 6.0);
}

INSTANTIATE_TEST_SUITE_P(Models, UndistortMarloPairTest,
                         ::testing::Values(MarloPair{LIDAR_MARLO256, 132, 131},
                                           MarloPair{LIDAR_MARLO128H, 66, 65}));

TEST(UndistortPointTest, Marlo128BlindFacesAndLimits) {
  const LidarType type = LIDAR_MARLO128;
  auto algo = MakeAlgoAs<UndistortPoint2>(27, type, R"({"debug_using_echo": 3, "r_thred": 0.01})");
  const auto angles = {50.0, 60.0, 70.0, 80.0, 90.0, 100.0, 110.0, 120.0, 130.0};
  ASSERT_TRUE(RunUnchanged(*algo, type, StillScene(angles, 65, 10.0), 11));
  const std::vector<_ori_point> moved = {
      Return(50.0, 65, 0, 1, 5.0),    Return(50.0, 65, 2, 1, 6.0),   // blind, compensated
      Return(60.0, 65, 0, 1, 5.0),    Return(60.0, 65, 2, 1, 1.9),   // blind, too near
      Return(70.0, 65, 2, 1, 2.0),                                   // blind, kept unreferenced
      Return(80.0, 65, 2, 1, 2.1),                                   // blind, removed
      Return(90.0, 65, 1, 1, 1.9),                                   // not blind, removed
      Return(100.0, 65, 2, 0, 5.0),   Return(100.0, 65, 1, 0, 6.0),  // blind pair of echo 0
      Return(110.0, 65, 1, 1, 10.12), Return(120.0, 65, 1, 1, 50.0),
      Return(130.0, 65, 0, 1, 5.0),   Return(130.0, 65, 2, 1, 2.0)};  // blind, just near enough
  const auto out = RunOnce(*algo, type, moved);
  ExpectMovedTo(out[2], 5.0, 6.0);
  EXPECT_EQ(out[4].label, 2);
  EXPECT_EQ(out[4].distance, 1.9);
  EXPECT_EQ(out[5].distance, 2.0);
  EXPECT_EQ(out[6].distance, 0.0);
  EXPECT_EQ(out[7].distance, 0.0);
  ExpectMovedTo(out[9], 5.0, 6.0);
  EXPECT_EQ(out[10].distance, 0.0);  // Marlo128 keeps the configured 0.01
  EXPECT_EQ(out[11].distance, 50.0);
  ExpectMovedTo(out[13], 5.0, 2.0);
  EXPECT_EQ(algo->r_thred, 0.01);
}

TEST(UndistortPointTest, MarloChannelTables) {
  auto m256 = MakeAlgoAs<UndistortPoint2>(27, LIDAR_MARLO256);
  auto m128h = MakeAlgoAs<UndistortPoint2>(27, LIDAR_MARLO128H);
  auto m128 = MakeAlgoAs<UndistortPoint2>(27, LIDAR_MARLO128);
  const int32_t last_row = kSweepGridColumns * 31;
  const double second_column = kGridStart + 1.2 * kSweepGridColumnStep;
  EXPECT_EQ(m256->ComputeGridIDMarlo128H(kGridStart, 131, 0), 1);
  EXPECT_EQ(m256->ComputeGridIDMarlo128H(kGridStart, 125, 0), last_row * 4 + 3);
  for (const uint32_t off : {0u, 3u, 128u, 129u, 257u}) {
    EXPECT_EQ(m256->ComputeGridIDMarlo128H(kGridStart, off, 0), -1) << off;
  }
  EXPECT_EQ(m128h->ComputeGridIDMarlo128H(second_column, 128, 2), 4 + last_row * 4);
  EXPECT_EQ(m128h->ComputeGridIDMarlo128H(kGridStart, 129, 0), -1);
  EXPECT_EQ(m128->ComputeGridIDMarlo128H(kGridStart, 64, 2), last_row * 6 + 5);
  EXPECT_EQ(m128->ComputeGridIDMarlo128H(kGridStart, 65, 2), 2);
}

// Only the frame's last point decides whether it closes a revolution, and a revolution pushes
// the history once however many frames close it.
TEST(UndistortPointTest, HistoryIsPushedOncePerRevolution) {
  auto zephel = MakeAlgoAs<UndistortPoint>(1, LIDAR_QUILL_A4);
  auto marlo = MakeAlgoAs<UndistortPoint2>(27, LIDAR_MARLO128);
  const _ori_point opener = Return(10.0, 0, 0, 0, 1.0);
  const _ori_point closer = Return(151.0, 0, 2, 0, 1.0);
  std::vector<std::vector<_ori_point>> frames = {
      {}, {closer}, {closer}, {opener, closer, Return(90.0, 3, 2, 0, 1.0)}, {opener, closer}};
  for (auto& frame : frames) {
    zephel->Process(frame);
  }
  EXPECT_EQ(zephel->Grid().FramesSeen(), 2);
  std::vector<_ori_point> marked = {Return(90.0, 3, 2, 0, 1.0)};
  marked[0].mark = 1;
  marlo->Process(marked);
  marlo->Process(marked);
  EXPECT_EQ(marlo->Grid().FramesSeen(), 1);
}

}  // namespace
}  // namespace velmar
