// The motion algorithms assembled from a configuration file and run through the host interface.
#include <gtest/gtest.h>

#include "motion/MotionFrames.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

using test::Return;
using test::Revolution;

std::unique_ptr<ILidarAlgo> Pipeline(LidarType type, const std::string& entries,
                                     std::string* output) {
  const std::string path = test::WriteTempFile(
      R"({"version": "2.0.6", "enabled": true, "algo_list": [)" + entries + "]}");
  std::unique_ptr<ILidarAlgo> pipeline;
  *output = test::CaptureOutput([&] { pipeline = ILidarAlgo::Create(type, path); });
  return pipeline;
}

std::string Entry(int id, const std::string& name, const std::string& model) {
  return R"({"id": )" + std::to_string(id) + R"(, "enabled": true, "name": ")" + name +
         R"(", "desc": "", "lidar_type": [")" + model + R"("], "param": {"debug_using_echo": 4}})";
}

TEST(MotionPipeline, UndistortionThenFlaggingOnQuillA4) {
  std::string output;
  auto pipeline = Pipeline(LIDAR_QUILL_A4,
                           Entry(21, "flag", "QuillA4") + "," + Entry(1, "undistort", "QuillA4") +
                               "," + Entry(27, "undistort2", "QuillA4"),
                           &output);
  EXPECT_NE(output.find("[algo]: undistort is added!"), std::string::npos);
  EXPECT_NE(output.find("[algo]: flag is added!"), std::string::npos);
  const std::vector<_ori_point> still = {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 10.0)};
  for (int i = 0; i < test::kWarmUpRevolutions; ++i) {
    std::vector<_ori_point> frame = Revolution(LIDAR_QUILL_A4, still);
    pipeline->Process(frame);
    ASSERT_TRUE(test::SameBytes(frame, Revolution(LIDAR_QUILL_A4, still)));
  }
  std::vector<_ori_point> frame = Revolution(LIDAR_QUILL_A4, {Return(50.0, 5, 1, 0, 4.0)});
  pipeline->Process(frame);
  // Removed by the undistortion, then flagged: an empty return where the history saw a surface.
  EXPECT_EQ(frame[1].distance, 0.0);
  EXPECT_EQ(frame[1].label, 0);  // removal without a reference writes no label
  EXPECT_EQ(frame[1].motion_flag, 1.0);
}

TEST(MotionPipeline, OnlyTheWiderUndistortionRunsOnMarlo128H) {
  std::string output;
  auto pipeline =
      Pipeline(LIDAR_MARLO128H,
               Entry(1, "narrow", "Marlo128H") + "," + Entry(27, "wide", "Marlo128H"), &output);
  EXPECT_EQ(output.find("narrow is added"), std::string::npos);
  EXPECT_NE(output.find("[algo]: wide is added!"), std::string::npos);
  const std::vector<_ori_point> still = {Return(50.0, 66, 0, 0, 10.0),
                                         Return(50.0, 65, 1, 0, 10.0)};
  for (int i = 0; i < test::kWarmUpRevolutions; ++i) {
    std::vector<_ori_point> frame = Revolution(LIDAR_MARLO128H, still);
    pipeline->Process(frame);
  }
  std::vector<_ori_point> frame =
      Revolution(LIDAR_MARLO128H, {Return(50.0, 66, 0, 0, 7.0), Return(50.0, 65, 1, 0, 5.0)});
  pipeline->Process(frame);
  ASSERT_EQ(frame.size(), 5u);
  EXPECT_EQ(frame[1].distance, 0.0);
  EXPECT_EQ(frame[4].channel, 66u);
  EXPECT_NEAR(test::Norm(frame[4]), 5.0, 1e-9);
}

}  // namespace
}  // namespace velmar
