// peers_bench: our noise filters and ground detection side by side with the general-purpose
// methods a user would otherwise reach for (statistical and radius outlier removal, RANSAC plane
// segmentation), on the same simulated Marlo128 frames, timed per frame and scored against the
// truth the simulator writes into every return. Prints one table for noise, one per noise kind
// and one for ground.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "FrameFeeder.h"
#include "KdTree.h"
#include "Outcome.h"
#include "PeerMethods.h"
#include "sim/Settings.h"
#include "sim/Simulator.h"
#include "sim/Truth.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace peers {
namespace {

using Frame = std::vector<_ori_point>;
using Clock = std::chrono::steady_clock;
using tools::ClassCounts;
using tools::OutcomeTally;

// The history filters need a few frames before they judge (the interference filter keeps five),
// so the first frames only warm the pipelines up; every method is scored and timed on the rest.
constexpr uint32_t kWarmupFrames = 7;
constexpr uint32_t kMeasuredFrames = 5;
constexpr uint32_t kPacketPoints = 128;
constexpr uint64_t kSeed = 7;
constexpr double kEgoSpeed = 8.0;
// GroundDet fits and classifies only returns nearer than this; the ground table also reports
// recall inside it so that neither side is judged on ground the other never looks at.
constexpr double kGroundRange = 40.0;

const std::string kConfig = std::string(VELMAR_CONFIG_DIR) + "/marlo128.json";

double Seconds(Clock::duration d) {
  return std::chrono::duration<double>(d).count();
}

double Median(std::vector<double> values) {
  if (values.empty()) {
    return 0.0;
  }
  std::sort(values.begin(), values.end());
  const std::size_t mid = values.size() / 2;
  return values.size() % 2 == 1 ? values[mid] : 0.5 * (values[mid - 1] + values[mid]);
}

double Percent(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

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

std::vector<Frame> SimulateDrive(const sim::SimulationSettings& settings) {
  sim::Simulator simulator(settings);
  std::vector<Frame> frames(settings.frames);
  for (uint32_t i = 0; i < settings.frames; ++i) {
    simulator.GenerateFrame(i, frames[i]);
  }
  return frames;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The configuration file with only the entries whose id `keep` accepts.
std::string ConfigSubset(const std::string& text, const std::function<bool(int)>& keep) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  if (!document.IsObject() || !document.HasMember("algo_list") ||
      !document["algo_list"].IsArray()) {
    return text;
  }
  rapidjson::Value& list = document["algo_list"];
  for (rapidjson::SizeType i = list.Size(); i-- > 0;) {
    const rapidjson::Value& entry = list[i];
    if (!entry.IsObject() || !entry.HasMember("id") || !entry["id"].IsInt() ||
        !keep(entry["id"].GetInt())) {
      list.Erase(list.Begin() + i);
    }
  }
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return buffer.GetString();
}

std::string IdsOf(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  std::ostringstream ids;
  const char* separator = "";
  if (document.IsObject() && document.HasMember("algo_list") && document["algo_list"].IsArray()) {
    for (const rapidjson::Value& entry : document["algo_list"].GetArray()) {
      if (entry.IsObject() && entry.HasMember("id") && entry["id"].IsInt()) {
        ids << separator << entry["id"].GetInt();
        separator = ", ";
      }
    }
  }
  return ids.str();
}

// The label GroundDet gives ground returns: its "debug_using_echo" parameter in the file.
int GroundLabel(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  if (document.IsObject() && document.HasMember("algo_list") && document["algo_list"].IsArray()) {
    for (const rapidjson::Value& entry : document["algo_list"].GetArray()) {
      if (entry.IsObject() && entry.HasMember("id") && entry["id"].IsInt() &&
          entry["id"].GetInt() == 35 && entry.HasMember("param") &&
          entry["param"].HasMember("debug_using_echo") &&
          entry["param"]["debug_using_echo"].IsInt()) {
        return entry["param"]["debug_using_echo"].GetInt();
      }
    }
  }
  return -1;
}

std::unique_ptr<ILidarAlgo> OpenPipeline(const std::string& configText) {
  std::ostringstream sink;
  std::streambuf* previous = std::cout.rdbuf(sink.rdbuf());
  std::unique_ptr<ILidarAlgo> pipeline = ILidarAlgo::Create(LIDAR_MARLO128, "");
  const bool accepted = pipeline->UpdateAlgoParam(configText);
  std::cout.rdbuf(previous);
  if (!accepted) {
    std::cerr << "configuration refused:\n" << sink.str();
    std::exit(1);
  }
  return pipeline;
}

// Feeds the drive through a pipeline packet by packet as the tools do, and hands each measured
// frame (input, output, where every output point came from, time in the pipeline) to `measure`.
void FeedPipeline(
    const std::vector<Frame>& frames, const std::string& configText,
    const std::function<void(const tools::FedFrame&, const std::vector<int64_t>&)>& measure) {
  std::unique_ptr<ILidarAlgo> pipeline = OpenPipeline(configText);
  tools::FrameFeeder feeder([&](Frame& unit) { pipeline->Process(unit); }, kPacketPoints,
                            [&](tools::FedFrame& fed) {
                              if (fed.index < kWarmupFrames) {
                                return;
                              }
                              const std::vector<int64_t> representative = tools::Representatives(
                                  fed.input.size(), fed.output,
                                  [&](std::size_t j) { return fed.origin[j]; });
                              measure(fed, representative);
                            });
  for (const Frame& frame : frames) {
    feeder.Feed(frame);
  }
  feeder.Finish();
}

struct NoiseRow {
  std::string method;
  std::string settings;
  std::vector<double> seconds;
  OutcomeTally tally;
};

NoiseRow RunOurNoise(const std::vector<Frame>& frames, const std::string& method,
                     const std::string& configText) {
  NoiseRow row;
  row.method = method;
  row.settings = "ids " + IdsOf(configText) + "; packets of " + std::to_string(kPacketPoints);
  FeedPipeline(frames, configText,
               [&](const tools::FedFrame& fed, const std::vector<int64_t>& representative) {
                 tools::TallyOutcomes(fed.input, fed.output, representative, row.tally);
                 row.seconds.push_back(fed.seconds);
               });
  return row;
}

// The returns of a frame (distance > 0) as points, with the record index of each.
void ExtractReturns(const Frame& frame, std::vector<Point3>& points,
                    std::vector<uint32_t>& record) {
  points.clear();
  record.clear();
  for (std::size_t i = 0; i < frame.size(); ++i) {
    const _ori_point& p = frame[i];
    if (p.distance > 0.0) {
      points.push_back(
          Point3{static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)});
      record.push_back(static_cast<uint32_t>(i));
    }
  }
}

using OutlierMethod =
    std::function<void(const std::vector<Point3>&, const KdTree&, std::vector<uint8_t>&)>;

// A peer filter as a host would run it on a frame: gather the returns, build the tree, find the
// outliers and zero their range in the records. All of that is timed.
NoiseRow RunPeerNoise(const std::vector<Frame>& frames, const std::string& method,
                      const std::string& settings, const OutlierMethod& find,
                      std::vector<double>* buildSeconds) {
  NoiseRow row;
  row.method = method;
  row.settings = settings;
  KdTree tree;
  std::vector<Point3> points;
  std::vector<uint32_t> record;
  std::vector<uint8_t> outlier;
  Frame work;
  for (uint32_t f = kWarmupFrames; f < frames.size(); ++f) {
    const Frame& input = frames[f];
    work = input;
    const auto start = Clock::now();
    ExtractReturns(work, points, record);
    tree.Build(points);
    const auto built = Clock::now();
    find(points, tree, outlier);
    for (std::size_t i = 0; i < points.size(); ++i) {
      if (outlier[i] != 0) {
        work[record[i]].distance = 0.0;
      }
    }
    const auto stop = Clock::now();
    row.seconds.push_back(Seconds(stop - start));
    if (buildSeconds != nullptr) {
      buildSeconds->push_back(Seconds(built - start));
    }
    for (std::size_t i = 0; i < input.size(); ++i) {
      if (input[i].distance == 0.0) {
        continue;
      }
      ClassCounts& counts = row.tally[sim::TruthKindOf(input[i])];
      ++counts.returns;
      counts.removed += work[i].distance == 0.0 ? 1 : 0;
    }
    std::cerr << "  " << method << ": frame " << f << " " << row.seconds.back() * 1e3 << " ms\n";
  }
  return row;
}

struct GroundCounts {
  uint64_t ground = 0;
  uint64_t groundUnlabelled = 0;  // ground returns the method never classified either way
  uint64_t groundFound = 0;
  uint64_t groundNear = 0;
  uint64_t groundNearFound = 0;
  uint64_t objects = 0;
  uint64_t objectsAsGround = 0;
  uint64_t noise = 0;
  uint64_t noiseAsGround = 0;

