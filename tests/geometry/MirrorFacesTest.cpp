// The mirror-face corrections (blind zones per face, joints between faces, motion shift per
// face) and the geometric rules assembled from a configuration file.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "geometry/JointabcProcess.h"
#include "geometry/MirrorMotionCompensation.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

// A return with non-zero measures, so that a removal shows.
inline _ori_point FacePoint(double distance, uint32_t mirror, uint32_t echo = 0) {
  _ori_point p = test::MakePointXYZ(1.0, 2.0, 3.0);
  p.distance = distance;
  p.intensity = 40.0;
  p.pulse_width = 5.0;
  p.channel = 7;
  p.mirror = mirror;
  p.echo = echo;
  return p;
}

// Removed: the measures zeroed, everything else kept.
inline bool IsRemoved(const _ori_point& p) {
  return p.x == 0.0 && p.y == 0.0 && p.z == 0.0 && p.intensity == 0.0 && p.distance == 0.0 &&
         p.pulse_width == 0.0 && p.channel == 7;
}

inline bool Removes(AlgoBase& algo, double distance, uint32_t mirror, uint32_t echo = 0) {
  std::vector<_ori_point> frame{FacePoint(distance, mirror, echo)};
  algo.Process(frame);
  return IsRemoved(frame[0]);
}

_ori_point F(double distance, uint32_t mirror, uint32_t echo = 0) {
  return test::Ret(distance).Face(mirror, echo).Pulse(5.0);
}

double Below(double edge) {
  return std::nextafter(edge, 0.0);
}

double Above(double edge) {
  return std::nextafter(edge, 1000.0);
}

// Face 0 is near-blind and face 1 far-blind around 3 m; the separation is held as a float, and
// the edges computed from it in double.
TEST(SmallBlind, BandEdges) {
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
  std::string output;
  test::MakeAlgo(18, s, R"({"other": 1})", &output);
  EXPECT_EQ(output, "");
}

// Marlo128F trusts face 2 near and the others far; Marlo128 picks the near face by echo (face 1
// of any echo but the second, face 2 of the second). Each model has its own separation, held as
// a float: float(2.7) + 0.1 is about 2.80000005.
TEST(SmallBlindMarlo128, BandEdgesPerModelFaceAndEcho) {
  const LidarType f = LIDAR_MARLO128F;
  const LidarType m = LIDAR_MARLO128;
  const double near = 2.5 - 0.1;
  const double far = 2.5 + 0.1;
  const char* sep =
      R"({"separate_mirror_ABC_dist_marlo128f": 4, "separate_mirror_ABC_dist_marlo128": 2.7})";
  test::ExpectRemovals(
      {{28, f, "{}", F(far, 2), false},           {28, f, "{}", F(0.3, 2, 1), false},
       {28, f, "{}", F(Above(far), 2), true},     {28, f, "{}", F(near, 0), false},
       {28, f, "{}", F(80.0, 1), false},          {28, f, "{}", F(Below(near), 1), true},
       {28, f, "{}", F(Below(near), 5), true},    {28, f, "{}", F(Below(near), 0), true},
       {28, f, "{}", F(near, 5), false},          {28, m, "{}", F(far, 1, 0), false},
       {28, m, "{}", F(0.2, 1, 0), false},        {28, m, "{}", F(Above(far), 1, 0), true},
       {28, m, "{}", F(Above(far), 1, 2), true},  {28, m, "{}", F(Above(far), 2, 1), true},
       {28, m, "{}", F(0.2, 2, 1), false},        {28, m, "{}", F(near, 2, 0), false},
       {28, m, "{}", F(90.0, 1, 1), false},       {28, m, "{}", F(Below(near), 2, 0), true},
       {28, m, "{}", F(Below(near), 1, 1), true}, {28, m, "{}", F(Below(near), 0, 1), true},
       {28, m, "{}", F(Below(near), 0, 0), true}, {28, f, sep, F(3.85, 0), true},
       {28, f, sep, F(3.95, 0), false},           {28, m, sep, F(2.80000002, 1), false},
       {28, m, sep, F(3.85, 0), false},           {28, m, sep, F(2.8000001, 1), true}},
      true);
}

