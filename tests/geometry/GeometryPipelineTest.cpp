// The geometric corrections run from a configuration file through the public interface.
#include <gtest/gtest.h>

#include <memory>

#include "geometry/FacePoints.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

using test::FacePoint;
using test::IsRemoved;
using test::MakePointXYZ;

std::unique_ptr<ILidarAlgo> CreateFromConfig(LidarType type, const std::string& algoList,
                                             std::string* output) {
  const std::string path = test::WriteTempFile(
      R"({"version": "2.0.6", "enabled": true, "algo_list": [)" + algoList + "]}");
  std::unique_ptr<ILidarAlgo> pipeline;
  *output = test::CaptureOutput([&] { pipeline = ILidarAlgo::Create(type, path); });
  return pipeline;
}

std::string Entry(int id, const std::string& name, const std::string& param) {
  return R"({"id": )" + std::to_string(id) + R"(, "enabled": true, "name": ")" + name +
         R"(", "desc": "", "lidar_type": [], "param": )" + param + "}";
}

TEST(GeometryPipeline, UndergroundRuleRunsBeforeTheTransformWhateverTheListOrder) {
  std::string output;
  auto pipeline = CreateFromConfig(LIDAR_MARLO128,
                                   Entry(31, "transform", R"({"transformMoveZ": -2})") + "," +
                                       Entry(5, "underground", R"({"filter_ground_height": 0.87})"),
                                   &output);
  EXPECT_EQ(output, "[algo]: transform is added!\n[algo]: underground is added!\n");
  std::vector<_ori_point> frame = {MakePointXYZ(0.0, 5.0, 0.0), MakePointXYZ(0.0, 5.0, -1.0)};
  frame[0].distance = 5.0;
  frame[1].distance = 5.1;
  pipeline->Process(frame);
  // Lowered by the transform yet kept: the depth test saw the original height.
  EXPECT_EQ(frame[0].z, -2.0);
  EXPECT_EQ(frame[0].distance, 5.0);
  // Removed at its original depth, then moved like every point.
  EXPECT_EQ(frame[1].z, -3.0);
  EXPECT_EQ(frame[1].distance, 0.0);
}

TEST(GeometryPipeline, EachModelGetsItsMirrorCorrections) {
  const std::string all = Entry(31, "rotate", R"({"transformRotateZ": 180})") + "," +
                          Entry(28, "blind128", "{}") + "," + Entry(18, "blind256", "{}") + "," +
                          Entry(10, "jointabc", "{}") + "," +
                          Entry(6, "mirror", R"({"speed": 36})");
  std::string output;
  auto marlo192 = CreateFromConfig(LIDAR_MARLO192, all, &output);
  EXPECT_EQ(output,
            "[algo]: rotate is added!\n[algo]:JointabcProcess param is invalid!\n"
            "[algo]: mirror is added!\n");
  std::vector<_ori_point> frame{FacePoint(0.5, 1)};
  marlo192->Process(frame);
  // Shifted forward by one face step before the half turn.
  EXPECT_NEAR(frame[0].y, -(2.0 + 1.0 / 3.0), 1e-6);
  EXPECT_NEAR(frame[0].x, -1.0, 1e-6);

  auto marlo128 = CreateFromConfig(LIDAR_MARLO128, all, &output);
  EXPECT_NE(output.find("[algo]: blind128 is added!"), std::string::npos);
  EXPECT_EQ(output.find("blind256 is added"), std::string::npos);
  frame = {FacePoint(0.5, 0)};
  marlo128->Process(frame);
  EXPECT_TRUE(IsRemoved(frame[0]));

  auto quill = CreateFromConfig(LIDAR_QUILL_A2, all, &output);
  EXPECT_NE(output.find("[algo]: jointabc is added!"), std::string::npos);
  frame = {FacePoint(5.0, 0), FacePoint(5.0, 1)};
  quill->Process(frame);
  EXPECT_TRUE(IsRemoved(frame[0]));
  EXPECT_NEAR(frame[1].y, -(2.0 + 1.0 / 3.0), 1e-6);

  auto small_blind = CreateFromConfig(LIDAR_MARLO256_SMALL_BLIND, all, &output);
  EXPECT_NE(output.find("[algo]: blind256 is added!"), std::string::npos);
  frame = {FacePoint(1.0, 0), FacePoint(1.0, 1)};
  small_blind->Process(frame);
  EXPECT_TRUE(IsRemoved(frame[0]));
  EXPECT_NEAR(frame[1].x, -1.0, 1e-6);
}

}  // namespace
}  // namespace velmar
