// The mirror-face corrections (blind zones per face, joints between faces, motion shift per
// face) and how each model assembles them.
#include <gtest/gtest.h>

#include <cmath>

#include "geometry/JointabcProcess.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

// A return on a face, with non-zero measures so that a removal shows.
test::Ret F(double distance, uint32_t mirror, uint32_t echo = 0) {
  return test::Ret(distance).Face(mirror, echo).Pulse(5.0);
}

_ori_point Exempt(_ori_point p) {
  p.aux_flag = 0x80;
  return p;
}

double Below(double edge) {
  return std::nextafter(edge, 0.0);
}

double Above(double edge) {
  return std::nextafter(edge, 1000.0);
}

// Face 0 is near-blind and face 1 far-blind around 3 m; the separation is held as a float, and
// the edges computed from it in double.
TEST(SmallBlindTest, BandEdges) {
  const LidarType s = LIDAR_MARLO256_SMALL_BLIND;
  const char* sep = R"({"separate_mirror_ABC_dist": 2.7})";
  test::ExpectRemovals({{18, s, "{}", F(3.0 - 0.05, 0), false},
                        {18, s, "{}", F(Below(3.0 - 0.05), 0), true},
                        {18, s, "{}", F(3.0 + 0.05, 1), false},
                        {18, s, "{}", F(Above(3.0 + 0.05), 1), true},
                        {18, s, "{}", F(100.0, 0), false},
                        {18, s, "{}", F(0.1, 1), false},
                        {18, s, "{}", F(0.5, 2), false},
                        {18, s, "{}", F(500.0, 3), false},
                        {18, s, sep, F(2.65000002, 0), true},
                        {18, s, sep, F(2.6500001, 0), false}},
                       true);
}

// Marlo128F trusts face 2 near and the others far; Marlo128 picks the near face by echo (face 1
// of any echo but the second, face 2 of the second). Each model has its own separation, held as
// a float: float(2.7) + 0.1 is about 2.80000005.
TEST(SmallBlindMarlo128Test, BandEdgesPerModelFaceAndEcho) {
  const LidarType f = LIDAR_MARLO128F;
  const LidarType m = LIDAR_MARLO128;
  const double near = 2.5 - 0.1;
  const double far = 2.5 + 0.1;
  const char* sep =
      R"({"separate_mirror_ABC_dist_marlo128f": 4, "separate_mirror_ABC_dist_marlo128": 2.7})";
  test::ExpectRemovals(
      {{28, f, "{}", F(far, 2), false},
       {28, f, "{}", F(0.3, 2, 1), false},
       {28, f, "{}", F(Above(far), 2), true},
       {28, f, "{}", F(near, 0), false},
       {28, f, "{}", F(80.0, 1), false},
       {28, f, "{}", F(Below(near), 1), true},
       {28, f, "{}", F(Below(near), 5), true},
       {28, f, "{}", F(Below(near), 0), true},
       {28, f, "{}", F(near, 5), false},
       {28, m, "{}", F(far, 1, 0), false},
       {28, m, "{}", F(0.2, 1, 0), false},
       {28, m, "{}", F(Above(far), 1, 0), true},
       {28, m, "{}", F(Above(far), 1, 2), true},
       {28, m, "{}", F(Above(far), 2, 1), true},
       {28, m, "{}", F(0.2, 2, 1), false},
       {28, m, "{}", F(near, 2, 0), false},
       {28, m, "{}", F(90.0, 1, 1), false},
       {28, m, "{}", F(Below(near), 2, 0), true},
       {28, m, "{}", F(Below(near), 1, 1), true},
       {28, m, "{}", F(Below(near), 0, 1), true},
       {28, m, "{}", F(Below(near), 0, 0), true},
       {28, f, sep, F(3.85, 0), true},
       {28, f, sep, F(3.95, 0), false},
       {28, m, sep, F(2.80000002, 1), false},
       {28, m, sep, F(3.85, 0), false},
       {28, m, sep, F(2.8000001, 1), true},
       // The aux flag exempts a point on Marlo128 only; other models are left alone.
       {28, m, "{}", Exempt(F(0.5, 0)), false},
       {28, f, "{}", Exempt(F(0.5, 0)), true},
       {28, LIDAR_MARLO128H, "{}", F(0.5, 0), false}},
      true);
}

TEST(JointabcProcessTest, DefaultBandsAndTheirEdges) {
  const LidarType q = LIDAR_QUILL_A2;
  test::ExpectRemovals({{10, q, "{}", F(0.5, 1), true},
                        {10, q, "{}", F(0.5, 0), false},
                        {10, q, "{}", F(5.0, 0), true},
                        {10, q, "{}", F(5.0, 1), false},
                        {10, q, "{}", F(5.0, 2), false},
                        {10, q, "{}", F(50.0, 3), false},
                        {10, q, "{}", F(1.0 - 0.05, 1), false},
                        {10, q, "{}", F(Below(1.0 - 0.05), 1), true},
                        {10, q, "{}", F(1.0 + 0.05, 0), true},
                        {10, q, "{}", F(Below(1.0 + 0.05), 0), false},
                        {10, q, "{}", F(10.0 - 0.05, 0), false},
                        {10, q, "{}", F(Below(10.0 - 0.05), 0), true}},
                       true);
}

