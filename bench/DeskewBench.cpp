// The moving-platform undistortion (34): its time per Marlo128 frame beside a copy of the frame,
// the accuracy of its velocity estimate on simulated city and highway drives, and the estimate on
// real frames (kitti-00, already deskewed by their authors), with the consistency of the
// estimates over one and two frame steps.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "CountingAllocator.h"
#include "framework/AlgoCommon.h"
#include "motion/UndistortPointMove.h"
#include "sim/Simulator.h"

namespace velmar {
namespace bench {
namespace {

// Thread CPU time: on a machine shared with other work, time spent preempted is not the
// algorithm's.
double CpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// One copy of `points` records, in thread CPU time (median of 15).
double CopyCpuSeconds(std::size_t points) {
  static std::vector<_ori_point> from;
  static std::vector<_ori_point> to;
  from.resize(points);
  to.resize(points);
  std::vector<double> runs;
  for (int run = 0; run < 15; ++run) {
    const double start = CpuSeconds();
    std::memcpy(static_cast<void*>(to.data()), from.data(), points * sizeof(_ori_point));
    benchmark::ClobberMemory();
    runs.push_back(CpuSeconds() - start);
  }
  std::nth_element(runs.begin(), runs.begin() + runs.size() / 2, runs.end());
  return runs[runs.size() / 2];
}
constexpr double kRadToDeg = 180.0 / kPi;
constexpr double kMs = 1e3;

std::shared_ptr<UndistortPointMove> MakeDeskew(LidarType type, const std::string& params) {
  auto a = std::dynamic_pointer_cast<UndistortPointMove>(MakeAlgo(34, type, params));
  return a;
}

double Median(std::vector<double> values) {
  if (values.empty()) {
    return 0.0;
  }
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

sim::SimulationSettings Drive(const std::string& model, const std::string& scene, double speed,
                              double yawRate, uint32_t frames) {
  sim::SimulationSettings s;
  s.model = model;
  s.scene.name = scene;
  s.scene.egoSpeed = speed;
  s.scene.yawRate = yawRate;
  s.frames = frames;
  s.seed = 3;
  return s;
}

// Feeds a frame as packets of `packet` points (0: whole), cut from the generated frame before
// the clock starts; returns the thread CPU seconds spent in Process and counts allocations. One
// clock reading per frame: a reading of the thread's CPU clock costs a system call, which per
// packet would weigh as much as the work.
double Feed(AlgoBase& algo, const std::vector<_ori_point>& frame, std::size_t packet,
            std::vector<std::vector<_ori_point>>& packets, uint64_t& allocations) {
  const std::size_t step = packet == 0 ? frame.size() : packet;
  const std::size_t count = (frame.size() + step - 1) / step;
  packets.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t begin = i * step;
    const std::size_t end = std::min(frame.size(), begin + step);
    packets[i].assign(frame.begin() + static_cast<std::ptrdiff_t>(begin),
                      frame.begin() + static_cast<std::ptrdiff_t>(end));
  }
  const uint64_t before = AllocationCount();
  const double start = CpuSeconds();
  for (std::vector<_ori_point>& work : packets) {
    algo.Process(work);
  }
  const double spent = CpuSeconds() - start;
  allocations += AllocationCount() - before;
  return spent;
}

// Time per frame on a turning Marlo128 city drive: the deskew with a configured velocity, and the
// deskew with the velocity estimated (the registration at each frame end included).
void Timing() {
  constexpr uint32_t kFrames = 14;
  constexpr uint32_t kWarmup = 4;
  const sim::SimulationSettings settings = Drive("Marlo128", "city", 10.0, 30.0, kFrames);
  sim::Simulator simulator(settings);
  struct Case {
    const char* name;
    std::string params;
    std::size_t packet;
    std::shared_ptr<UndistortPointMove> algo;
    std::vector<double> seconds;
    std::vector<double> copies;
    uint64_t allocations = 0;
    double first = 0.0;  // the first registration, which starts from the coarse search
  };
  std::vector<Case> cases = {
      {"deskew, configured velocity, whole frames",
       R"({"estimate_motion": 0, "forward_speed": 10, "yaw_rate": 30})",
       0,
       nullptr,
       {},
       {}},
      {"deskew, configured velocity, packets of 128",
       R"({"estimate_motion": 0, "forward_speed": 10, "yaw_rate": 30})",
       128,
       nullptr,
       {},
       {}},
      {"deskew + estimation, packets of 128", "{}", 128, nullptr, {}, {}},
      {"estimation only (deskew 0), packets of 128", R"({"deskew": 0})", 128, nullptr, {}, {}},
  };
  for (Case& c : cases) {
    c.algo = MakeDeskew(LIDAR_MARLO128, c.params);
  }
  std::vector<_ori_point> frame;
  std::vector<std::vector<_ori_point>> work;
  for (uint32_t k = 0; k < kFrames; ++k) {
    simulator.GenerateFrame(k, frame);
    for (Case& c : cases) {
      uint64_t allocations = 0;
      const double seconds = Feed(*c.algo, frame, c.packet, work, allocations);
      if (k == 1) {
        c.first = seconds;
      }
      if (k >= kWarmup) {
        c.seconds.push_back(seconds);
        c.copies.push_back(CopyCpuSeconds(frame.size()));
        c.allocations += allocations;
      }
    }
  }
  std::printf(
      "Time per Marlo128 frame (%zu points), city drive at 10 m/s turning 30 deg/s,\n"
      "medians over frames %u to %u, thread CPU time:\n\n",
      frame.size(), kWarmup, kFrames - 1);
  std::printf("| Case | Time per frame | Copy of the frame | x copy | Allocs/frame | Frame 1 |\n");
  std::printf("|---|---|---|---|---|---|\n");
  for (const Case& c : cases) {
    const double time = Median(c.seconds);
    const double copy = Median(c.copies);
    std::printf("| %s | %.1f ms | %.1f ms | %.2f | %.1f | %.1f ms |\n", c.name, time * kMs,
                copy * kMs, time / copy, static_cast<double>(c.allocations) / c.seconds.size(),
                c.first * kMs);
  }
  std::printf("\n");
}

// The estimate after each frame of a drive against the true velocity. Each frame's status:
// '-' no estimate yet, '.' converged, 'd' degenerate (some directions kept), 'f' fallback.
void Accuracy(const std::string& model, const std::string& scene, double speed, double yawRate,
              uint64_t seed = 3, bool startGiven = false) {
  constexpr uint32_t kFrames = 12;
  constexpr uint32_t kSettled = 3;
  sim::SimulationSettings settings = Drive(model, scene, speed, yawRate, kFrames);
  settings.seed = seed;
  sim::Simulator simulator(settings);
  auto algo = MakeDeskew(simulator.Model().type,
                         startGiven ? "{\"forward_speed\": " + std::to_string(speed) + "}" : "{}");
  std::vector<_ori_point> frame;
  std::vector<std::vector<_ori_point>> work;
  std::string statuses;
  double speedError = 0.0;
  double yawError = 0.0;
  double worstSpeed = 0.0;
  double worstYaw = 0.0;
  uint32_t counted = 0;
  for (uint32_t k = 0; k < kFrames; ++k) {
    simulator.GenerateFrame(k, frame);
    uint64_t allocations = 0;
    Feed(*algo, frame, simulator.Model().packetPoints, work, allocations);
    const RegistrationResult& r = algo->LastRegistration();
    char status = '-';
    if (algo->HasMotion()) {
      status = r.status == RegistrationStatus::kConverged    ? '.'
               : r.status == RegistrationStatus::kDegenerate ? 'd'
                                                             : 'f';
    }
    statuses += status;
    if (k >= kSettled && algo->HasMotion()) {
      const double ds = std::fabs(algo->Motion().linear.y() - speed);
      const double dy = std::fabs(algo->Motion().angular.z() * kRadToDeg - yawRate);
      speedError += ds;
      yawError += dy;
      worstSpeed = std::max(worstSpeed, ds);
      worstYaw = std::max(worstYaw, dy);
      ++counted;
    }
  }
  if (counted == 0) {
    std::printf("| %s | %s%s | %.0f m/s, %.0f deg/s | %llu | no estimate | | %s |\n", model.c_str(),
                scene.c_str(), startGiven ? ", speed given at start" : "", speed, yawRate,
                static_cast<unsigned long long>(seed), statuses.c_str());
    return;
  }
  std::printf("| %s | %s%s | %.0f m/s, %.0f deg/s | %llu | %.3f (%.3f) | %.2f (%.2f) | %s |\n",
              model.c_str(), scene.c_str(), startGiven ? ", speed given at start" : "", speed,
              yawRate, static_cast<unsigned long long>(seed), speedError / counted, worstSpeed,
              yawError / counted, worstYaw, statuses.c_str());
}

// A KITTI .bin frame (float x forward, y left, z up, reflectance) as records in this library's
// axes (x right, y forward), with range and horizontal angle; the last point closes the frame.
bool ReadKittiFrame(const std::string& path, std::vector<_ori_point>& frame) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return false;
  }
  frame.clear();
  float v[4];
  while (file.read(reinterpret_cast<char*>(v), sizeof(v))) {
    _ori_point p{};
    p.x = -v[1];
    p.y = v[0];
    p.z = v[2];
    p.intensity = v[3];
    p.distance = std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z);
    p.hor_angle = std::fmod(std::atan2(p.y, p.x) * kRadToDeg + 360.0, 360.0);
    frame.push_back(p);
  }
  if (!frame.empty()) {
    frame.back().mark = 1;
  }
  return !frame.empty();
}

