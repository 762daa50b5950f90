// What ParseParams prints and leaves in an algorithm's fields for keys that are missing, out of
// range or fractional: a bad value never refuses the algorithm, it is reported and the fallback
// (or the value held so far) stays.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "filters/OutlierPoint.h"
#include "filters/SunlightNoise.h"
#include "framework/AlgoCommon.h"
#include "geometry/JointabcProcess.h"
#include "geometry/MirrorMotionCompensation.h"
#include "geometry/RainPoint.h"
#include "geometry/SmallBlind.h"
#include "geometry/UnderGroundPoint.h"
#include "ground/GroundDet.h"
#include "motion/MotionPoint.h"
#include "motion/UndistortPoint.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

template <typename... Values>
std::string Text(const Values&... values) {
  std::ostringstream text;
  ((text << values << ' '), ...);
  std::string s = text.str();
  s.pop_back();
  return s;
}

// The given fields of an algorithm of class T, as text.
template <typename T, auto... kFields>
std::string Held(const AlgoBase& algo) {
  const T& held = dynamic_cast<const T&>(algo);
  return Text(held.*kFields...);
}

std::string Invalid(const std::string& algo) {
  return "[algo]:" + algo + " param is invalid!\n";
}

std::string OutOfRange(const std::string& algo, const std::string& key) {
  return "[algo]:" + algo + " " + key + " is not in the correct range!\n";
}

std::string Rain(const char* distance, const char* reflection, const char* intensity) {
  return Text("{\"validDistance\":", distance, ", \"reflectionThreshold\":", reflection,
              ", \"intensityThreshold\":", intensity, "}");
}

std::string Joint(double node1, double node2, double one_face, double two_face) {
  return Text("{\"jointabc_node1\":", node1, ", \"jointabc_node2\":", node2,
              ", \"jointabc_one_face\":", one_face, ", \"jointabc_two_face\":", two_face, "}");
}

struct ParseCase {
  int id;
  LidarType type;
  std::string params;
  std::string printed;
  std::string (*held)(const AlgoBase&);
  std::string expected;
};

