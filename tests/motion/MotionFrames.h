// Synthetic revolutions for the motion algorithms: returns placed in chosen grid cells, framed by
// the points with which each model opens and closes a revolution.
#ifndef VELMAR_TESTS_MOTION_FRAMES_H
#define VELMAR_TESTS_MOTION_FRAMES_H

#include <cmath>
#include <vector>

#include "framework/AlgoBase.h"
#include "support/TestSupport.h"

namespace velmar {
namespace test {

// Unit direction of every synthetic return, so that a range change shows in all three axes.
constexpr double kDirX = 0.48;
constexpr double kDirY = 0.6;
constexpr double kDirZ = 0.64;
constexpr int kWarmUpRevolutions = 11;

inline _ori_point Return(double angle, uint32_t channel, uint32_t mirror, uint32_t echo,
                         double range) {
  _ori_point p = MakePoint(range);
  p.x = kDirX * range;
  p.y = kDirY * range;
  p.z = kDirZ * range;
  p.hor_angle = angle;
  p.channel = channel;
  p.mirror = mirror;
  p.echo = echo;
  return p;
}

inline double Norm(const _ori_point& p) {
  return std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z);
}

// The returns of `cells` between the model's revolution opener and closer. The opener and closer
// lie outside the grid, so they never take part in the votes.
inline std::vector<_ori_point> Revolution(LidarType type, const std::vector<_ori_point>& cells) {
  _ori_point opener = Return(10.0, 0, 0, 0, 0.0);
  _ori_point closer = Return(151.0, 0, 2, 0, 0.0);
  if (type == LIDAR_MARLO256 || type == LIDAR_MARLO128H) {
    opener = Return(151.0, 0, 0, 0, 0.0);
    closer = Return(20.0, 0, 1, 0, 0.0);
  } else if (type == LIDAR_MARLO128) {
    closer = Return(10.0, 0, 0, 0, 0.0);
    closer.mark = 1;
  }
  std::vector<_ori_point> frame{opener};
  frame.insert(frame.end(), cells.begin(), cells.end());
  frame.push_back(closer);
  return frame;
}

// Runs `count` revolutions of the same returns; every output must equal its input.
inline ::testing::AssertionResult RunUnchanged(AlgoBase& algo, LidarType type,
                                               const std::vector<_ori_point>& cells, int count) {
  for (int i = 0; i < count; ++i) {
    const std::vector<_ori_point> input = Revolution(type, cells);
    std::vector<_ori_point> frame = input;
    algo.Process(frame);
    if (!SameBytes(frame, input)) {
      return ::testing::AssertionFailure() << "revolution " << i + 1 << " changed";
    }
  }
  return ::testing::AssertionSuccess();
}

inline std::vector<_ori_point> RunOnce(AlgoBase& algo, LidarType type,
                                       const std::vector<_ori_point>& cells) {
  std::vector<_ori_point> frame = Revolution(type, cells);
  algo.Process(frame);
  return frame;
}

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_MOTION_FRAMES_H