// The frames are already deskewed: deskew off, estimation on. They are 0.1 s apart, as the
// spinning model's frames are.
PlatformMotion EstimateOver(const std::vector<const std::vector<_ori_point>*>& frames) {
  auto algo = MakeDeskew(LIDAR_ORVIK16, R"({"deskew": 0})");
  std::vector<_ori_point> work;
  for (const std::vector<_ori_point>* frame : frames) {
    work = *frame;
    algo->Process(work);
  }
  return algo->HasMotion() ? algo->Motion() : PlatformMotion();
}

void Kitti(const std::string& folder) {
  std::vector<std::vector<_ori_point>> frames;
  for (int k = 0;; ++k) {
    char name[32];
    std::snprintf(name, sizeof(name), "/%06d.bin", k);
    std::vector<_ori_point> frame;
    if (!ReadKittiFrame(folder + name, frame)) {
      break;
    }
    frames.push_back(std::move(frame));
  }
  if (frames.size() < 3) {
    std::printf("kitti-00: no frames in %s, skipped\n", folder.c_str());
    return;
  }
  constexpr double kPeriod = 0.1;
  std::printf("kitti-00 (%zu frames, %zu points in the first), estimation only:\n\n", frames.size(),
              frames[0].size());
  std::printf("| Frames | Speed | Yaw rate | Sideways | Vertical |\n|---|---|---|---|---|\n");
  std::vector<PlatformMotion> pair(frames.size());
  auto algo = MakeDeskew(LIDAR_ORVIK16, R"({"deskew": 0})");
  std::vector<_ori_point> work;
  for (std::size_t k = 0; k < frames.size(); ++k) {
    work = frames[k];
    algo->Process(work);
    if (k == 0) {
      continue;
    }
    pair[k] = algo->Motion();
    std::printf("| %zu -> %zu | %.3f m/s | %.3f deg/s | %.3f m/s | %.3f m/s |\n", k - 1, k,
                pair[k].linear.y(), pair[k].angular.z() * kRadToDeg, pair[k].linear.x(),
                pair[k].linear.z());
  }
  std::printf(
      "\nConsistency: frame k to k+2 registered directly against the two steps composed\n\n");
  std::printf(
      "| Frames | Travel direct | Travel composed | Difference | Heading direct | "
      "Heading composed |\n|---|---|---|---|---|---|\n");
  for (std::size_t k = 0; k + 2 < frames.size(); ++k) {
    const PlatformMotion direct = EstimateOver({&frames[k], &frames[k + 2]});
    const RigidMotion d = MotionOver(direct, kPeriod);
    const RigidMotion a = MotionOver(pair[k + 1], kPeriod);
    const RigidMotion b = MotionOver(pair[k + 2], kPeriod);
    const Eigen::Vector3d composed = a.rotation * b.translation + a.translation;
    const Eigen::Matrix3d turn = a.rotation * b.rotation;
    const double headingDirect = std::atan2(d.rotation(1, 0), d.rotation(0, 0)) * kRadToDeg;
    const double headingComposed = std::atan2(turn(1, 0), turn(0, 0)) * kRadToDeg;
    std::printf("| %zu -> %zu | %.3f m | %.3f m | %.3f m | %.3f deg | %.3f deg |\n", k, k + 2,
                d.translation.norm(), composed.norm(), (d.translation - composed).norm(),
                headingDirect, headingComposed);
  }
  std::printf("\n");
}

}  // namespace
}  // namespace bench
}  // namespace velmar