  void Add(const _ori_point& input, bool asGround, bool labelled = true) {
    const sim::TruthKind kind = sim::TruthKindOf(input);
    if (kind == sim::TruthKind::kGround) {
      ++ground;
      groundFound += asGround ? 1 : 0;
      groundUnlabelled += labelled ? 0 : 1;
      if (input.distance < kGroundRange) {
        ++groundNear;
        groundNearFound += asGround ? 1 : 0;
      }
    } else if (kind == sim::TruthKind::kReal) {
      ++objects;
      objectsAsGround += asGround ? 1 : 0;
    } else if (sim::IsNoiseTruth(kind)) {
      ++noise;
      noiseAsGround += asGround ? 1 : 0;
    }
  }
};

struct GroundRow {
  std::string method;
  std::string settings;
  std::vector<double> seconds;
  GroundCounts counts;
  double worstRecall = 1.0;  // lowest ground recall of a single measured frame

  void AddFrame(const GroundCounts& frame) {
    counts.ground += frame.ground;
    counts.groundUnlabelled += frame.groundUnlabelled;
    counts.groundFound += frame.groundFound;
    counts.groundNear += frame.groundNear;
    counts.groundNearFound += frame.groundNearFound;
    counts.objects += frame.objects;
    counts.objectsAsGround += frame.objectsAsGround;
    counts.noise += frame.noise;
    counts.noiseAsGround += frame.noiseAsGround;
    if (frame.ground > 0) {
      worstRecall = std::min(
          worstRecall, static_cast<double>(frame.groundFound) / static_cast<double>(frame.ground));
    }
  }
};

GroundRow RunGroundDet(const std::vector<Frame>& frames, const std::string& configText) {
  GroundRow row;
  const int label = GroundLabel(configText);
  row.method = "ours: GroundDet (id 35)";
  row.settings = "marlo128.json parameters, label " + std::to_string(label) +
                 " = ground; packets of " + std::to_string(kPacketPoints);
  // GroundDet labels what it classifies: `label` for ground, `label` - 1 above it. Every other
  // value marks a return it never classified.
  const int32_t untouched = label + 1000;
  std::vector<Frame> unlabelled = frames;
  for (Frame& frame : unlabelled) {
    for (_ori_point& p : frame) {
      p.label = untouched;
    }
  }
  const std::string only35 = ConfigSubset(configText, [](int id) { return id == 35; });
  FeedPipeline(unlabelled, only35,
               [&](const tools::FedFrame& fed, const std::vector<int64_t>& representative) {
                 GroundCounts frame;
                 for (std::size_t i = 0; i < fed.input.size(); ++i) {
                   if (fed.input[i].distance == 0.0) {
                     continue;
                   }
                   const int64_t chosen = representative[i];
                   const int32_t given = chosen == tools::kNoOrigin
                                             ? untouched
                                             : fed.output[static_cast<std::size_t>(chosen)].label;
                   frame.Add(fed.input[i], given == label, given != untouched);
                 }
                 row.AddFrame(frame);
                 row.seconds.push_back(fed.seconds);
               });
  return row;
}

GroundRow RunRansac(const std::vector<Frame>& frames, const std::string& method,
                    const RansacPlaneParams& params) {
  GroundRow row;
  row.method = method;
  std::ostringstream settings;
  settings << params.iterations << " triples, seed " << params.seed << ", inlier within "
           << params.threshold << " m";
  if (params.maxTiltDegrees > 0.0f) {
    settings << ", normal within " << params.maxTiltDegrees << " deg of vertical";
  }
  if (params.refit) {
    settings << ", least-squares refit";
  }
  row.settings = settings.str();
  RansacPlaneSegmentation ransac(params);
  std::vector<Point3> points;
  std::vector<uint32_t> record;
  std::vector<uint8_t> inlier;
  Frame work;
  for (uint32_t f = kWarmupFrames; f < frames.size(); ++f) {
    const Frame& input = frames[f];
    work = input;
    const auto start = Clock::now();
    ExtractReturns(work, points, record);
    ransac.Run(points, inlier);
    for (std::size_t i = 0; i < points.size(); ++i) {
      work[record[i]].label = inlier[i] != 0 ? 1 : 0;
    }
    row.seconds.push_back(Seconds(Clock::now() - start));
    GroundCounts counts;
    for (std::size_t i = 0; i < points.size(); ++i) {
      counts.Add(input[record[i]], inlier[i] != 0);
    }
    row.AddFrame(counts);
  }
  return row;
}

std::string Millis(const std::vector<double>& seconds) {
  char text[32];
  const double ms = Median(seconds) * 1e3;
  std::snprintf(text, sizeof text, ms >= 100.0 ? "%.0f ms" : "%.1f ms", ms);
  return text;
}

std::string Pct(double percent) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f %%", percent);
  return text;
}

