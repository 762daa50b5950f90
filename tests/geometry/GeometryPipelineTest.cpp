// The geometric corrections configured from a file through the public interface.
#include <gtest/gtest.h>

#include "geometry/FacePoints.h"

namespace velmar {
namespace {

std::unique_ptr<ILidarAlgo> Create(LidarType type, const std::string& entries, std::string* out) {
  const std::string path = test::WriteTempFile(
      R"({"version": "2.0.6", "enabled": true, "algo_list": [)" + entries + "]}");
  std::unique_ptr<ILidarAlgo> pipeline;
  *out = test::CaptureOutput([&] { pipeline = ILidarAlgo::Create(type, path); });
  return pipeline;
}

std::string Entry(int id, const std::string& name, const std::string& param) {
  return R"({"id": )" + std::to_string(id) + R"(, "enabled": true, "name": ")" + name +
         R"(", "desc": "", "lidar_type": [], "param": )" + param + "}";
}

TEST(GeometryPipeline, UndergroundRuleRunsBeforeTheTransformWhateverTheListOrder) {
  std::string output;
  auto pipeline = Create(LIDAR_MARLO128,
                         Entry(31, "transform", R"({"transformMoveZ": -2})") + "," +
                             Entry(5, "underground", R"({"filter_ground_height": 0.87})"),
                         &output);
  EXPECT_EQ(output, "[algo]: transform is added!\n[algo]: underground is added!\n");
  std::vector<_ori_point> frame = {test::FacePoint(5.0, 0), test::FacePoint(5.0, 0)};
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
  const std::string all = Entry(31, "turn", R"({"transformRotateZ": 180})") + "," +
                          Entry(28, "blind128", "{}") + "," + Entry(18, "blind256", "{}") + "," +
                          Entry(10, "joint", "{}") + "," + Entry(6, "mirror", R"({"speed": 36})");
  std::string output;
  std::vector<_ori_point> frame{test::FacePoint(0.5, 0), test::FacePoint(5.0, 0),
                                test::FacePoint(5.0, 1)};
  Create(LIDAR_QUILL_A2, all, &output)->Process(frame);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]:JointabcProcess param is invalid!\n"
            "[algo]: joint is added!\n[algo]: mirror is added!\n");
  EXPECT_FALSE(test::IsRemoved(frame[0]));
  EXPECT_TRUE(test::IsRemoved(frame[1]));
  // Shifted forward one face step, then turned half round.
  EXPECT_NEAR(frame[2].x, -1.0, 1e-6);
  EXPECT_NEAR(frame[2].y, -(2.0 + 1.0 / 3.0), 1e-6);

  Create(LIDAR_MARLO128, all, &output);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]: blind128 is added!\n"
            "[algo]:JointabcProcess param is invalid!\n");
  Create(LIDAR_MARLO256_SMALL_BLIND, all, &output);
  EXPECT_EQ(output,
            "[algo]: turn is added!\n[algo]: blind256 is added!\n"
            "[algo]:JointabcProcess param is invalid!\n");
}

}  // namespace
}  // namespace velmar