// Below node 1 only `one_face` is trusted; between the nodes `two_face` names the pair trusted,
// and a value outside 1..3 trusts none.
TEST(JointabcProcessTest, FacesKeptByOneFaceAndTwoFace) {
  auto algo = test::MakeAlgoAs<JointabcProcess>(
      10, LIDAR_QUILL_A2,
      R"({"jointabc_node1": 2, "jointabc_node2": 20, "jointabc_one_face": 2,
          "jointabc_two_face": 1})");
  const auto removes = [&](double distance, uint32_t face) {
    std::vector<_ori_point> frame{F(distance, face)};
    algo->Process(frame);
    return frame[0].distance == 0.0;
  };
  EXPECT_TRUE(removes(1.0, 0));
  EXPECT_FALSE(removes(1.0, 2));
  const bool kept[4][3] = {
      {false, false, false}, {true, true, false}, {true, false, true}, {false, true, true}};
  for (uint32_t two_face = 0; two_face < 4; ++two_face) {
    algo->two_face = two_face;
    for (uint32_t face = 0; face < 3; ++face) {
      EXPECT_EQ(removes(5.0, face), !kept[two_face][face]) << two_face << " " << face;
    }
  }
}

// 36 km/h: one face step of 1/3 m, held in single precision. F's y is 2.
const double kOneStep = 2.0 + static_cast<double>(1.0f / 3.0f);
const double kTwoSteps = 2.0 + static_cast<double>(2.0f / 3.0f);

// Faces 0..3 for echo 0, then for echo 1, then for echo 2.
std::vector<_ori_point> Shifted(LidarType type) {
  std::vector<_ori_point> frame;
  for (uint32_t echo = 0; echo < 3; ++echo) {
    for (uint32_t mirror = 0; mirror < 4; ++mirror) {
      frame.push_back(F(5.0, mirror, echo));
    }
  }
  frame[0].y = -0.0;
  test::MakeAlgo(6, type, R"({"speed": 36})")->Process(frame);
  return frame;
}

TEST(MirrorMotionCompensationTest, TableModelsShiftByFaceAndBriselByFaceAndEcho) {
  // Rows: echo 0, 1, 2; columns: faces 0..3.
  const double table[12] = {0.0,       kOneStep, kTwoSteps, 2.0,      2.0,       kOneStep,
                            kTwoSteps, 2.0,      2.0,       kOneStep, kTwoSteps, 2.0};
  const double brisel[12] = {0.0, kOneStep, kTwoSteps, 2.0, kOneStep, kTwoSteps,
                             2.0, 2.0,      2.0,       2.0, 2.0,      2.0};
  const std::vector<_ori_point> marlo = Shifted(LIDAR_MARLO192);
  const std::vector<_ori_point> shifted = Shifted(LIDAR_BRISEL);
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(marlo[i].y, table[i]) << i;
    EXPECT_EQ(shifted[i].y, brisel[i]) << i;
  }
  EXPECT_TRUE(std::signbit(shifted[0].y));  // the reference face gets not even 0 added
}

// Each model assembles only its own mirror corrections, and they run in id order: the face shift
// before the half turn.
TEST(GeometryPipelineTest, EachModelGetsItsMirrorCorrectionsInIdOrder) {
  using test::EntryJson;
  const std::string all =
      test::ConfigJson(EntryJson(31, "turn", R"({"transformRotateZ": 180})") + "," +
                       EntryJson(28, "blind128") + "," + EntryJson(18, "blind256") + "," +
                       EntryJson(10, "joint") + "," + EntryJson(6, "mirror", R"({"speed": 36})"));
  std::string output;
  std::vector<_ori_point> frame{F(0.5, 0), F(5.0, 0), F(5.0, 1)};
  test::CreatePipeline(LIDAR_QUILL_A2, all, &output)->Process(frame);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]:JointabcProcess param is invalid!\n"
            "[algo]: joint is added!\n[algo]: mirror is added!\n");
  EXPECT_EQ(frame[0].distance, 0.5);
  EXPECT_EQ(frame[1].distance, 0.0);
  // Shifted forward one face step, then turned half round.
  EXPECT_NEAR(frame[2].x, -1.0, 1e-6);
  EXPECT_NEAR(frame[2].y, -(2.0 + 1.0 / 3.0), 1e-6);

  test::CreatePipeline(LIDAR_MARLO128, all, &output);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]: blind128 is added!\n"
            "[algo]:JointabcProcess param is invalid!\n");
  test::CreatePipeline(LIDAR_MARLO256_SMALL_BLIND, all, &output);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]: blind256 is added!\n"
            "[algo]:JointabcProcess param is invalid!\n");
}

}  // namespace
}  // namespace velmar
