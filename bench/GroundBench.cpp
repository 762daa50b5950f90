// Ground detection on generated scenes: share of ground returns found (recall), share of other
// returns wrongly taken for ground (false positives), and the time of one fit.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <vector>

#include "GroundScene.h"
#include "ground/GroundDet.h"
#include "ground/i_ground.h"

namespace velmar {
namespace bench {
namespace {

constexpr std::size_t kFitReturns = 150000;
constexpr int kTimingRuns = 21;

struct Counts {
  std::size_t ground = 0;
  std::size_t ground_found = 0;
  std::size_t other = 0;
  std::size_t other_taken = 0;
  std::size_t raised = 0;  // other returns standing clear of the ground band
  std::size_t raised_taken = 0;
};

double Percent(std::size_t part, std::size_t whole) {
  return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

// Only returns nearer than 40 m and below the sampled band's top are ever classified, so the
// figures are over those. False positives are given over all other returns and over those that
// stand clear of the ground band: a wall foot or a curb face within the band is ground by height
// and no plane can tell it apart.
void MeasureScene(const Scene& scene) {
  GroundDet det("ground", "", LIDAR_MARLO128);
  det.num_params["filter_ground_points_flag"] = 1;
  det.ParseParams();
  LabelledFrame first = CastFrame(scene, 1);
  det.Process(first.points);  // collects the reference face and fits at the end
  LabelledFrame second = CastFrame(scene, 2);
  const std::vector<_ori_point> before = second.points;
  det.Process(second.points);
  Counts counts;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const bool taken = second.points[i].distance == 0.0;
    if (!(before[i].distance < 40.0 && before[i].z < det.detector_param.sample_region_z_upper)) {
      continue;
    }
    if (second.is_ground[i]) {
      ++counts.ground;
      counts.ground_found += taken ? 1 : 0;
    } else {
      ++counts.other;
      counts.other_taken += taken ? 1 : 0;
      if (std::fabs(second.true_height[i]) > det.filter_ground_points_threshold) {
        ++counts.raised;
        counts.raised_taken += taken ? 1 : 0;
      }
    }
  }
  std::printf(
      "%-16s %7zu returns | ground %6zu recall %6.2f%% | other %6zu false pos %5.2f%% |"
      " clear of band %6zu false pos %5.2f%%\n",
      scene.name.c_str(), before.size(), counts.ground, Percent(counts.ground_found, counts.ground),
      counts.other, Percent(counts.other_taken, counts.other), counts.raised,
      Percent(counts.raised_taken, counts.raised));
}

struct FitTimes {
  double wall_ms;
  double cpu_ms;
};

// Medians of the wall time and of the process's processor time of one fit; the second is less
// disturbed by other work on a shared machine.
FitTimes MedianFitTimes(const std::vector<float>& coords) {
  PlaneFitGroundDetector detector{PlaneFitGroundDetectorParam()};
  detector.Init();
  std::vector<double> wall;
  std::vector<double> cpu;
  for (int run = 0; run < kTimingRuns; ++run) {
    const std::clock_t cpu_start = std::clock();
    const auto start = std::chrono::steady_clock::now();
    detector.Detect(coords.data(), static_cast<unsigned>(coords.size() / 3), 3);
    const auto stop = std::chrono::steady_clock::now();
    const std::clock_t cpu_stop = std::clock();
    wall.push_back(std::chrono::duration<double, std::milli>(stop - start).count());
    cpu.push_back(1000.0 * static_cast<double>(cpu_stop - cpu_start) / CLOCKS_PER_SEC);
  }
  std::nth_element(wall.begin(), wall.begin() + kTimingRuns / 2, wall.end());
  std::nth_element(cpu.begin(), cpu.begin() + kTimingRuns / 2, cpu.end());
  return {wall[kTimingRuns / 2], cpu[kTimingRuns / 2]};
}

// Fills `coords` with kFitReturns returns of the scene, taking only those `keep` accepts.
template <typename Keep>
std::vector<float> FitInput(const Scene& scene, Keep keep) {
  std::vector<float> coords;
  for (uint32_t seed = 10; coords.size() < 3 * kFitReturns; ++seed) {
    const LabelledFrame frame = CastFrame(scene, seed);
    for (std::size_t i = 0; i < frame.points.size() && coords.size() < 3 * kFitReturns; ++i) {
      const _ori_point& p = frame.points[i];
      if (keep(p)) {
        coords.push_back(static_cast<float>(p.x));
        coords.push_back(static_cast<float>(p.y));
        coords.push_back(static_cast<float>(p.z));
      }
    }
  }
  return coords;
}

void MeasureFitTime(const Scene& scene) {
  const std::vector<float> any = FitInput(scene, [](const _ori_point&) { return true; });
  const std::vector<float> low =
      FitInput(scene, [](const _ori_point& p) { return p.z < -1.0 && p.distance < 40.0; });
  const FitTimes as_cast = MedianFitTimes(any);
  const FitTimes near_low = MedianFitTimes(low);
  std::printf(
      "fit of %zu returns (%s): as cast %.2f ms (cpu %.2f ms); all near and low %.2f ms"
      " (cpu %.2f ms)\n",
      kFitReturns, scene.name.c_str(), as_cast.wall_ms, as_cast.cpu_ms, near_low.wall_ms,
      near_low.cpu_ms);
}

}  // namespace
}  // namespace bench
}  // namespace velmar

int main() {
  using namespace velmar::bench;
  const std::vector<Scene> scenes = StandardScenes();
  for (const Scene& scene : scenes) {
    MeasureScene(scene);
  }
  MeasureFitTime(scenes[3]);
  return 0;
}