TEST(SmallBlindMarlo128, AuxFlagExemptsOnlyOnMarlo128AndOtherModelsAreLeftAlone) {
  for (LidarType type : {LIDAR_MARLO128, LIDAR_MARLO128F, LIDAR_MARLO128H}) {
    std::vector<_ori_point> frame{FacePoint(0.5, 0), FacePoint(0.5, 0)};
    frame[0].aux_flag = 0x80;
    test::MakeAlgo(28, type)->Process(frame);
    EXPECT_EQ(IsRemoved(frame[0]), type == LIDAR_MARLO128F);
    EXPECT_EQ(IsRemoved(frame[1]), type != LIDAR_MARLO128H);
  }
}

const std::string kPrefix = "[algo]:JointabcProcess ";
const std::string kNodeRange =
    kPrefix + "jointabc_node1/jointabc_node2 is not in the correct range!\n";
const std::string kNodeOrder = kPrefix + "jointabc_node1 > jointabc_node2 is not correct!\n";
const std::string kOneFaceRange = kPrefix + "jointabc_one_face is not in the correct range!\n";
const std::string kTwoFaceRange = kPrefix + "jointabc_two_face is not in the correct range!\n";

std::shared_ptr<JointabcProcess> Make(const std::string& params, std::string* output) {
  return test::MakeAlgoAs<JointabcProcess>(10, LIDAR_QUILL_A2, params, output);
}

std::shared_ptr<JointabcProcess> Make(double node1, double node2, double one_face, double two_face,
                                      std::string* output = nullptr) {
  return Make("{\"jointabc_node1\": " + std::to_string(node1) + ", \"jointabc_node2\": " +
                  std::to_string(node2) + ", \"jointabc_one_face\": " + std::to_string(one_face) +
                  ", \"jointabc_two_face\": " + std::to_string(two_face) + "}",
              output);
}

