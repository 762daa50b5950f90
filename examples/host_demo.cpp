// A minimal host: it creates a pipeline from a configuration file, hands it a few frames the way a
// sensor driver would, and reports what the pipeline changed.
//
//   host_demo configs/demo.json
#include <velmar/lidar_algo.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

velmar::_ori_point MakeReturn(double range, double elevationDeg, double azimuthDeg,
                              double pulseWidth, unsigned channel) {
  velmar::_ori_point p;
  std::memset(&p, 0, sizeof(p));
  const double kDegToRad = 3.14159265358979323846 / 180.0;
  const double horizontal = range * std::cos(elevationDeg * kDegToRad);
  p.x = horizontal * std::cos(azimuthDeg * kDegToRad);
  p.y = horizontal * std::sin(azimuthDeg * kDegToRad);
  p.z = range * std::sin(elevationDeg * kDegToRad);
  p.distance = range;
  p.intensity = 40.0;
  p.pulse_width = pulseWidth;
  p.channel = channel;
  p.hor_angle = azimuthDeg;
  return p;
}

// One column sweep of a 64-channel sensor over a flat road 1.9 m below it, a wall at 25 m, a few
// rain drops near the sensor and a reflection below the road surface.
std::vector<velmar::_ori_point> BuildFrame(int frameIndex) {
  std::vector<velmar::_ori_point> frame;
  for (int column = 0; column < 20; ++column) {
    const double azimuth = 40.0 + column * 2.0 + frameIndex * 0.5;
    for (unsigned channel = 0; channel < 64; ++channel) {
      const double elevation = -25.0 + channel * 0.5;
      double range = 25.0 / std::cos(elevation * 3.14159265358979323846 / 180.0);
      if (elevation < -4.4) {
        range = 1.9 / std::sin(-elevation * 3.14159265358979323846 / 180.0);
      }
      frame.push_back(MakeReturn(range, elevation, azimuth, 60.0, channel));
    }
    frame.push_back(MakeReturn(2.0 + 0.1 * column, 1.0, azimuth, 4.0, 30));  // rain drop
    frame.push_back(MakeReturn(12.0, -20.0, azimuth, 60.0, 5));              // under the road
    frame.push_back(MakeReturn(1.5, 5.0, azimuth, 60.0, 63));                // housing echo
  }
  return frame;
}

std::size_t CountKept(const std::vector<velmar::_ori_point>& frame) {
  std::size_t kept = 0;
  for (const velmar::_ori_point& p : frame) {
    kept += p.distance != 0.0 ? 1 : 0;
  }
  return kept;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CONFIG.json\n", argv[0]);
    return 2;
  }
  std::printf("libalgo %s\n", velmar::ILidarAlgo::VersionNumber().c_str());
  std::unique_ptr<velmar::ILidarAlgo> pipeline =
      velmar::ILidarAlgo::Create(velmar::LIDAR_ZEPHEL_B1, argv[1]);

  for (int i = 0; i < 3; ++i) {
    std::vector<velmar::_ori_point> frame = BuildFrame(i);
    const std::size_t before = CountKept(frame);
    pipeline->Process(frame);  // in place; removed points keep their slot with distance 0
    const std::size_t after = CountKept(frame);
    std::printf("frame %d: %zu returns, %zu kept, %zu removed\n", i, before, after, before - after);
  }
  return 0;
}
