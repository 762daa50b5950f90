#include "geometry/MirrorMotionCompensation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

// 36 km/h: one face step of 1/3 m, held in single precision. FacePoint's y is 2.
const double kOneStep = 2.0 + static_cast<double>(1.0f / 3.0f);
const double kTwoSteps = 2.0 + static_cast<double>(2.0f / 3.0f);

// Faces 0..3 for echo 0, then for echo 1, then for echo 2.
std::vector<_ori_point> Shifted(LidarType type) {
  std::vector<_ori_point> frame;
  for (uint32_t echo = 0; echo < 3; ++echo) {
    for (uint32_t mirror = 0; mirror < 4; ++mirror) {
      frame.push_back(test::FacePoint(5.0, mirror, echo));
    }
  }
  frame[0].y = -0.0;
  test::MakeAlgo(6, type, R"({"speed": 36})")->Process(frame);
  return frame;
}

TEST(MirrorMotionCompensation, TableModelShiftsByFaceWhateverTheEcho) {
  const std::vector<_ori_point> frame = Shifted(LIDAR_MARLO192);
  const double expected[4] = {2.0, kOneStep, kTwoSteps, 2.0};
  for (std::size_t i = 1; i < frame.size(); ++i) {
    EXPECT_EQ(frame[i].y, expected[i % 4]) << i;
  }
}

TEST(MirrorMotionCompensation, BriselShiftsByFaceAndEcho) {
  const std::vector<_ori_point> frame = Shifted(LIDAR_BRISEL);
  const double expected[12] = {0.0, kOneStep, kTwoSteps, 2.0, kOneStep, kTwoSteps,
                               2.0, 2.0,      2.0,       2.0, 2.0,      2.0};
  for (std::size_t i = 0; i < frame.size(); ++i) {
    EXPECT_EQ(frame[i].y, expected[i]) << i;
  }
  EXPECT_TRUE(std::signbit(frame[0].y));  // the reference face gets not even 0 added
}

TEST(MirrorMotionCompensation, SpeedParameter) {
  std::string output;
  auto algo =
      test::MakeAlgoAs<MirrorMotionCompensation>(6, LIDAR_MARLO192, R"({"speed": -1})", &output);
  EXPECT_EQ(output, "[algo]:MirrorMotionCompensation param is invalid!\n");
  std::vector<_ori_point> frame{test::FacePoint(5.0, 2)};
  algo->Process(frame);
  EXPECT_EQ(frame[0].y, 2.0);
  test::MakeAlgo(6, LIDAR_MARLO192, "{}", &output);
  EXPECT_EQ(output, "[algo]:MirrorMotionCompensation param is invalid!\n");
  EXPECT_EQ(
      test::MakeAlgoAs<MirrorMotionCompensation>(6, LIDAR_BRISEL, R"({"speed": 72.9})")->speed, 72);
  EXPECT_EQ(
      test::MakeAlgoAs<MirrorMotionCompensation>(6, LIDAR_BRISEL, R"({"speed": 1e12})")->speed,
      std::numeric_limits<int32_t>::max());
}

}  // namespace
}  // namespace velmar