std::string Pct(uint64_t part, uint64_t whole) {
  return Pct(Percent(part, whole));
}

void PrintNoise(const std::vector<NoiseRow>& rows) {
  std::cout << "\n### Noise\n\n"
            << "| Method | Settings | Time per frame | Noise removed | Objects removed "
               "| Ground removed | Real removed (objects + ground) |\n"
            << "|---|---|---|---|---|---|---|\n";
  for (const NoiseRow& row : rows) {
    const ClassCounts noise = row.tally.Noise();
    const ClassCounts surface = row.tally.Surface();
    const ClassCounts& objects = row.tally[sim::TruthKind::kReal];
    const ClassCounts& ground = row.tally[sim::TruthKind::kGround];
    std::cout << "| " << row.method << " | " << row.settings << " | " << Millis(row.seconds)
              << " | " << Pct(noise.removed, noise.returns) << " | "
              << Pct(objects.removed, objects.returns) << " | "
              << Pct(ground.removed, ground.returns) << " | "
              << Pct(surface.removed, surface.returns) << " |\n";
  }

  std::cout << "\nNoise removed per kind (returns per frame in brackets):\n\n| Method |";
  std::vector<sim::TruthKind> kinds;
  const OutcomeTally& first = rows.front().tally;
  for (uint32_t k = 0; k < sim::kTruthKindCount; ++k) {
    const sim::TruthKind kind = static_cast<sim::TruthKind>(k);
    if (sim::IsNoiseTruth(kind) && first[kind].returns > 0) {
      kinds.push_back(kind);
      std::cout << " " << sim::TruthKindName(kind) << " (" << first[kind].returns / kMeasuredFrames
                << ") |";
    }
  }
  std::cout << "\n|---|";
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    std::cout << "---|";
  }
  std::cout << "\n";
  for (const NoiseRow& row : rows) {
    std::cout << "| " << row.method << " |";
    for (const sim::TruthKind kind : kinds) {
      std::cout << " " << Pct(row.tally[kind].removed, row.tally[kind].returns) << " |";
    }
    std::cout << "\n";
  }
}

