// The weather filters assembled from a configuration file and run through the public interface.
#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

constexpr const char* kConfig = R"({
  "version": "2.0.6",
  "algo_list": [
    {"id": 20, "enabled": true, "name": "close_range", "desc": "", "lidar_type": [],
     "param": {"filter_channel_range": 6, "filter_farthest_distance": 2,
               "filter_closest_distance": 0.3, "filter_distance_threshold": 5}},
    {"id": 15, "enabled": true, "name": "sunlight3", "desc": "", "lidar_type": [], "param": {}},
    {"id": 13, "enabled": true, "name": "rainfog", "desc": "", "lidar_type": [],
     "param": {"rainfog_filter_range": 1, "big_reflecttion": 9}},
    {"id": 3, "enabled": true, "name": "sunlight2", "desc": "", "lidar_type": [], "param": {}},
    {"id": 2, "enabled": true, "name": "sunlight", "desc": "", "lidar_type": [],
     "param": {"leftReflectThreshold": 100, "rightReflectThreshold": 400, "validDistance": 10,
               "filterWindowV": 3, "filterWindowH": 5}}
  ]
})";

std::string AddedBy(LidarType type, std::unique_ptr<ILidarAlgo>* pipeline) {
  const std::string path = test::WriteTempFile(kConfig);
  return test::CaptureOutput([&] { *pipeline = ILidarAlgo::Create(type, path); });
}

TEST(WeatherPipeline, EachModelGetsItsFilters) {
  std::unique_ptr<ILidarAlgo> pipeline;
  EXPECT_EQ(AddedBy(LIDAR_QUILL_A4, &pipeline),
            "[algo]: close_range is added!\n[algo]: rainfog is added!\n");
  EXPECT_EQ(AddedBy(LIDAR_ZEPHEL_B1, &pipeline),
            "[algo]: sunlight3 is added!\n[algo]: rainfog is added!\n");
  EXPECT_EQ(AddedBy(LIDAR_MARLO256, &pipeline),
            "[algo]: sunlight2 is added!\n[algo]: sunlight is added!\n");
  EXPECT_EQ(AddedBy(LIDAR_MARLO128H, &pipeline), "[algo]: sunlight is added!\n");
}

TEST(WeatherPipeline, QuillA4RunsRainfogAndCloseRange) {
  std::unique_ptr<ILidarAlgo> pipeline;
  AddedBy(LIDAR_QUILL_A4, &pipeline);
  std::vector<_ori_point> frame = test::MakeFrame(128, 20.0);
  for (std::size_t k = 0; k < frame.size(); ++k) {
    frame[k].channel = static_cast<uint32_t>(k % 64);
    frame[k].hor_angle = 40.0;
    frame[k].pulse_width = 50.0;
  }
  frame[7].distance = 1.0;    // marks the low edge of column 0
  frame[30].distance = 10.0;  // far band, strength 2.25 under the preset's 2.88
  frame[30].pulse_width = 1.5;
  frame[31].distance = 10.0;  // strength 3.0: above the preset, though under the configured 9
  frame[31].pulse_width = 2.0;
  pipeline->Process(frame);
  for (std::size_t k = 0; k < 6; ++k) {
    EXPECT_EQ(frame[k].distance, 0.0) << k;
  }
  EXPECT_EQ(frame[6].distance, 20.0);
  EXPECT_EQ(frame[30].distance, 0.0);
  EXPECT_EQ(frame[31].distance, 10.0);
}

TEST(WeatherPipeline, Marlo128HDelaysFramesUntilCleared) {
  std::unique_ptr<ILidarAlgo> pipeline;
  AddedBy(LIDAR_MARLO128H, &pipeline);
  const auto run = [&](uint64_t stamp) {
    std::vector<_ori_point> frame = test::MakeFrame(4, 5.0);
    for (_ori_point& p : frame) {
      p.intensity = 100.0;
      p.timestamp = stamp;
    }
    pipeline->Process(frame);
    return frame[0].timestamp;
  };
  for (uint64_t k = 1; k <= 5; ++k) {
    EXPECT_EQ(run(k), k);
  }
  EXPECT_EQ(run(6), 5u);
  pipeline->ClearCache();
  EXPECT_EQ(run(7), 7u);
}

}  // namespace
}  // namespace velmar
