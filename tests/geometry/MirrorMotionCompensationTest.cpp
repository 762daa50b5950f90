#include "geometry/MirrorMotionCompensation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::FacePoint;
using test::MakeAlgo;

constexpr int kId = 6;
constexpr double kY = 2.0;  // the y of every FacePoint
// 36 km/h gives a face step of 1/3 m, held in single precision.
constexpr double kStep36 = static_cast<double>(1.0f / 3.0f);
constexpr double kDoubleStep36 = static_cast<double>(2.0f / 3.0f);

std::vector<_ori_point> AllFacesAndEchoes() {
  std::vector<_ori_point> frame;
  for (uint32_t echo = 0; echo < 3; ++echo) {
    for (uint32_t mirror = 0; mirror < 4; ++mirror) {
      frame.push_back(FacePoint(5.0, mirror, echo));
    }
  }
  return frame;
}

double ShiftOf(const std::vector<_ori_point>& frame, uint32_t mirror, uint32_t echo) {
  return frame[echo * 4 + mirror].y - kY;
}

TEST(MirrorMotionCompensation, TableModelShiftsByFaceWhateverTheEcho) {
  std::vector<_ori_point> frame = AllFacesAndEchoes();
  MakeAlgo(kId, LIDAR_MARLO192, R"({"speed": 36})")->Process(frame);
  for (uint32_t echo = 0; echo < 3; ++echo) {
    EXPECT_EQ(ShiftOf(frame, 0, echo), 0.0);
    EXPECT_EQ(frame[echo * 4 + 1].y, kY + kStep36);
    EXPECT_EQ(frame[echo * 4 + 2].y, kY + kDoubleStep36);
    EXPECT_EQ(ShiftOf(frame, 3, echo), 0.0);  // no such face
    EXPECT_EQ(frame[echo * 4 + 1].x, 1.0);
    EXPECT_EQ(frame[echo * 4 + 1].distance, 5.0);
  }
}

TEST(MirrorMotionCompensation, BriselShiftsByFaceAndEcho) {
  std::vector<_ori_point> frame = AllFacesAndEchoes();
  frame[0].y = -0.0;  // face 0, echo 0 is the reference: not even 0 is added
  MakeAlgo(kId, LIDAR_BRISEL, R"({"speed": 36})")->Process(frame);
  EXPECT_TRUE(std::signbit(frame[0].y));
  EXPECT_EQ(frame[1].y, kY + kStep36);        // face 1, echo 0
  EXPECT_EQ(frame[4].y, kY + kStep36);        // face 0, echo 1
  EXPECT_EQ(frame[2].y, kY + kDoubleStep36);  // face 2, echo 0
  EXPECT_EQ(frame[5].y, kY + kDoubleStep36);  // face 1, echo 1
  EXPECT_EQ(ShiftOf(frame, 2, 1), 0.0);
  EXPECT_EQ(ShiftOf(frame, 3, 0), 0.0);
  EXPECT_EQ(ShiftOf(frame, 0, 2), 0.0);
  EXPECT_EQ(ShiftOf(frame, 1, 2), 0.0);
}

TEST(MirrorMotionCompensation, SpeedMessages) {
  std::string output;
  auto algo =
      test::MakeAlgoAs<MirrorMotionCompensation>(kId, LIDAR_MARLO192, R"({"speed": -1})", &output);
  EXPECT_EQ(output, "[algo]:MirrorMotionCompensation param is invalid!\n");
  EXPECT_EQ(algo->speed, 0);
  std::vector<_ori_point> frame = AllFacesAndEchoes();
  const std::vector<_ori_point> before = frame;
  algo->Process(frame);
  EXPECT_TRUE(test::SameBytes(frame, before));

  algo = test::MakeAlgoAs<MirrorMotionCompensation>(kId, LIDAR_MARLO192, R"({})", &output);
  EXPECT_EQ(output, "[algo]:MirrorMotionCompensation param is invalid!\n");

  algo =
      test::MakeAlgoAs<MirrorMotionCompensation>(kId, LIDAR_MARLO192, R"({"speed": 0})", &output);
  EXPECT_EQ(output, "");
  algo = test::MakeAlgoAs<MirrorMotionCompensation>(kId, LIDAR_MARLO192, R"({"speed": 72.9})");
  EXPECT_EQ(algo->speed, 72);
  algo = test::MakeAlgoAs<MirrorMotionCompensation>(kId, LIDAR_MARLO192, R"({"speed": 1e12})");
  EXPECT_EQ(algo->speed, std::numeric_limits<int32_t>::max());
}

TEST(MirrorMotionCompensation, SupportedModels) {
  auto algo = MakeAlgo(kId, LIDAR_MARLO192);
  for (const char* model : {"Marlo192", "QuillA2", "Orvik32", "QuillA1", "Brisel"}) {
    EXPECT_TRUE(algo->IsSupported(model)) << model;
  }
  EXPECT_FALSE(algo->IsSupported("Marlo128"));
  EXPECT_FALSE(algo->IsSupported("QuillA3"));
}

}  // namespace
}  // namespace velmar
