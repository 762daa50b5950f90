// The weather filters assembled from a configuration file through the public interface.
#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

TEST(WeatherPipeline, EachModelGetsItsFiltersInIdOrder) {
  const std::string path = test::WriteTempFile(R"({"version": "2.0.6", "algo_list": [
    {"id": 20, "enabled": true, "name": "close", "desc": "", "lidar_type": [], "param": {}},
    {"id": 15, "enabled": true, "name": "sun3", "desc": "", "lidar_type": [], "param": {}},
    {"id": 13, "enabled": true, "name": "rain", "desc": "", "lidar_type": [],
     "param": {"rainfog_filter_range": 1}},
    {"id": 3, "enabled": true, "name": "sun2", "desc": "", "lidar_type": [], "param": {}},
    {"id": 2, "enabled": true, "name": "sun", "desc": "", "lidar_type": [],
     "param": {"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5}}]})");
  const auto added = [&](LidarType type, std::unique_ptr<ILidarAlgo>* pipeline) {
    return test::CaptureOutput([&] { *pipeline = ILidarAlgo::Create(type, path); });
  };
  std::unique_ptr<ILidarAlgo> pipeline;
  EXPECT_EQ(added(LIDAR_ZEPHEL_B1, &pipeline), "[algo]: sun3 is added!\n[algo]: rain is added!\n");
  EXPECT_EQ(added(LIDAR_MARLO256, &pipeline), "[algo]: sun2 is added!\n[algo]: sun is added!\n");
  EXPECT_EQ(added(LIDAR_MARLO128H, &pipeline), "[algo]: sun is added!\n");
  EXPECT_EQ(added(LIDAR_QUILL_A4, &pipeline), "[algo]: close is added!\n[algo]: rain is added!\n");

  // Rain preset 1 (far strength under 2.88) and the close-range low edge, in one packet.
  std::vector<_ori_point> frame = test::MakeFrame(128, 20.0);
  for (std::size_t k = 0; k < frame.size(); ++k) {
    frame[k].channel = static_cast<uint32_t>(k % 64);
    frame[k].hor_angle = 40.0;
    frame[k].pulse_width = k == 30 ? 1.5 : 50.0;
  }
  frame[7].distance = 1.0;
  frame[30].distance = 10.0;
  pipeline->Process(frame);
  for (std::size_t k : {0u, 5u, 30u}) {
    EXPECT_EQ(frame[k].distance, 0.0) << k;
  }
  EXPECT_EQ(frame[6].distance, 20.0);
}

}  // namespace
}  // namespace velmar
