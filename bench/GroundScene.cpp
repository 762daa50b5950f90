#include "GroundScene.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace velmar {
namespace bench {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kMaxRange = 200.0;
constexpr double kRangeNoise = 0.02;  // metres, one standard deviation
constexpr double kLowestBeamDeg = -25.0;
constexpr double kHighestBeamDeg = 15.0;
constexpr double kStartAzimuthDeg = 180.0;
constexpr double kNoHit = std::numeric_limits<double>::infinity();

double GroundZ(const Scene& s, double x, double y) {
  const double raised = (s.curb_height != 0.0 && x >= s.curb_x) ? s.curb_height : 0.0;
  return -s.sensor_height + s.slope * y + raised;
}

// Distance along the unit ray `d` from the origin to the plane z = -height + slope*y + lift.
double HitGroundPlane(const Scene& s, const double d[3], double lift) {
  const double denominator = d[2] - s.slope * d[1];
  const double t = (-s.sensor_height + lift) / denominator;
  return (denominator != 0.0 && t > 0.0) ? t : kNoHit;
}

double HitGround(const Scene& s, const double d[3], bool* ground) {
  *ground = true;
  if (s.curb_height == 0.0) {
    return HitGroundPlane(s, d, 0.0);
  }
  double best = kNoHit;
  const double low = HitGroundPlane(s, d, 0.0);
  if (low < kNoHit && low * d[0] < s.curb_x) {
    best = low;
  }
  const double high = HitGroundPlane(s, d, s.curb_height);
  if (high < best && high * d[0] >= s.curb_x) {
    best = high;
  }
  if (d[0] > 0.0) {  // the vertical face of the curb
    const double t = s.curb_x / d[0];
    const double z = t * d[2];
    const double base = GroundZ(s, s.curb_x - 1e-9, t * d[1]);
    if (t < best && z >= base && z <= base + s.curb_height) {
      best = t;
      *ground = false;
    }
  }
  return best;
}

double HitBox(const Box& box, const double d[3]) {
  double near = 0.0;
  double far = kNoHit;
  for (int axis = 0; axis < 3; ++axis) {
    if (d[axis] == 0.0) {
      if (box.min[axis] > 0.0 || box.max[axis] < 0.0) {
        return kNoHit;
      }
      continue;
    }
    double t0 = box.min[axis] / d[axis];
    double t1 = box.max[axis] / d[axis];
    if (t0 > t1) {
      std::swap(t0, t1);
    }
    near = std::max(near, t0);
    far = std::min(far, t1);
  }
  return near <= far && near > 0.0 ? near : kNoHit;
}

Box Car(double x, double y, double ground) {
  return Box{{x - 0.9, y - 2.25, ground + 0.25}, {x + 0.9, y + 2.25, ground + 1.5}};
}

}  // namespace

std::vector<Scene> StandardScenes() {
  std::vector<Scene> scenes;
  Scene flat;
  flat.name = "flat ground";
  scenes.push_back(flat);

  Scene slope = flat;
  slope.name = "5 degree slope";
  slope.slope = std::tan(5.0 * kPi / 180.0);
  scenes.push_back(slope);

  Scene curb = flat;
  curb.name = "15 cm curb";
  curb.curb_x = 6.0;
  curb.curb_height = 0.15;
  scenes.push_back(curb);

  Scene street = flat;
  street.name = "cars and walls";
  const double ground = -street.sensor_height;
  for (int k = -3; k <= 3; ++k) {
    street.obstacles.push_back(Car(-4.0, 7.0 * k + 1.0, ground));
    street.obstacles.push_back(Car(4.5, 7.0 * k - 2.0, ground));
  }
  street.obstacles.push_back(Car(-12.0, 18.0, ground));
  street.obstacles.push_back(Box{{9.0, -30.0, ground}, {9.4, 30.0, ground + 4.0}});
  street.obstacles.push_back(Box{{-30.0, 26.0, ground}, {30.0, 26.4, ground + 3.0}});
  scenes.push_back(street);

  Scene sparse = flat;
  sparse.name = "sparse sensor";
  sparse.channels = 32;
  sparse.azimuth_step = 0.4;
  scenes.push_back(sparse);
  return scenes;
}

LabelledFrame CastFrame(const Scene& scene, uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> noise(0.0, kRangeNoise);
  LabelledFrame frame;
  const int columns = static_cast<int>(std::lround(360.0 / scene.azimuth_step));
  const double beam_step = (kHighestBeamDeg - kLowestBeamDeg) / (scene.channels - 1);
  for (int column = 0; column < columns; ++column) {
    const double azimuth = std::fmod(kStartAzimuthDeg + column * scene.azimuth_step, 360.0);
    for (int channel = 0; channel < scene.channels; ++channel) {
      const double elevation = (kLowestBeamDeg + channel * beam_step) * kPi / 180.0;
      const double a = azimuth * kPi / 180.0;
      const double d[3] = {std::cos(elevation) * std::sin(a), std::cos(elevation) * std::cos(a),
                           std::sin(elevation)};
      bool ground = false;
      double t = HitGround(scene, d, &ground);
      for (const Box& box : scene.obstacles) {
        const double hit = HitBox(box, d);
        if (hit < t) {
          t = hit;
          ground = false;
        }
      }
      if (!(t <= kMaxRange)) {
        continue;
      }
      const double range = t + noise(rng);
      _ori_point p;
      std::memset(&p, 0, sizeof(p));
      p.x = range * d[0];
      p.y = range * d[1];
      p.z = range * d[2];
      p.distance = range;
      p.channel = static_cast<uint32_t>(channel);
      p.hor_angle = azimuth;
      p.mirror = static_cast<uint32_t>(column % 3);
      p.echo = 1;
      frame.points.push_back(p);
      frame.is_ground.push_back(ground ? 1 : 0);
      // The curb face stands on the road: its height is measured from the road's side.
      const bool on_face =
          scene.curb_height != 0.0 && !ground && std::fabs(p.x - scene.curb_x) < 0.05;
      const double below_x = on_face ? scene.curb_x - 1.0 : p.x;
      frame.true_height.push_back(static_cast<float>(p.z - GroundZ(scene, below_x, p.y)));
    }
  }
  return frame;
}

}  // namespace bench
}  // namespace velmar
