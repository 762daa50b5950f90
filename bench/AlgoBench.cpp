// Time per frame of every algorithm of the library on simulated frames, in steady state.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "geometry/CalibTable.h"
#include "geometry/RoadMap.h"

namespace velmar {
namespace bench {
namespace {

// How an algorithm is fed: whole frames, or packets of the drive's packet size, or packets of a
// fixed size (the column filters work on two columns of 64 points).
enum class Feed { kFrame, kDrivePacket, kPacket128 };

// The targets each algorithm is measured against, as a ratio to one copy of the frame.
enum class Kind { kSinglePass, kGridHistory, kFrameHistory, kClustering };

struct AlgoCase {
  int id;
  const char* name;
  LidarType type;     // the pipeline's model
  std::string drive;  // the simulated model whose frames it is fed
  Feed feed;
  Kind kind;
  std::string params;
  bool strongReturnArtefacts = false;  // fed a drive with crosstalk, ghosts and blooming
};

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kSinglePass:
      return "single-pass";
    case Kind::kGridHistory:
      return "grid-history";
    case Kind::kFrameHistory:
      return "frame-history";
    case Kind::kClustering:
      return "clustering";
  }
  return "";
}

// A star-shaped road region around the sensor with `points` vertices, its radius wandering
// between 15 and 60 m with a few centimetres of jitter, as a surveyed boundary does.
std::string StarMapText(int points) {
  std::vector<MapRing> rings(1);
  for (int i = 0; i < points; ++i) {
    const double angle = 2.0 * M_PI * i / points;
    const double jitter = 0.02 * std::sin(0.7 * i);
    const double radius = 37.5 + 22.5 * std::sin(7.0 * angle) * std::cos(3.0 * angle) + jitter;
    rings[0].points.push_back({radius * std::cos(angle), radius * std::sin(angle)});
  }
  return RoadMap::Write(rings, "benchmark map");
}

// Writes `text` to a new file under /tmp and returns its path; removed when the process ends.
std::string TempFile(const std::string& text) {
  char path[] = "/tmp/velmar_bench_XXXXXX";
  const int fd = mkstemp(path);
  if (fd < 0) {
    return "/nonexistent";
  }
  close(fd);
  std::ofstream(path, std::ios::binary) << text;
  static std::vector<std::string>* files = [] {
    auto* list = new std::vector<std::string>();
    std::atexit([] {
      for (const std::string& f : *files)
        std::remove(f.c_str());
    });
    return list;
  }();
  files->push_back(path);
  return path;
}

std::string MapParams() {
  constexpr int kMapPoints = 10000;
  return "{\"road_map_boundary_path\": \"" + TempFile(StarMapText(kMapPoints)) + "\"}";
}

// A gain for every channel of the 128-channel model.
std::string CalibParams() {
  std::vector<CalibCurve> curves(129);
  for (uint32_t c = 1; c <= 128; ++c) {
    curves[c].knots = 2;
    curves[c].raw = {0.0, 255.0 * (0.8 + 0.003 * c)};
    curves[c].calibrated = {0.0, 255.0};
  }
  return "{\"calib_file\": \"" + TempFile(CalibTable::Write(curves, "benchmark table")) + "\"}";
}

std::vector<AlgoCase> Cases() {
  const std::string column = ColumnModel();
  const LidarType columnType = column == "QuillA4" ? LIDAR_QUILL_A4 : LIDAR_ZEPHEL_B2_B3_MP;
  return {
      {1, "UndistortPoint", columnType, column, Feed::kFrame, Kind::kGridHistory, "{}"},
      {2, "SunlightNoise", LIDAR_MARLO128H, "Marlo128", Feed::kFrame, Kind::kFrameHistory,
       "{\"validDistance\": 10, \"filterWindowV\": 3, \"filterWindowH\": 5, "
       "\"leftReflectThreshold\": 100, \"rightReflectThreshold\": 400}"},
      {3, "SunlightNoise2", LIDAR_MARLO256, "Marlo128", Feed::kFrame, Kind::kSinglePass, "{}"},
      {4, "RainPoint", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       "{\"validDistance\": 6, \"reflectionThreshold\": 40, \"intensityThreshold\": 299}"},
      {5, "UnderGroundPoint", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       "{\"filter_ground_height\": 2.5}"},
      {6, "MirrorMotionCompensation", LIDAR_MARLO192, column, Feed::kFrame, Kind::kSinglePass,
       "{\"speed\": 36}"},
      {7, "OutlierPoint", LIDAR_QUILL_A2, column, Feed::kPacket128, Kind::kSinglePass,
       "{\"thresholdMultiple\": 4, \"minThreshold\": 0.1}"},
      {8, "CrosstalkFilter", columnType, column, Feed::kDrivePacket, Kind::kSinglePass, "{}", true},
      {8, "CrosstalkFilter", LIDAR_ZEPHEL_T, "ZephelT", Feed::kDrivePacket, Kind::kSinglePass, "{}",
       true},
      {9, "DisturbPointFilter", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       "{}"},
      {10, "JointabcProcess", LIDAR_ZEPHEL_B1, column, Feed::kFrame, Kind::kSinglePass,
       "{\"jointabc_node1\": 1, \"jointabc_node2\": 10, \"jointabc_one_face\": 0, "
       "\"jointabc_two_face\": 3}"},
      {11, "ReflectCalib", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       CalibParams()},
      {12, "DragPoint", LIDAR_ZEPHEL_T, "ZephelT", Feed::kDrivePacket, Kind::kSinglePass, "{}"},
      {13, "RainfogFilter", columnType, column, Feed::kFrame, Kind::kSinglePass,
       "{\"rainfog_filter_range\": 2}"},
      {14, "HighrefFilter", columnType, column, Feed::kDrivePacket, Kind::kSinglePass, "{}", true},
      {15, "SunlightNoise3", LIDAR_ZEPHEL_B1, column, Feed::kFrame, Kind::kSinglePass, "{}"},
      {16, "DeletePoint", LIDAR_ZEPHEL_B1, column, Feed::kFrame, Kind::kSinglePass, "{}"},
      {17, "CrosstalkFilter2", columnType, column, Feed::kDrivePacket, Kind::kSinglePass, "{}",
       true},
      {17, "CrosstalkFilter2", LIDAR_ZEPHEL_T, "ZephelT", Feed::kDrivePacket, Kind::kSinglePass,
       "{}", true},
      {18, "SmallBlind", LIDAR_MARLO256_SMALL_BLIND, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       "{\"separate_mirror_ABC_dist\": 3}"},
      {19, "DiscretePoint", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass, "{}"},
      {20, "CloseRangeNoiseFilter", columnType, column, Feed::kPacket128, Kind::kSinglePass, "{}"},
      {21, "MotionPoint", columnType, column, Feed::kFrame, Kind::kGridHistory, "{}"},
      {22, "TwopassPoint", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kClustering,
       "{\"write_cluster\": 1}"},
      {23, "CloseRangeNoise128", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass, "{}"},
      {24, "HighRef128", LIDAR_MARLO128, "Marlo128", Feed::kDrivePacket, Kind::kSinglePass, "{}"},
      {25, "FixedNoise128", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass, "{}"},
      {26, "LidarInterfere128", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kGridHistory, "{}"},
      {27, "UndistortPoint2", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kGridHistory, "{}"},
      {28, "SmallBlindMarlo128", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass, "{}"},
      {29, "HighrefFilter128", LIDAR_MARLO128, "Marlo128", Feed::kDrivePacket, Kind::kSinglePass,
       "{}", true},
      {30, "HighrefFilterOVP48", LIDAR_ORVIK48, "Orvik48", Feed::kDrivePacket, Kind::kSinglePass,
       "{}", true},
      {31, "CalculateRotateAllPointCloud", LIDAR_MARLO128, "Marlo128", Feed::kFrame,
       Kind::kSinglePass,
       "{\"transformRotateX\": 1.5, \"transformRotateY\": -0.5, \"transformRotateZ\": 90, "
       "\"transformMoveZ\": 1.8}"},
      {32, "FilterPointsOfInterest", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       MapParams()},
      {33, "HighrefFilterZepT", LIDAR_ZEPHEL_T, "ZephelT", Feed::kFrame, Kind::kSinglePass, "{}"},
      // The deskew with a configured velocity; its estimation is timed on a continuous drive by
      // deskew_bench, since these frames repeat in a loop.
      {34, "UndistortPointMove", LIDAR_MARLO128, "Marlo128", Feed::kFrame, Kind::kSinglePass,
       "{\"estimate_motion\": 0, \"forward_speed\": 8, \"yaw_rate\": 10}"},
      // Ground detection fits its planes when a packet that starts on the reference face beyond
      // 150 degrees arrives, so it is fed packets as a driver delivers them.
      {35, "GroundDet", LIDAR_MARLO128, "Marlo128", Feed::kDrivePacket, Kind::kGridHistory, "{}"},
  };
}

// Enough frames to pass every warm-up: eleven history pushes for the grid histories, ten frames
// for the sunlight history.
constexpr std::size_t kWarmupFrames = 14;

void RunAlgo(benchmark::State& state, const AlgoCase& c) {
  const SimulatedDrive& drive = Drive(c.drive, c.strongReturnArtefacts);
  std::shared_ptr<AlgoBase> algo = MakeAlgo(c.id, c.type, c.params);
  std::size_t packet = 0;
  if (c.feed == Feed::kDrivePacket)
    packet = drive.packetPoints;
  if (c.feed == Feed::kPacket128)
    packet = 128;
  MeasureFrames(state, drive.frames, packet, kWarmupFrames,
                [&](Frame& frame) { algo->Process(frame); });
  state.SetLabel(std::string(KindName(c.kind)) + ", " + c.drive +
                 (c.strongReturnArtefacts ? " with strong-return artefacts" : "") +
                 (packet ? ", packets of " + std::to_string(packet) : ""));
}

void RunCopy(benchmark::State& state, const std::string& model) {
  const SimulatedDrive& drive = Drive(model);
  Frame target;
  target.reserve(drive.frames.front().size() * 2);
  MeasureFrames(state, drive.frames, 0, 1, [&](Frame& frame) {
    target.assign(frame.begin(), frame.end());
    benchmark::DoNotOptimize(target.data());
  });
  state.SetLabel(model);
}

// Reading a map of 100,000 points from its text: parsing, the crossing check and the raster.
void RunMapLoad(benchmark::State& state) {
  const std::string text = StarMapText(100000);
  for (auto _ : state) {
    RoadMap map;
    std::string problem;
    const bool loaded = map.Parse(text, problem);
    benchmark::DoNotOptimize(loaded);
    if (!loaded) {
      state.SkipWithError(problem.c_str());
    }
  }
}

const bool kRegistered = [] {
  benchmark::RegisterBenchmark("load/roadmap_100000_points", RunMapLoad)
      ->Unit(benchmark::kMillisecond);
  for (const std::string& model :
       {std::string("Marlo128"), ColumnModel(), std::string("ZephelT")}) {
    benchmark::RegisterBenchmark(("copy/" + model).c_str(), RunCopy, model)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
  for (const AlgoCase& c : Cases()) {
    // The filters of strong-return artefacts run on several models: the drive names the case.
    const std::string name = "algo/" + std::to_string(c.id) + "_" + c.name +
                             (c.strongReturnArtefacts ? "/" + c.drive : "");
    benchmark::RegisterBenchmark(name.c_str(), RunAlgo, c)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
}  // namespace bench
}  // namespace velmar

BENCHMARK_MAIN();
