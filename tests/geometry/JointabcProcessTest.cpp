#include "geometry/JointabcProcess.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

using test::Removes;

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
  auto algo = test::MakeAlgo(10, LIDAR_QUILL_A2);
  EXPECT_TRUE(Removes(*algo, 0.5, 1));
  EXPECT_FALSE(Removes(*algo, 0.5, 0));
  EXPECT_TRUE(Removes(*algo, 5.0, 0));
  EXPECT_FALSE(Removes(*algo, 5.0, 1) || Removes(*algo, 5.0, 2));
  EXPECT_FALSE(Removes(*algo, 1.02, 0) || Removes(*algo, 1.02, 1));
  EXPECT_FALSE(Removes(*algo, 9.96, 0) || Removes(*algo, 50.0, 3));
  EXPECT_FALSE(Removes(*algo, 1.0 - 0.05, 1));
  EXPECT_TRUE(Removes(*algo, std::nextafter(1.0 - 0.05, 0.0), 1));
  EXPECT_TRUE(Removes(*algo, 1.0 + 0.05, 0));
  EXPECT_FALSE(Removes(*algo, std::nextafter(1.0 + 0.05, 0.0), 0));
  EXPECT_FALSE(Removes(*algo, 10.0 - 0.05, 0));
  EXPECT_TRUE(Removes(*algo, std::nextafter(10.0 - 0.05, 0.0), 0));
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

}  // namespace
}  // namespace velmar
