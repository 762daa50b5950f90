// peers_bench: our noise filters and ground detection side by side with what a user would
// otherwise reach for, the outlier removal and ground segmentation of PCL and Open3D, on the same
// frames: a simulated Marlo128 drive with the truth of every return, a real snowfall frame
// labelled point by point, and six real city frames without labels. Prints one table for noise
// removal and one for ground, each peer with its parameters: those of its own documentation's
// example and the best this program's --search finds on the labelled frames.
//
//   peers_bench [--data DIR] [--search]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "OurPipeline.h"
#include "PeerFrame.h"
#include "PeerLibraries.h"
#include "Scores.h"
#include "sim/Settings.h"
#include "sim/Simulator.h"
#include "sim/Truth.h"

namespace velmar {
namespace peers {
namespace {

// The history filters need a few frames before they judge (the interference filter keeps five),
// so the first frames only warm the pipelines up; every method is scored and timed on the rest.
constexpr uint32_t kWarmupFrames = 7;
constexpr uint32_t kMeasuredFrames = 5;
constexpr uint32_t kPacketPoints = 128;
constexpr uint64_t kSeed = 7;
constexpr double kEgoSpeed = 8.0;
// A frame set with fewer frames than this is run again until it has this many timings.
constexpr std::size_t kMinTimings = 3;
constexpr int kKittiFrames = 6;
constexpr std::size_t kSearchRowsShown = 3;
constexpr std::size_t kSearchSimulatedFrames = 2;

const std::string kConfig = std::string(VELMAR_CONFIG_DIR) + "/marlo128.json";
const std::string kImportedConfig = std::string(VELMAR_CONFIG_DIR) + "/imported.json";

// The values of each library's own example of the method: PCL's tutorials (statistical and
// radius outlier removal, planar segmentation, progressive morphological filtering) and Open3D's
// (point cloud outlier removal, plane segmentation). PCL's planar segmentation example sets only
// the distance; 50 iterations is SACSegmentation's default.
const StatisticalParams kPclStatisticalDoc{50, 1.0};
const RadiusParams kPclRadiusDoc{0.8, 2};
const PlaneParams kPclPlaneDoc{0.01, 50, 0.0};
const MorphologyParams kPclMorphologyDoc{1.0f, 20, 1.0f, 0.5f, 3.0f, false};
const StatisticalParams kOpen3dStatisticalDoc{20, 2.0};
const RadiusParams kOpen3dRadiusDoc{0.05, 16};
const PlaneParams kOpen3dPlaneDoc{0.01, 1000, 0.0};

// The best F1 that `peers_bench --search` finds on each labelled frame set, over the grids of
// StatisticalGrid, RadiusGrid and GroundGrid. Tuned on those frames: they show how far each
// method can go there, not settings that hold elsewhere.
struct Tuned {
  StatisticalParams pclStatistical;
  RadiusParams pclRadius;
  PlaneParams pclPlane;
  MorphologyParams pclMorphology;
  StatisticalParams open3dStatistical;
  RadiusParams open3dRadius;
  PlaneParams open3dPlane;
};
const Tuned kBestOnSimulated{{2, 0.05}, {0.05, 1}, {0.2, 100, 0.0}, {0.5f, 5, 1.0f, 0.5f, 3.0f},
                             {2, 0.05}, {0.05, 1}, {0.2, 100, 0.0}};
const Tuned kBestOnSnowfall{{3, 0.05}, {0.1, 2}, {0.3, 1000, 0.0}, {1.0f, 20, 0.3f, 0.5f, 3.0f},
                            {3, 0.05}, {0.1, 2}, {0.5, 100, 0.0}};

struct FrameSet {
  std::string name;
  std::vector<PeerFrame> frames;
  std::vector<sim::SourceCloud> clouds;  // real sets: the frames as read, for our pipeline
};

struct PeerMethod {
  std::string name;
  std::string settings;  // in the library's own terms
  std::string origin;    // where the values come from
  std::function<void(const Points&, Flags&)> run;
};

struct Row {
  std::string frames;
  std::string method;
  std::string settings;
  std::string origin;
  std::vector<double> seconds;
  Tally tally;
  Tally unclassified;  // GroundDet only: returns it never classified
};

double Median(std::vector<double> values) {
  if (values.empty()) {
    return 0.0;
  }
  std::sort(values.begin(), values.end());
  const std::size_t mid = values.size() / 2;
  return values.size() % 2 == 1 ? values[mid] : 0.5 * (values[mid - 1] + values[mid]);
}

std::string Num(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

// ---------------------------------------------------------------------------------------------
// Methods

PeerMethod PclStatistical(const StatisticalParams& p, const std::string& origin) {
  return {"PCL StatisticalOutlierRemoval",
          "setMeanK(" + Num(p.neighbours) + "), setStddevMulThresh(" + Num(p.stddevs) + ")", origin,
          [p](const Points& points, Flags& flags) {
            pcl_peers::StatisticalOutliers(points, p, flags);
          }};
}

PeerMethod Open3dStatistical(const StatisticalParams& p, const std::string& origin) {
  return {"Open3D remove_statistical_outlier",
          "nb_neighbors=" + Num(p.neighbours) + ", std_ratio=" + Num(p.stddevs), origin,
          [p](const Points& points, Flags& flags) {
            open3d_peers::StatisticalOutliers(points, p, flags);
          }};
}

PeerMethod PclRadius(const RadiusParams& p, const std::string& origin) {
  return {
      "PCL RadiusOutlierRemoval",
      "setRadiusSearch(" + Num(p.radius) + "), setMinNeighborsInRadius(" + Num(p.neighbours) + ")",
      origin,
      [p](const Points& points, Flags& flags) { pcl_peers::RadiusOutliers(points, p, flags); }};
}

PeerMethod Open3dRadius(const RadiusParams& p, const std::string& origin) {
  return {
      "Open3D remove_radius_outlier",
      "nb_points=" + Num(p.neighbours) + ", radius=" + Num(p.radius), origin,
      [p](const Points& points, Flags& flags) { open3d_peers::RadiusOutliers(points, p, flags); }};
}

PeerMethod PclPlane(const PlaneParams& p, const std::string& origin) {
  std::string settings = p.maxTiltDegrees > 0.0
                             ? "SACMODEL_PERPENDICULAR_PLANE, setAxis(z), setEpsAngle(" +
                                   Num(p.maxTiltDegrees) + " deg)"
                             : std::string("SACMODEL_PLANE");
  settings += ", SAC_RANSAC, setDistanceThreshold(" + Num(p.distance) + "), setMaxIterations(" +
              Num(p.iterations) + "), setOptimizeCoefficients(true)";
  return {"PCL SACSegmentation", settings, origin,
          [p](const Points& points, Flags& flags) { pcl_peers::PlaneGround(points, p, flags); }};
}

PeerMethod Open3dPlane(const PlaneParams& p, const std::string& origin) {
  return {
      "Open3D segment_plane",
      "distance_threshold=" + Num(p.distance) + ", ransac_n=3, num_iterations=" + Num(p.iterations),
      origin,
      [p](const Points& points, Flags& flags) { open3d_peers::PlaneGround(points, p, flags); }};
}

PeerMethod PclMorphology(const MorphologyParams& p, const std::string& origin) {
  return {p.exact ? "PCL ProgressiveMorphologicalFilter"
                  : "PCL ApproximateProgressiveMorphologicalFilter",
          "setCellSize(" + Num(p.cellSize) + "), setMaxWindowSize(" + Num(p.maxWindow) +
              "), setSlope(" + Num(p.slope) + "), setInitialDistance(" + Num(p.initialDistance) +
              "), setMaxDistance(" + Num(p.maxDistance) + ")",
          origin, [p](const Points& points, Flags& flags) {
            pcl_peers::MorphologicalGround(points, p, flags);
          }};
}

const char* const kDocumented = "documentation";

// The outlier removers, each with its documented values and then with `best`.
std::vector<PeerMethod> OutlierMethods(const Tuned& best, const std::string& bestOrigin) {
  return {PclStatistical(kPclStatisticalDoc, kDocumented),
          PclStatistical(best.pclStatistical, bestOrigin),
          PclRadius(kPclRadiusDoc, kDocumented),
          PclRadius(best.pclRadius, bestOrigin),
          Open3dStatistical(kOpen3dStatisticalDoc, kDocumented),
          Open3dStatistical(best.open3dStatistical, bestOrigin),
          Open3dRadius(kOpen3dRadiusDoc, kDocumented),
          Open3dRadius(best.open3dRadius, bestOrigin)};
}

std::vector<PeerMethod> GroundMethods(const Tuned& best, const std::string& bestOrigin) {
  return {
      PclPlane(kPclPlaneDoc, kDocumented),           PclPlane(best.pclPlane, bestOrigin),
      PclMorphology(kPclMorphologyDoc, kDocumented), PclMorphology(best.pclMorphology, bestOrigin),
      Open3dPlane(kOpen3dPlaneDoc, kDocumented),     Open3dPlane(best.open3dPlane, bestOrigin)};
}

// Runs a peer on every frame of the set, timing each call, until there are kMinTimings timings
// (or `timings`, when given); scores the first pass.
Row Measure(const FrameSet& set, const PeerMethod& method, std::size_t timings = kMinTimings) {
  Row row{set.name, method.name, method.settings, method.origin, {}, {}, {}};
  Flags flags;
  for (std::size_t pass = 0; pass == 0 || row.seconds.size() < timings; ++pass) {
    for (const PeerFrame& frame : set.frames) {
      const double start = ProcessCpuSeconds();
      method.run(frame.points, flags);
      row.seconds.push_back(ProcessCpuSeconds() - start);
      if (pass == 0) {
        row.tally.Add(frame, flags);
      }
    }
  }
  std::cerr << "  " << set.name << ": " << method.name << " " << method.settings << ": "
            << Median(row.seconds) * 1e3 << " ms\n";
  return row;
}

void MeasureAll(const FrameSet& set, const std::vector<PeerMethod>& methods,
                std::vector<Row>& rows) {
  for (const PeerMethod& method : methods) {
    rows.push_back(Measure(set, method));
  }
}

// ---------------------------------------------------------------------------------------------
// Frames

sim::SimulationSettings DriveSettings() {
  sim::SimulationSettings settings;
  settings.model = "Marlo128";
  settings.scene.name = "city";
  settings.scene.egoSpeed = kEgoSpeed;
  settings.seed = kSeed;
  settings.frames = kWarmupFrames + kMeasuredFrames;
  // The demo's rates (tools/demo.sh), plus sunlight and drag so that every kind our Marlo128
  // filters are meant for, and the isolated returns the peers are meant for, is present.
  settings.noise[sim::NoiseKind::kRain] = 0.08;
  settings.noise[sim::NoiseKind::kSunlight] = 0.01;
  settings.noise[sim::NoiseKind::kDrag] = 0.5;
  settings.noise[sim::NoiseKind::kInterference] = 0.01;
  settings.noise[sim::NoiseKind::kGhost] = 0.5;
  settings.noise[sim::NoiseKind::kCloseRange] = 0.3;
  settings.noise[sim::NoiseKind::kFixedEcho] = 0.5;
  return settings;
}

std::string RatesText(const sim::SimulationSettings& settings) {
  std::ostringstream text;
  const char* separator = "";
  for (const sim::NoiseKindInfo& info : sim::NoiseKinds()) {
    const double rate = settings.noise[info.kind];
    if (rate > 0.0) {
      text << separator << info.name << " " << rate;
      separator = ", ";
    }
  }
  return text.str();
}

std::vector<Records> SimulateDrive(const sim::SimulationSettings& settings) {
  sim::Simulator simulator(settings);
  std::vector<Records> frames(settings.frames);
  for (uint32_t i = 0; i < settings.frames; ++i) {
    simulator.GenerateFrame(i, frames[i]);
  }
  return frames;
}

FrameSet SimulatedSet(const std::vector<Records>& drive) {
  FrameSet set{"simulated Marlo128", {}, {}};
  for (uint32_t f = kWarmupFrames; f < drive.size(); ++f) {
    set.frames.push_back(FrameFromRecords(drive[f]));
  }
  return set;
}

bool FolderExists(const std::string& path) {
  return std::ifstream(path + "/README.md").good();
}

void AddRealFrame(FrameSet& set, const std::string& binPath, const std::string& labelPath = "") {
  try {
    set.clouds.push_back(sim::ReadKittiBin(binPath, labelPath));
  } catch (const sim::ImportError& error) {
    throw FrameError(error.what());
  }
  set.frames.push_back(FrameOfCloud(set.clouds.back()));
}

FrameSet SnowfallSet(const std::string& data) {
  const std::string folder = data + "/wads-sample";
  FrameSet set{"WADS snowfall", {}, {}};
  AddRealFrame(set, folder + "/sample.bin", folder + "/sample.label");
  return set;
}

FrameSet CitySet(const std::string& data) {
  FrameSet set{"KITTI city", {}, {}};
  for (int i = 0; i < kKittiFrames; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "/kitti-00/%06d.bin", i);
    AddRealFrame(set, data + name);
  }
  return set;
}

// The frames of a real set as our pipeline receives them, imported as `velmar-algo import`
// imports them, and the feed for them. The set is fed enough times for kMinTimings timings, as
// the peers are timed; only its first pass is scored.
struct ImportedSet {
  std::vector<Records> frames;
  FeedSettings feed;
  std::size_t scoredFrames = 0;
};

ImportedSet Import(const FrameSet& set, sim::ImportMapping mapping) {
  sim::ImportOptions options;
  options.mapping = mapping;
  const sim::RecordingInfo info = sim::ImportedRecordingInfo(options);
  ImportedSet imported;
  imported.feed.model = static_cast<LidarType>(info.lidarType);
  imported.feed.packetPoints = info.packetPoints;
  imported.scoredFrames = set.clouds.size();
  while (imported.frames.size() < std::max(kMinTimings, set.clouds.size())) {
    for (const sim::SourceCloud& cloud : set.clouds) {
      imported.frames.push_back(
          sim::MapFrame(cloud, options, static_cast<uint32_t>(imported.frames.size())));
    }
  }
  return imported;
}

std::size_t Returns(const FrameSet& set) {
  std::size_t total = 0;
  for (const PeerFrame& frame : set.frames) {
    total += frame.points.size();
  }
  return set.frames.empty() ? 0 : total / set.frames.size();
}

// ---------------------------------------------------------------------------------------------
// Our rows

Row OurRow(const std::string& frames, const std::string& method, const std::string& settings) {
  Row row;
  row.frames = frames;
  row.method = method;
  row.settings = settings;
  row.origin = "configs/marlo128.json";
  return row;
}

Row OurNoiseRow(const std::string& frames, const std::vector<Records>& records,
                const std::string& method, const std::string& configText) {
  Row row = OurRow(frames, method,
                   "ids " + IdsOf(configText) + "; packets of " + std::to_string(kPacketPoints));
  RunOurNoise(records, configText, {LIDAR_MARLO128, kPacketPoints, kWarmupFrames},
              [&](const OurFrame& ours) {
                row.tally.Add(ours.frame, ours.flags);
                row.seconds.push_back(ours.seconds);
              });
  return row;
}

// Adds every frame's time to the row and the flags of the set's first pass to its tally.
OurFrameSink TimeAllScoreFirstPass(const ImportedSet& imported, Row& row) {
  return
      [&row, scored = imported.scoredFrames, fed = std::size_t{0}](const OurFrame& ours) mutable {
        if (fed++ < scored) {
          row.tally.Add(ours.frame, ours.flags);
        }
        row.seconds.push_back(ours.seconds);
      };
}

// Ours on a real set: the noise filter made for other sensors' frames (configs/imported.json,
// whole frames of the generic mapping, every return the peers see), and ground detection on the
// frames imported into the Marlo128 layout, which holds only the returns within that sensor's
// field.
Row OurRealNoiseRow(const FrameSet& set, const std::string& configText) {
  const ImportedSet imported = Import(set, sim::ImportMapping::kGeneric);
  Row row = OurRow(set.name, "ours: DiscretePoint (id " + IdsOf(configText) + ")",
                   "imported as KR360, whole frames");
  row.origin = "configs/imported.json";
  RunOurNoise(imported.frames, configText, imported.feed, TimeAllScoreFirstPass(imported, row));
  return row;
}

std::string FieldName(const FrameSet& set) {
  return set.name + ", Marlo128 field";
}

Row OurRealGroundRow(const FrameSet& set, const std::string& configText) {
  const ImportedSet imported = Import(set, sim::ImportMapping::kMarlo128);
  Row row = OurRow(FieldName(set), "ours: GroundDet (id 35)",
                   "imported as Marlo128; label 1 = ground; packets of " +
                       std::to_string(imported.feed.packetPoints));
  RunOurGround(imported.frames, configText, imported.feed, TimeAllScoreFirstPass(imported, row));
  return row;
}

// The returns of a real set that the Marlo128 mapping keeps (those within that sensor's field),
// in our axes, as our ground row scores them.
FrameSet FieldSet(const FrameSet& set) {
  const ImportedSet imported = Import(set, sim::ImportMapping::kMarlo128);
  FrameSet field{FieldName(set), {}, {}};
  for (std::size_t f = 0; f < imported.scoredFrames; ++f) {
    field.frames.push_back(FrameFromRecords(imported.frames[f]));
  }
  return field;
}

Row OurGroundRow(const std::string& frames, const std::vector<Records>& records,
                 const std::string& configText) {
  Row row = OurRow(frames, "ours: GroundDet (id 35)",
                   "label 1 = ground; packets of " + std::to_string(kPacketPoints));
  RunOurGround(records, configText, {LIDAR_MARLO128, kPacketPoints, kWarmupFrames},
               [&](const OurFrame& ours) {
                 row.tally.Add(ours.frame, ours.flags);
                 row.unclassified.Add(ours.frame, ours.unclassified);
                 row.seconds.push_back(ours.seconds);
               });
  return row;
}

// ---------------------------------------------------------------------------------------------
// Tables

std::string Millis(const std::vector<double>& seconds) {
  char text[32];
  const double ms = Median(seconds) * 1e3;
  std::snprintf(text, sizeof text, ms >= 100.0 ? "%.0f ms" : "%.1f ms", ms);
  return text;
}

std::string Pct(double share) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f %%", 100.0 * share);
  return text;
}

// The scored columns of a row: flagged share, then recall, precision, F1 and the share of the
// other classes flagged (or dashes on unlabelled frames).
void PrintRow(const Row& row, PointClass target) {
  std::cout << "| " << row.frames << " | " << row.method << " | " << row.settings << " | "
            << row.origin << " | ";
  const Score score = ScoreOf(row.tally, target);
  std::cout << Millis(row.seconds) << " | " << Pct(score.flaggedShare) << " | ";
  if (score.labelled) {
    char f1[16];
    std::snprintf(f1, sizeof f1, "%.3f", score.f1);
    std::cout << Pct(score.recall) << " | " << Pct(score.precision) << " | " << f1 << " | "
              << Pct(score.othersFlagged) << " |\n";
  } else {
    std::cout << "- | - | - | - |\n";
  }
}

void PrintTable(const std::string& title, const std::string& flagged, const std::string& target,
                const std::string& others, PointClass targetClass, const std::vector<Row>& rows) {
  std::cout << "\n### " << title << "\n\n"
            << "| Frames | Method | Parameters | Values from | Time per frame | " << flagged
            << " | " << target << " recall | " << target << " precision | F1 | " << others << " |\n"
            << "|---|---|---|---|---|---|---|---|---|---|\n";
  for (const Row& row : rows) {
    PrintRow(row, targetClass);
  }
}

// Noise removed per simulated kind, for the rows of the simulated drive.
void PrintKinds(const std::vector<Row>& rows) {
  const Tally& first = rows.front().tally;
  std::vector<uint8_t> kinds;
  std::cout << "\nSimulated drive, noise removed per kind (returns per frame in brackets):\n\n"
            << "| Method | Values from |";
  for (uint32_t k = 0; k < sim::kTruthKindCount; ++k) {
    if (sim::IsNoiseTruth(static_cast<sim::TruthKind>(k)) && first.byKind[k].returns > 0) {
      kinds.push_back(static_cast<uint8_t>(k));
      std::cout << " " << sim::TruthKindName(static_cast<sim::TruthKind>(k)) << " ("
                << first.byKind[k].returns / kMeasuredFrames << ") |";
    }
  }
  std::cout << "\n|---|---|";
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    std::cout << "---|";
  }
  std::cout << "\n";
  for (const Row& row : rows) {
    std::cout << "| " << row.method << " | " << row.origin << " |";
    for (const uint8_t k : kinds) {
      std::cout << " " << Pct(Share(row.tally.byKind[k].flagged, row.tally.byKind[k].returns))
                << " |";
    }
    std::cout << "\n";
  }
}

// ---------------------------------------------------------------------------------------------
// Search

template <typename T>
std::vector<T> Grid(std::initializer_list<T> values) {
  return values;
}

std::vector<PeerMethod> StatisticalGrid() {
  std::vector<PeerMethod> grid;
  for (const int k : Grid({2, 3, 5, 10, 20, 50})) {
    for (const double m : Grid({0.05, 0.1, 0.25, 0.5, 1.0, 2.0})) {
      grid.push_back(PclStatistical({k, m}, ""));
      grid.push_back(Open3dStatistical({k, m}, ""));
    }
  }
  return grid;
}

std::vector<PeerMethod> RadiusGrid() {
  std::vector<PeerMethod> grid;
  for (const double r : Grid({0.05, 0.1, 0.2, 0.3, 0.5, 0.8})) {
    for (const int n : Grid({1, 2, 4, 8})) {
      grid.push_back(PclRadius({r, n}, ""));
      grid.push_back(Open3dRadius({r, n}, ""));
    }
  }
  return grid;
}

std::vector<PeerMethod> GroundGrid() {
  std::vector<PeerMethod> grid;
  for (const double d : Grid({0.1, 0.2, 0.3, 0.5, 0.8})) {
    for (const int iterations : Grid({100, 1000})) {
      grid.push_back(PclPlane({d, iterations, 0.0}, ""));
      grid.push_back(PclPlane({d, iterations, 10.0}, ""));
      grid.push_back(Open3dPlane({d, iterations, 0.0}, ""));
    }
  }
  for (const float cell : Grid({0.5f, 1.0f})) {
    for (const int window : Grid({5, 20})) {
      for (const float slope : Grid({0.3f, 1.0f})) {
        for (const float initial : Grid({0.15f, 0.5f})) {
          grid.push_back(PclMorphology({cell, window, slope, initial, 3.0f, false}, ""));
        }
      }
    }
  }
  return grid;
}

// Runs every candidate once per frame and prints, per method, the candidates with the best F1.
void Search(const FrameSet& set, const std::vector<PeerMethod>& grid, PointClass target) {
  std::vector<Row> rows;
  for (const PeerMethod& method : grid) {
    rows.push_back(Measure(set, method, 1));
  }
  std::stable_sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) {
    return ScoreOf(a.tally, target).f1 > ScoreOf(b.tally, target).f1;
  });
  std::vector<std::string> methods;
  for (const Row& row : rows) {
    if (std::find(methods.begin(), methods.end(), row.method) == methods.end()) {
      methods.push_back(row.method);
    }
  }
  for (const std::string& method : methods) {
    std::vector<Row> best;
    for (const Row& row : rows) {
      if (row.method == method && best.size() < kSearchRowsShown) {
        best.push_back(row);
      }
    }
    PrintTable(set.name + ": " + method + ", best F1 of the grid", "Flagged", "Target", "Others",
               target, best);
  }
}