void PrintGround(const std::vector<GroundRow>& rows) {
  std::cout << "\n### Ground\n\n"
            << "| Method | Settings | Time per frame | Ground recall | Worst frame | Ground recall "
            << "within " << kGroundRange << " m | Ground never classified "
            << "| Objects classified as ground | Noise classified as ground |\n"
            << "|---|---|---|---|---|---|---|---|---|\n";
  for (const GroundRow& row : rows) {
    const GroundCounts& c = row.counts;
    std::cout << "| " << row.method << " | " << row.settings << " | " << Millis(row.seconds)
              << " | " << Pct(c.groundFound, c.ground) << " | " << Pct(100.0 * row.worstRecall)
              << " | " << Pct(c.groundNearFound, c.groundNear) << " | "
              << Pct(c.groundUnlabelled, c.ground) << " | " << Pct(c.objectsAsGround, c.objects)
              << " | " << Pct(c.noiseAsGround, c.noise) << " |\n";
  }
}

int Main() {
  const sim::SimulationSettings settings = DriveSettings();
  std::cerr << "simulating " << settings.frames << " Marlo128 frames...\n";
  const std::vector<Frame> frames = SimulateDrive(settings);

  uint64_t returns = 0;
  for (uint32_t f = kWarmupFrames; f < frames.size(); ++f) {
    returns += static_cast<uint64_t>(std::count_if(
        frames[f].begin(), frames[f].end(), [](const _ori_point& p) { return p.distance > 0.0; }));
  }

  const std::string configText = ReadText(kConfig);
  std::vector<NoiseRow> noise;
  std::cerr << "our pipelines...\n";
  noise.push_back(RunOurNoise(frames, "ours: default pipeline marlo128.json", configText));
  // The noise filters alone: the default file without the motion and mounting corrections and
  // without ground detection, which are there to move or label returns, not to remove noise.
  const std::string filters =
      ConfigSubset(configText, [](int id) { return id != 27 && id != 31 && id != 35; });
  noise.push_back(RunOurNoise(frames, "ours: its noise filters only", filters));

  std::vector<double> buildSeconds;
  const StatisticalOutlierParams sorParams{};
  StatisticalOutlierRemoval sor(sorParams);
  std::ostringstream sorSettings;
  sorSettings << "k = " << sorParams.k << ", m = " << sorParams.stddevFactor << "; 3-D k-d tree";
  noise.push_back(RunPeerNoise(
      frames, "statistical outlier removal", sorSettings.str(),
      [&](const std::vector<Point3>& points, const KdTree& tree, std::vector<uint8_t>& outlier) {
        sor.Run(points, tree, outlier);
      },
      &buildSeconds));
  const RadiusOutlierParams rorParams{};
  std::ostringstream rorSettings;
  rorSettings << "r = " << rorParams.radius << " m, N = " << rorParams.minNeighbours
              << "; 3-D k-d tree";
  noise.push_back(RunPeerNoise(
      frames, "radius outlier removal", rorSettings.str(),
      [&](const std::vector<Point3>& points, const KdTree& tree, std::vector<uint8_t>& outlier) {
        RadiusOutlierRemoval(points, tree, rorParams, outlier);
      },
      nullptr));

  std::cerr << "ground...\n";
  std::vector<GroundRow> ground;
  ground.push_back(RunGroundDet(frames, configText));
  // The usual settings first; then the two usual remedies when the largest plane is not always
  // the road: a constraint on the normal, and more triples (with a quarter of the returns on the
  // road, 100 triples hold an all-road triple with about 80 % chance, 250 with about 98 %).
  RansacPlaneParams ransacParams;
  ground.push_back(RunRansac(frames, "RANSAC plane", ransacParams));
  RansacPlaneParams levelParams = ransacParams;
  levelParams.maxTiltDegrees = 10.0f;
  ground.push_back(RunRansac(frames, "RANSAC plane, near-horizontal", levelParams));
  RansacPlaneParams longerParams = ransacParams;
  longerParams.iterations = 250;
  ground.push_back(RunRansac(frames, "RANSAC plane, more triples", longerParams));

  std::cout << "Marlo128 city drive, ego speed " << kEgoSpeed << " m/s, seed " << kSeed
            << ", noise rates: " << RatesText(settings) << ".\n"
            << "Frames of " << frames.front().size() << " points, " << kWarmupFrames
            << " warm-up frames, then " << kMeasuredFrames << " measured frames with "
            << returns / kMeasuredFrames << " returns each on average. Times: median over the "
            << "measured frames, single thread.\n"
            << "k-d tree build (gathering the returns included): " << Millis(buildSeconds)
            << " per frame.\n";
  PrintNoise(noise);
  PrintGround(ground);
  return 0;
}

}  // namespace
}  // namespace peers
}  // namespace velmar

int main() {
  return velmar::peers::Main();
}
