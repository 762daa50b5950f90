#include "geometry/JointabcProcess.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::FacePoint;
using test::IsRemoved;

constexpr int kId = 10;
const char* const kInvalid = "[algo]:JointabcProcess param is invalid!\n";
const char* const kNodeRange =
    "[algo]:JointabcProcess jointabc_node1/jointabc_node2 is not in the correct range!\n";
const char* const kNodeOrder =
    "[algo]:JointabcProcess jointabc_node1 > jointabc_node2 is not correct!\n";
const char* const kOneFaceRange =
    "[algo]:JointabcProcess jointabc_one_face is not in the correct range!\n";
const char* const kTwoFaceRange =
    "[algo]:JointabcProcess jointabc_two_face is not in the correct range!\n";

std::shared_ptr<JointabcProcess> Make(const std::string& params, std::string* output = nullptr) {
  return test::MakeAlgoAs<JointabcProcess>(kId, LIDAR_QUILL_A2, params, output);
}

std::string Params(double node1, double node2, double one, double two) {
  return "{\"jointabc_node1\": " + std::to_string(node1) +
         ", \"jointabc_node2\": " + std::to_string(node2) +
         ", \"jointabc_one_face\": " + std::to_string(one) +
         ", \"jointabc_two_face\": " + std::to_string(two) + "}";
}

bool Removes(JointabcProcess& algo, double distance, uint32_t mirror) {
  std::vector<_ori_point> frame{FacePoint(distance, mirror)};
  algo.Process(frame);
  return IsRemoved(frame[0]);
}

TEST(JointabcProcess, DefaultBands) {
  auto algo = Make("{}");
  EXPECT_TRUE(Removes(*algo, 0.5, 1));
  EXPECT_FALSE(Removes(*algo, 0.5, 0));
  EXPECT_TRUE(Removes(*algo, 5.0, 0));
  EXPECT_FALSE(Removes(*algo, 5.0, 1));
  EXPECT_FALSE(Removes(*algo, 5.0, 2));
  EXPECT_FALSE(Removes(*algo, 1.02, 0));
  EXPECT_FALSE(Removes(*algo, 1.02, 1));
  for (uint32_t face = 0; face < 4; ++face) {
    EXPECT_FALSE(Removes(*algo, 9.96, face));
    EXPECT_FALSE(Removes(*algo, 50.0, face));
  }
}

TEST(JointabcProcess, ToleranceEdges) {
  auto algo = Make("{}");
  const double below_node1 = 1.0 - 0.05;
  EXPECT_FALSE(Removes(*algo, below_node1, 1));
  EXPECT_TRUE(Removes(*algo, std::nextafter(below_node1, 0.0), 1));
  const double above_node1 = 1.0 + 0.05;
  EXPECT_TRUE(Removes(*algo, above_node1, 0));
  EXPECT_FALSE(Removes(*algo, std::nextafter(above_node1, 0.0), 0));
  const double below_node2 = 10.0 - 0.05;
  EXPECT_FALSE(Removes(*algo, below_node2, 0));
  EXPECT_TRUE(Removes(*algo, std::nextafter(below_node2, 0.0), 0));
}

TEST(JointabcProcess, TwoFaceChoosesTheBandFaces) {
  auto algo = Make(Params(2.0, 20.0, 2.0, 1.0));
  EXPECT_TRUE(Removes(*algo, 1.0, 0));
  EXPECT_FALSE(Removes(*algo, 1.0, 2));
  EXPECT_FALSE(Removes(*algo, 5.0, 0));
  EXPECT_FALSE(Removes(*algo, 5.0, 1));
  EXPECT_TRUE(Removes(*algo, 5.0, 2));
  EXPECT_TRUE(Removes(*algo, 5.0, 7));
  algo->two_face = 2;
  EXPECT_FALSE(Removes(*algo, 5.0, 0));
  EXPECT_TRUE(Removes(*algo, 5.0, 1));
  EXPECT_FALSE(Removes(*algo, 5.0, 2));
  algo->two_face = 0;
  EXPECT_TRUE(Removes(*algo, 5.0, 0));
  EXPECT_TRUE(Removes(*algo, 5.0, 1));
  EXPECT_TRUE(Removes(*algo, 5.0, 2));
  EXPECT_FALSE(Removes(*algo, 20.0 - 0.05, 2));
}

TEST(JointabcProcess, MissingKeyChangesNothing) {
  std::string output;
  auto algo =
      Make(R"({"jointabc_node1": 2, "jointabc_node2": 3, "jointabc_one_face": 1})", &output);
  EXPECT_EQ(output, kInvalid);
  EXPECT_EQ(algo->node1, 1.0);
  EXPECT_EQ(algo->node2, 10.0);
  EXPECT_EQ(algo->one_face, 0u);
  EXPECT_EQ(algo->two_face, 3u);
}

TEST(JointabcProcess, NodeMessagesKeepBothNodesAndStillCheckFaces) {
  std::string output;
  auto algo = Make(Params(-1.0, 20.0, 1.0, 2.0), &output);
  EXPECT_EQ(output, kNodeRange);
  EXPECT_EQ(algo->node1, 1.0);
  EXPECT_EQ(algo->node2, 10.0);
  EXPECT_EQ(algo->one_face, 1u);
  EXPECT_EQ(algo->two_face, 2u);

  // A negative node is reported alone even when the nodes are also out of order.
  algo = Make(Params(5.0, -1.0, 0.0, 1.0), &output);
  EXPECT_EQ(output, kNodeRange);

  algo = Make(Params(5.0, 4.0, 3.0, 4.0), &output);
  EXPECT_EQ(output, std::string(kNodeOrder) + kOneFaceRange + kTwoFaceRange);
  EXPECT_EQ(algo->node1, 1.0);
  EXPECT_EQ(algo->node2, 10.0);
  EXPECT_EQ(algo->one_face, 0u);
  EXPECT_EQ(algo->two_face, 3u);

  algo = Make(Params(4.0, 4.0, 0.0, 3.0), &output);
  EXPECT_EQ(output, "");
  EXPECT_EQ(algo->node1, 4.0);
  EXPECT_EQ(algo->node2, 4.0);
}

TEST(JointabcProcess, FacesMustBeExactWholeValues) {
  std::string output;
  auto algo = Make(Params(1.0, 10.0, 1.5, 0.0), &output);
  EXPECT_EQ(output, std::string(kOneFaceRange) + kTwoFaceRange);
  EXPECT_EQ(algo->one_face, 0u);
  EXPECT_EQ(algo->two_face, 3u);
  algo = Make(Params(1.0, 10.0, 2.0, 1.0), &output);
  EXPECT_EQ(output, "");
  EXPECT_EQ(algo->one_face, 2u);
  EXPECT_EQ(algo->two_face, 1u);
  algo = Make(Params(1.0, 10.0, -1.0, 3.5), &output);
  EXPECT_EQ(output, std::string(kOneFaceRange) + kTwoFaceRange);
}

}  // namespace
}  // namespace velmar
