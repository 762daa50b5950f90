// The motion algorithms assembled from a configuration file and run through the host interface.
#include <gtest/gtest.h>

#include "motion/MotionFrames.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

using test::Return;
using test::Revolution;

std::string Entry(int id, const std::string& name, const std::string& model) {
  return R"({"id": )" + std::to_string(id) + R"(, "enabled": true, "name": ")" + name +
         R"(", "desc": "", "lidar_type": [")" + model + R"("], "param": {}})";
}

// Assembles the entries for `type` and runs the warm-up revolutions of `still` through it.
std::unique_ptr<ILidarAlgo> WarmPipeline(LidarType type, const std::string& entries,
                                         const std::vector<_ori_point>& still,
                                         std::string* output) {
  const std::string path = test::WriteTempFile(
      R"({"version": "2.0.6", "enabled": true, "algo_list": [)" + entries + "]}");
  std::unique_ptr<ILidarAlgo> pipeline;
  *output = test::CaptureOutput([&] { pipeline = ILidarAlgo::Create(type, path); });
  for (int i = 0; i < test::kWarmUpRevolutions; ++i) {
    std::vector<_ori_point> frame = Revolution(type, still);
    pipeline->Process(frame);
  }
  return pipeline;
}

TEST(MotionPipeline, UndistortionThenFlaggingOnQuillA4) {
  std::string output;
  auto pipeline = WarmPipeline(LIDAR_QUILL_A4,
                               Entry(21, "flag", "QuillA4") + "," + Entry(27, "wide", "QuillA4") +
                                   "," + Entry(1, "undistort", "QuillA4") + "," +
                                   Entry(1, "other model", "Marlo128H"),
                               {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 10.0)}, &output);
  EXPECT_EQ(output,
            "[algo]: flag is added!\n[algo]: wide is added!\n[algo]: undistort is added!\n");
  std::vector<_ori_point> frame = Revolution(LIDAR_QUILL_A4, {Return(50.0, 5, 1, 0, 4.0)});
  pipeline->Process(frame);
  // Removed by the undistortion, then flagged: an empty return where the history saw a surface.
  EXPECT_EQ(frame[1].distance, 0.0);
  EXPECT_EQ(frame[1].motion_flag, 1.0);
}

}  // namespace
}  // namespace velmar