TEST(ParseParamsTest, MessagesAndTheValuesKept) {
  const auto outlier =
      Held<OutlierPoint, &OutlierPoint::threshold_multiple, &OutlierPoint::min_threshold>;
  const auto rain = Held<RainPoint, &RainPoint::valid_distance, &RainPoint::reflection_threshold,
                         &RainPoint::intensity_threshold>;
  const auto under = Held<UnderGroundPoint, &UnderGroundPoint::filter_ground_height>;
  const auto joint = Held<JointabcProcess, &JointabcProcess::node1, &JointabcProcess::node2,
                          &JointabcProcess::one_face, &JointabcProcess::two_face>;
  const auto speed = Held<MirrorMotionCompensation, &MirrorMotionCompensation::speed>;
  const auto undistort = Held<UndistortPoint, &UndistortPoint::num_thred, &UndistortPoint::r_thred,
                              &UndistortPoint::dis_redund_thred>;
  const std::string rain_invalid = "[algo]: RainPoint algo param is invalid!\n";
  const std::string node_range = OutOfRange("JointabcProcess", "jointabc_node1/jointabc_node2");
  const std::string one_face = OutOfRange("JointabcProcess", "jointabc_one_face");
  const std::string two_face = OutOfRange("JointabcProcess", "jointabc_two_face");
  const LidarType b = LIDAR_BRISEL;
  const LidarType o = LIDAR_ORVIK16;
  const LidarType q = LIDAR_QUILL_A2;
  const std::vector<ParseCase> cases = {
      // Both keys or neither; each bad value gets its own message and fallback, in key order.
      {7, b, R"({"thresholdMultiple": 9})", Invalid("OutlierPoint"), outlier, "4 0.1"},
      {7, b, R"({"thresholdMultiple": -1, "minThreshold": 0.5})",
       OutOfRange("OutlierPoint", "thresholdMultiple"), outlier, "4 0.5"},
      {7, b, R"({"minThreshold": -0.5, "thresholdMultiple": -2})",
       OutOfRange("OutlierPoint", "thresholdMultiple") + OutOfRange("OutlierPoint", "minThreshold"),
       outlier, "4 0.1"},
      {7, b, R"({"thresholdMultiple": 0, "minThreshold": 1})", "", outlier, "0 1"},
      // The rain rule takes its three values together or not at all.
      {4, o, Rain("50", "1", "0"), "", rain, "50 1 0"},
      {4, o, Rain("5", "1", "300"), "", rain, "5 1 300"},
      {4, o, Rain("50.0001", "1", "0"), rain_invalid, rain, "6 40 299"},
      {4, o, Rain("0", "1", "0"), rain_invalid, rain, "6 40 299"},
      {4, o, Rain("5", "0", "0"), rain_invalid, rain, "6 40 299"},
      {4, o, Rain("5", "1", "300.5"), rain_invalid, rain, "6 40 299"},
      {4, o, Rain("5", "1", "-0.1"), rain_invalid, rain, "6 40 299"},
      {4, o, R"({"validDistance": 20})", rain_invalid, rain, "6 40 299"},
      {5, o, "{}", Invalid("UnderGroundPoint"), under, "0.87"},
      {5, o, R"({"filter_ground_height": -0.1})", Invalid("UnderGroundPoint"), under, "0.87"},
      {5, o, R"({"filter_ground_height": "1"})", Invalid("UnderGroundPoint"), under, "0.87"},
      // A bad node keeps both nodes held so far; the faces are still read.
      {10, q, R"({"jointabc_node1": 2, "jointabc_node2": 3, "jointabc_one_face": 1})",
       Invalid("JointabcProcess"), joint, "1 10 0 3"},
      {10, q, Joint(-1, 20, 1, 2), node_range, joint, "1 10 1 2"},
      {10, q, Joint(5, -1, 0, 1), node_range, joint, "1 10 0 1"},  // not also the order message
      {10, q, Joint(5, 4, 1.5, 4),
       "[algo]:JointabcProcess jointabc_node1 > jointabc_node2 is not correct!\n" + one_face +
           two_face,
       joint, "1 10 0 3"},
      {10, q, Joint(4, 4, 2, 0), two_face, joint, "4 4 2 3"},
      {10, q, Joint(0, 0, -1, 3.5), one_face + two_face, joint, "0 0 0 3"},
      {6, LIDAR_MARLO192, R"({"speed": -1})", Invalid("MirrorMotionCompensation"), speed, "0"},
      {6, LIDAR_MARLO192, "{}", Invalid("MirrorMotionCompensation"), speed, "0"},
      {6, b, R"({"speed": 72.9})", "", speed, "72"},
      {6, b, R"({"speed": 1e12})", "", speed, Text(std::numeric_limits<int32_t>::max())},
      // Missing keys are inserted as 0; windows are truncated.
      {2, LIDAR_MARLO256, R"({"filterWindowV": -2.9})", "",
       [](const AlgoBase& a) {
         return Held<SunlightNoise, &SunlightNoise::filter_window_v, &SunlightNoise::valid_distance,
                     &SunlightNoise::right_reflect_threshold>(a) +
                Text("", a.num_params.size());
       },
       "-2 0 0 5"},
      {18, LIDAR_MARLO256_SMALL_BLIND, R"({"other": 1})", "",
       Held<SmallBlind, &SmallBlind::separate_dist>, "3"},
      // Keys read only when present, integers truncated; the detector's own check comes later.
      {35, LIDAR_MARLO128,
       R"({"filter_ground_points_flag": 0.9, "filter_underground_points_flag": 1.5,
           "nr_grids_coarse": 8.7, "filter_ground_points_threshold": 0.3, "nr_smooth_iter": -2})",
       "",
       [](const AlgoBase& a) {
         const auto& g = dynamic_cast<const GroundDet&>(a);
         return Text(g.remove_ground, g.remove_underground, g.filter_ground_points_threshold,
                     g.detector_param.nr_grids_coarse, g.detector_param.nr_smooth_iter);
       },
       "0 1 0.3 8 -2"},
      {21, LIDAR_QUILL_A4, R"({"num_thred": 2.7, "r_thred": 0.3})", "",
       Held<MotionPoint, &MotionPoint::num_thred, &MotionPoint::r_thred>, "2 0.3"},
      {1, LIDAR_QUILL_A4, R"({"num_thred": 4.9})", "", undistort, "4 0.1 500"},
      {1, LIDAR_MARLO128H, "{}", "", undistort, "6 0.1 50"},
      {27, LIDAR_MARLO128, R"({"dis_redund_thred": 8.3})", "", undistort, "6 0.1 8.3"},
  };
  for (const ParseCase& c : cases) {
    std::string printed;
    const auto algo = test::MakeAlgo(c.id, c.type, c.params, &printed);
    EXPECT_EQ(printed, c.printed) << "id " << c.id << " " << c.params;
    EXPECT_EQ(c.held(*algo), c.expected) << "id " << c.id << " " << c.params;
  }
}

// Integer parameters come from JSON numbers truncated toward zero, saturating, NaN read as 0.
TEST(ParseParamsTest, IntegersAreTruncatedTowardZeroAndSaturate) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(TruncateToInt32(2.9), 2);
  EXPECT_EQ(TruncateToInt32(-2.9), -2);
  EXPECT_EQ(TruncateToInt32(1e12), kMax);
  EXPECT_EQ(TruncateToInt32(-1e12), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(TruncateToInt32(std::nan("")), 0);
  EXPECT_EQ(TruncateToInt32(INFINITY), kMax);
  EXPECT_EQ(TruncateToUint32(7.99), 7u);
  EXPECT_EQ(TruncateToUint32(-3.0), 0u);
  EXPECT_EQ(TruncateToUint32(5e9), std::numeric_limits<uint32_t>::max());
}

}  // namespace
}  // namespace velmar