// ---------------------------------------------------------------------------------------------

struct Options {
  std::string data = VELMAR_SHARED_DATA_DIR;
  bool search = false;
};

Options ParseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--search") == 0) {
      options.search = true;
    } else if (std::strcmp(argv[i], "--data") == 0 && i + 1 < argc) {
      options.data = argv[++i];
    } else {
      std::cerr << "usage: peers_bench [--data DIR] [--search]\n";
      std::exit(2);
    }
  }
  return options;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

int Main(int argc, char** argv) {
  const Options options = ParseOptions(argc, argv);
  const sim::SimulationSettings settings = DriveSettings();
  std::cerr << "simulating " << settings.frames << " Marlo128 frames...\n";
  const std::vector<Records> drive = SimulateDrive(settings);
  const FrameSet simulated = SimulatedSet(drive);

  std::vector<FrameSet> real;
  const bool haveData = FolderExists(options.data);
  if (haveData) {
    real.push_back(SnowfallSet(options.data));
    real.push_back(CitySet(options.data));
  } else {
    std::cerr << "no real frames: " << options.data
              << " is absent, so only the simulated rows are measured\n";
  }

  if (options.search) {
    // The labelled sets: the snowfall frame, and the first frames of the simulated drive (the
    // peers take seconds a frame there).
    std::vector<FrameSet> labelled;
    if (haveData) {
      labelled.push_back(real.front());
    }
    labelled.push_back(simulated);
    labelled.back().frames.resize(kSearchSimulatedFrames);
    for (const FrameSet& set : labelled) {
      Search(set, StatisticalGrid(), PointClass::kNoise);
      Search(set, RadiusGrid(), PointClass::kNoise);
      Search(set, GroundGrid(), PointClass::kGround);
    }
    return 0;
  }

  const std::string configText = ReadText(kConfig);
  const std::string importedConfigText = ReadText(kImportedConfig);
  // The noise filters alone: the default file without the motion and mounting corrections and
  // without ground detection, which are there to move or label returns, not to remove noise.
  const std::string filters =
      ConfigSubset(configText, [](int id) { return id != 27 && id != 31 && id != 34 && id != 35; });

  std::cerr << "noise removal...\n";
  std::vector<Row> noise;
  noise.push_back(
      OurNoiseRow(simulated.name, drive, "ours: default pipeline marlo128.json", configText));
  noise.push_back(OurNoiseRow(simulated.name, drive, "ours: its noise filters only", filters));
  MeasureAll(simulated, OutlierMethods(kBestOnSimulated, "best F1 on the simulated drive"), noise);
  const std::size_t simulatedNoiseRows = noise.size();
  for (const FrameSet& set : real) {
    noise.push_back(OurRealNoiseRow(set, importedConfigText));
    MeasureAll(set, OutlierMethods(kBestOnSnowfall, "best F1 on the WADS frame"), noise);
  }

  std::cerr << "ground...\n";
  std::vector<Row> ground;
  ground.push_back(OurGroundRow(simulated.name, drive, configText));
  MeasureAll(simulated, GroundMethods(kBestOnSimulated, "best F1 on the simulated drive"), ground);
  for (const FrameSet& set : real) {
    ground.push_back(OurRealGroundRow(set, configText));
    if (&set == &real.front()) {
      // Like for like: the peers on exactly the returns our row scores.
      MeasureAll(FieldSet(set), GroundMethods(kBestOnSnowfall, "best F1 on the WADS frame"),
                 ground);
    }
    MeasureAll(set, GroundMethods(kBestOnSnowfall, "best F1 on the WADS frame"), ground);
    if (&set == &real.front()) {
      // The exact filter takes tens of seconds a frame: once, on the labelled frame.
      MorphologyParams exact = kPclMorphologyDoc;
      exact.exact = true;
      ground.push_back(Measure(set, PclMorphology(exact, kDocumented), 1));
    }
  }

  std::cout << "Simulated: Marlo128 city drive, ego speed " << kEgoSpeed << " m/s, seed " << kSeed
            << ", noise rates: " << RatesText(settings) << "; " << kWarmupFrames
            << " warm-up frames, then " << kMeasuredFrames << " measured frames of "
            << drive.front().size() << " points, " << Returns(simulated)
            << " returns each on average.\n";
  for (const FrameSet& set : real) {
    std::cout << set.name << ": " << set.frames.size() << " frame(s), " << Returns(set)
              << " returns each on average.\n";
  }
  std::cout << "PCL " << pcl_peers::Version() << ", Open3D " << open3d_peers::Version()
            << ". Times: CPU time of the process, median per frame (at least " << kMinTimings
            << " runs), one thread; a peer's time includes copying the returns into its cloud.\n";

  PrintTable("Noise removal", "Removed", "Noise", "Real removed", PointClass::kNoise, noise);
  PrintKinds(std::vector<Row>(noise.begin(), noise.begin() + simulatedNoiseRows));
  PrintTable("Ground", "Labelled ground", "Ground", "Others labelled ground", PointClass::kGround,
             ground);
  const Score never = ScoreOf(ground.front().unclassified, PointClass::kGround);
  std::cout << "\nGroundDet left " << Pct(never.recall)
            << " of the simulated ground returns unclassified (neither of its labels).\n";
  return 0;
}

}  // namespace
}  // namespace peers
}  // namespace velmar

int main(int argc, char** argv) {
  return velmar::peers::Main(argc, argv);
}