int main(int argc, char** argv) {
  using namespace velmar::bench;
  const std::string part = argc > 1 ? argv[1] : "all";
  if (part == "all" || part == "timing") {
    Timing();
  }
  // One drive over several seeds, the speed optionally given as the estimation's start:
  // deskew_bench drive MODEL SCENE SPEED YAW_RATE SEEDS [given]
  if (part == "drive" && argc >= 7) {
    const int seeds = std::atoi(argv[6]);
    const bool given = argc > 7 && std::string(argv[7]) == "given";
    for (int seed = 1; seed <= seeds; ++seed) {
      Accuracy(argv[2], argv[3], std::atof(argv[4]), std::atof(argv[5]),
               static_cast<uint64_t>(seed), given);
    }
  }
  if (part == "all" || part == "accuracy") {
    std::printf(
        "Velocity estimated on simulated drives, seeds 1 to 4 (packets; errors over frames 3 to\n"
        "11: mean (worst); statuses per frame: '-' none yet, '.' converged, 'd' degenerate, 'f'\n"
        "fallback):\n\n");
    std::printf(
        "| Model | Scene | True motion | Seed | Speed error m/s | Yaw-rate error deg/s | Frames "
        "|\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    struct DriveCase {
      const char* model;
      const char* scene;
      double speed;
      double yawRate;
      bool speedGiven;
    };
    const DriveCase drives[] = {
        {"Marlo128", "city", 10.0, 30.0, false},      {"Marlo128", "city", 10.0, 0.0, false},
        {"Marlo128", "city", -5.0, -20.0, false},     {"QuillA4", "city", 15.0, 10.0, false},
        {"ZephelB2/B3/MP", "city", 8.0, 10.0, false}, {"ZephelT", "city", 8.0, -25.0, false},
        {"Orvik16", "city", 10.0, 20.0, false},       {"Marlo128", "highway", 25.0, 0.0, false},
        {"QuillA4", "highway", 25.0, 0.0, false},     {"Marlo128", "highway", 25.0, 0.0, true},
        {"Marlo128", "highway", 30.0, 5.0, true},     {"QuillA4", "highway", 25.0, 0.0, true},
    };
    for (const DriveCase& d : drives) {
      for (uint64_t seed = 1; seed <= 4; ++seed) {
        Accuracy(d.model, d.scene, d.speed, d.yawRate, seed, d.speedGiven);
      }
    }
    std::printf("\n");
  }
  if (part == "all" || part == "kitti") {
    Kitti(argc > 2 ? argv[2] : VELMAR_SHARED_DATA_DIR "/kitti-00");
  }
  return 0;
}
