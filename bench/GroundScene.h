// Synthetic lidar scenes for the ground detection benchmark: rays of a spinning multi-channel
// sensor cast against ground, curbs, cars and walls, with the true class of every return.
#ifndef VELMAR_BENCH_GROUND_SCENE_H
#define VELMAR_BENCH_GROUND_SCENE_H

#include <cstdint>
#include <string>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace bench {

struct Box {
  double min[3];
  double max[3];
};

struct Scene {
  std::string name;
  double sensor_height = 1.8;
  double slope = 0.0;   // ground rises by this per metre of y
  double curb_x = 0.0;  // when curb_height != 0: ground is raised for x >= curb_x
  double curb_height = 0.0;
  int channels = 128;
  double azimuth_step = 0.2;  // degrees
  std::vector<Box> obstacles;
};

struct LabelledFrame {
  std::vector<_ori_point> points;
  std::vector<uint8_t> is_ground;  // per point
  std::vector<float> true_height;  // per point: height above the ground beneath it
};

// Flat ground; a 5 degree slope; a 15 cm curb; cars and walls on flat ground; a sparse sensor.
std::vector<Scene> StandardScenes();

// One revolution starting at 180 degrees on mirror face 0, echo 1, faces cycling by column.
LabelledFrame CastFrame(const Scene& scene, uint32_t seed);

}  // namespace bench
}  // namespace velmar

#endif  // VELMAR_BENCH_GROUND_SCENE_H