TEST(JointabcProcess, DefaultBandsAndTheirEdges) {
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

TEST(JointabcProcess, FacesKeptByOneFaceAndTwoFace) {
  auto algo = Make(2, 20, 2, 1);
  EXPECT_TRUE(Removes(*algo, 1.0, 0));
  EXPECT_FALSE(Removes(*algo, 1.0, 2));
  const bool kept[4][3] = {
      {false, false, false}, {true, true, false}, {true, false, true}, {false, true, true}};
  for (uint32_t two_face = 0; two_face < 4; ++two_face) {
    algo->two_face = two_face;
    for (uint32_t face = 0; face < 3; ++face) {
      EXPECT_EQ(Removes(*algo, 5.0, face), !kept[two_face][face]) << two_face << " " << face;
    }
  }
}

// The node pair, then the two faces, as the algorithm holds them.
std::string Held(const JointabcProcess& algo) {
  return std::to_string(algo.node1) + " " + std::to_string(algo.node2) + " " +
         std::to_string(algo.one_face) + " " + std::to_string(algo.two_face);
}

TEST(JointabcProcess, ParameterMessagesAndWhatTheyKeep) {
  const std::string defaults = "1.000000 10.000000 0 3";
  std::string output;
  auto algo =
      Make(R"({"jointabc_node1": 2, "jointabc_node2": 3, "jointabc_one_face": 1})", &output);
  EXPECT_EQ(output, "[algo]:JointabcProcess param is invalid!\n");
  EXPECT_EQ(Held(*algo), defaults);
  // A bad node keeps both previous nodes; the faces are still read.
  EXPECT_EQ(Held(*Make(-1, 20, 1, 2, &output)), "1.000000 10.000000 1 2");
  EXPECT_EQ(output, kNodeRange);
  Make(5, -1, 0, 1, &output);  // negative and out of order: only the range message
  EXPECT_EQ(output, kNodeRange);
  EXPECT_EQ(Held(*Make(5, 4, 1.5, 4, &output)), defaults);
  EXPECT_EQ(output, kNodeOrder + kOneFaceRange + kTwoFaceRange);
  EXPECT_EQ(Held(*Make(4, 4, 2, 0, &output)), "4.000000 4.000000 2 3");
  EXPECT_EQ(output, kTwoFaceRange);
  Make(0, 0, -1, 3.5, &output);
  EXPECT_EQ(output, kOneFaceRange + kTwoFaceRange);
}

// 36 km/h: one face step of 1/3 m, held in single precision. FacePoint's y is 2.
const double kOneStep = 2.0 + static_cast<double>(1.0f / 3.0f);
const double kTwoSteps = 2.0 + static_cast<double>(2.0f / 3.0f);

// Faces 0..3 for echo 0, then for echo 1, then for echo 2.
std::vector<_ori_point> Shifted(LidarType type) {
  std::vector<_ori_point> frame;
  for (uint32_t echo = 0; echo < 3; ++echo) {
    for (uint32_t mirror = 0; mirror < 4; ++mirror) {
      frame.push_back(FacePoint(5.0, mirror, echo));
    }
  }
  frame[0].y = -0.0;
  test::MakeAlgo(6, type, R"({"speed": 36})")->Process(frame);
  return frame;
}

TEST(MirrorMotionCompensation, TableModelsShiftByFaceAndBriselByFaceAndEcho) {
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

TEST(MirrorMotionCompensation, SpeedParameter) {
  std::string output;
  auto algo =
      test::MakeAlgoAs<MirrorMotionCompensation>(6, LIDAR_MARLO192, R"({"speed": -1})", &output);
  EXPECT_EQ(output, "[algo]:MirrorMotionCompensation param is invalid!\n");
  std::vector<_ori_point> frame{FacePoint(5.0, 2)};
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

TEST(GeometryPipeline, UndergroundRuleRunsBeforeTheTransformWhateverTheListOrder) {
  std::string output;
  auto pipeline = test::CreatePipeline(
      LIDAR_MARLO128,
      test::PipelineEntry(31, "transform", R"({"transformMoveZ": -2})") + "," +
          test::PipelineEntry(5, "underground", R"({"filter_ground_height": 0.87})"),
      &output);
  EXPECT_EQ(output, "[algo]: transform is added!\n[algo]: underground is added!\n");
  std::vector<_ori_point> frame = {FacePoint(5.0, 0), FacePoint(5.0, 0)};
  frame[0].z = 0.0;
  frame[1].z = -1.0;
  pipeline->Process(frame);
  // Lowered and kept: the depth test saw the original height. Transform first would remove it.
  EXPECT_EQ(frame[0].z, -2.0);
  EXPECT_EQ(frame[0].distance, 5.0);
  // Removed at its original depth, then moved like every point.
  EXPECT_EQ(frame[1].z, -3.0);
  EXPECT_EQ(frame[1].distance, 0.0);
}

TEST(GeometryPipeline, EachModelGetsItsMirrorCorrections) {
  const std::string all = test::PipelineEntry(31, "turn", R"({"transformRotateZ": 180})") + "," +
                          test::PipelineEntry(28, "blind128", "{}") + "," +
                          test::PipelineEntry(18, "blind256", "{}") + "," +
                          test::PipelineEntry(10, "joint", "{}") + "," +
                          test::PipelineEntry(6, "mirror", R"({"speed": 36})");
  std::string output;
  std::vector<_ori_point> frame{FacePoint(0.5, 0), FacePoint(5.0, 0), FacePoint(5.0, 1)};
  test::CreatePipeline(LIDAR_QUILL_A2, all, &output)->Process(frame);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]:JointabcProcess param is invalid!\n"
            "[algo]: joint is added!\n[algo]: mirror is added!\n");
  EXPECT_FALSE(IsRemoved(frame[0]));
  EXPECT_TRUE(IsRemoved(frame[1]));
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
