// The motion algorithms assembled from a configuration file and run through the host interface.
#include <gtest/gtest.h>

#include "motion/MotionFrames.h"

namespace velmar {
namespace {

using test::EntryJson;
using test::Return;
using test::Revolution;

// The flagger and the undistortion take the Zephel models; the wide undistortion the Marlo
// models besides. On QuillA4 a moving return is removed by the undistortion and then flagged: an
// empty return where the history saw a surface.
TEST(MotionPipelineTest, EachModelGetsItsAlgorithmsAndUndistortionComesFirst) {
  const std::string config = test::ConfigJson(EntryJson(21, "flag") + "," + EntryJson(27, "wide") +
                                              "," + EntryJson(1, "undistort"));
  const std::string all =
      "[algo]: flag is added!\n[algo]: wide is added!\n"
      "[algo]: undistort is added!\n";
  const std::string wide = "[algo]: wide is added!\n";
  const std::pair<LidarType, std::string> models[] = {
      {LIDAR_ZEPHEL_B2_B3_MP, all}, {LIDAR_MARLO128, wide}, {LIDAR_MARLO128H, wide},
      {LIDAR_MARLO256, wide},       {LIDAR_MARLO128F, ""},  {LIDAR_QUILL_A4, all}};
  std::string output;
  for (const auto& [type, added] : models) {
    test::CreatePipeline(type, config, &output);
    EXPECT_EQ(output, added) << type;
  }
  auto pipeline = test::CreatePipeline(LIDAR_QUILL_A4, config);
  for (int i = 0; i < test::kWarmUpRevolutions; ++i) {
    std::vector<_ori_point> frame =
        Revolution(LIDAR_QUILL_A4, {Return(50.0, 5, 0, 0, 10.0), Return(50.0, 5, 1, 0, 10.0)});
    pipeline->Process(frame);
  }
  std::vector<_ori_point> frame = Revolution(LIDAR_QUILL_A4, {Return(50.0, 5, 1, 0, 4.0)});
  pipeline->Process(frame);
  EXPECT_EQ(frame[1].distance, 0.0);
  EXPECT_EQ(frame[1].motion_flag, 1.0);
}

}  // namespace
}  // namespace velmar
