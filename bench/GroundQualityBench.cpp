// Ground detection with the shipped Marlo128 configuration, judged against truth: simulated
// drives over flat, sloped and curbed streets, the labelled real snowfall frame and the unlabelled
// city frames of ../shared/data (imported with the Marlo128 mapping, when the folder is there).
// Every frame goes through GroundDet packet by packet, as a sensor delivers it. Prints ground
// precision, recall and F1 over the returns ground detection looks at (the forward 120 degrees,
// nearer than 40 m, below the sampled band's top), per dataset class for the labelled frame, and
// the processing time of a frame.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "ground/GroundDet.h"
#include "sim/Import.h"
#include "sim/SensorModel.h"
#include "sim/Simulator.h"

namespace velmar {
namespace bench {
namespace {

constexpr int kGroundDetId = 35;
constexpr double kMaxRange = 40.0;
constexpr double kFieldStartDeg = 30.0;
constexpr double kFieldEndDeg = 150.0;
// Label of a return ground detection never classified; it labels ground `label` and returns
// above the band `label` - 1.
constexpr int32_t kUntouched = -1000;
constexpr int kTimingRepeats = 21;
constexpr uint32_t kDriveFrames = 6;
constexpr double kDriveSpeed = 10.0;  // m/s
constexpr double kSlope = 0.05;       // rise per metre forward

struct Scores {
  uint64_t considered = 0;    // scored returns in the region
  uint64_t unclassified = 0;  // of them, never classified by the wrapper
  uint64_t ground = 0;
  uint64_t ground_classified = 0;
  uint64_t ground_found = 0;
  uint64_t other = 0;
  uint64_t other_taken = 0;
  uint64_t other_clear = 0;  // other returns standing clear of the band around the true ground
  uint64_t other_clear_taken = 0;
  std::map<uint32_t, std::pair<uint64_t, uint64_t>> by_class;  // returns, labelled ground
  std::vector<double> frame_ms;

  double Precision() const { return Share(ground_found, ground_found + other_taken); }
  double ClearPrecision() const { return Share(ground_found, ground_found + other_clear_taken); }
  double Recall() const { return Share(ground_found, ground); }
  double ClassifiedRecall() const { return Share(ground_found, ground_classified); }
  double F1() const {
    const double p = Precision();
    const double r = Recall();
    return p + r == 0.0 ? 0.0 : 2.0 * p * r / (p + r);
  }
  static double Share(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  }
};

std::string GroundParams(const std::string& configPath, int32_t* label) {
  std::ifstream in(configPath);
  std::stringstream text;
  text << in.rdbuf();
  rapidjson::Document document;
  document.Parse(text.str().c_str());
  if (document.HasParseError() || !document.IsObject() || !document.HasMember("algo_list")) {
    std::fprintf(stderr, "cannot read %s\n", configPath.c_str());
    return "{}";
  }
  for (const rapidjson::Value& entry : document["algo_list"].GetArray()) {
    if (entry.HasMember("id") && entry["id"].IsInt() && entry["id"].GetInt() == kGroundDetId &&
        entry.HasMember("param")) {
      const rapidjson::Value& param = entry["param"];
      if (param.HasMember("debug_using_echo") && param["debug_using_echo"].IsNumber()) {
        *label = static_cast<int32_t>(param["debug_using_echo"].GetDouble());
      }
      rapidjson::StringBuffer buffer;
      rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
      param.Accept(writer);
      return buffer.GetString();
    }
  }
  return "{}";
}

// The true ground beneath a return: the nearest ground return of the frame (by truth) within
// kNearestGroundRadius across, found on a grid of cells that size.
class TrueGround {
 public:
  explicit TrueGround(const std::vector<_ori_point>& frame) {
    for (const _ori_point& p : frame) {
      if (p.distance > 0.0 && sim::TruthKindOf(p) == sim::TruthKind::kGround) {
        cells_[Key(Cell(p.x), Cell(p.y))].push_back(&p);
      }
    }
  }

  // False when no ground return lies within reach.
  bool HeightBelow(const _ori_point& p, double* groundZ) const {
    double best = kNearestGroundRadius * kNearestGroundRadius;
    bool found = false;
    for (int64_t dy = -1; dy <= 1; ++dy) {
      for (int64_t dx = -1; dx <= 1; ++dx) {
        const auto cell = cells_.find(Key(Cell(p.x) + dx, Cell(p.y) + dy));
        if (cell == cells_.end()) {
          continue;
        }
        for (const _ori_point* g : cell->second) {
          const double squared = (g->x - p.x) * (g->x - p.x) + (g->y - p.y) * (g->y - p.y);
          if (squared <= best) {
            best = squared;
            *groundZ = g->z;
            found = true;
          }
        }
      }
    }
    return found;
  }

 private:
  static constexpr double kNearestGroundRadius = 1.0;
  static int64_t Cell(double v) {
    return static_cast<int64_t>(std::floor(v / kNearestGroundRadius));
  }
  static int64_t Key(int64_t x, int64_t y) { return x * 1000003 + y; }
  std::unordered_map<int64_t, std::vector<const _ori_point*>> cells_;
};

class GroundRun {
 public:
  GroundRun(const std::string& params, int32_t label, uint32_t packetPoints)
      : label_(label),
        packet_points_(packetPoints),
        algo_(MakeAlgo(kGroundDetId, LIDAR_MARLO128, params)) {
    auto* det = dynamic_cast<GroundDet*>(algo_.get());
    z_upper_ = det != nullptr ? det->detector_param.sample_region_z_upper : -1.0f;
    band_ = det != nullptr ? det->filter_ground_points_threshold : 0.1f;
  }

  // Feeds one frame packet by packet and scores it; returns the processing time in ms.
  double Frame(const std::vector<_ori_point>& input, Scores& scores) {
    std::vector<_ori_point> frame = input;
    for (std::size_t i = 0; i < frame.size(); ++i) {
      frame[i].aux_index = static_cast<int32_t>(i);
      frame[i].label = kUntouched;
    }
    std::vector<_ori_point> output;
    output.reserve(frame.size() * 2);
    std::vector<_ori_point> packet;
    std::chrono::steady_clock::duration spent{};
    for (std::size_t start = 0; start < frame.size(); start += packet_points_) {
      const std::size_t end = std::min(frame.size(), start + packet_points_);
      packet.assign(frame.begin() + static_cast<std::ptrdiff_t>(start),
                    frame.begin() + static_cast<std::ptrdiff_t>(end));
      const auto begin = std::chrono::steady_clock::now();
      algo_->Process(packet);
      spent += std::chrono::steady_clock::now() - begin;
      output.insert(output.end(), packet.begin(), packet.end());
    }
    // A withheld return leaves a removed placeholder and comes back later: its last copy counts.
    std::vector<int32_t> given(frame.size(), kUntouched);
    for (const _ori_point& p : output) {
      if (p.aux_index >= 0 && static_cast<std::size_t>(p.aux_index) < given.size()) {
        given[static_cast<std::size_t>(p.aux_index)] = p.label;
      }
    }
    Score(input, given, scores);
    return std::chrono::duration<double, std::milli>(spent).count();
  }

 private:
  void Score(const std::vector<_ori_point>& input, const std::vector<int32_t>& given,
             Scores& scores) const {
    const TrueGround trueGround(input);
    for (std::size_t i = 0; i < input.size(); ++i) {
      const _ori_point& p = input[i];
      const bool inRegion = p.distance > 0.0 && p.distance < kMaxRange && p.z < z_upper_ &&
                            p.hor_angle >= kFieldStartDeg && p.hor_angle <= kFieldEndDeg;
      const sim::TruthKind kind = sim::TruthKindOf(p);
      const bool isGround = kind == sim::TruthKind::kGround;
      if (!inRegion || !(isGround || kind == sim::TruthKind::kReal)) {
        continue;
      }
      const bool taken = given[i] == label_;
      const bool classified = given[i] == label_ || given[i] == label_ - 1;
      ++scores.considered;
      scores.unclassified += classified ? 0 : 1;
      scores.ground_classified += isGround && classified ? 1 : 0;
      (isGround ? scores.ground : scores.other) += 1;
      (isGround ? scores.ground_found : scores.other_taken) += taken ? 1 : 0;
      double groundZ = 0.0;
      if (!isGround && (!trueGround.HeightBelow(p, &groundZ) || std::fabs(p.z - groundZ) > band_)) {
        ++scores.other_clear;
        scores.other_clear_taken += taken ? 1 : 0;
      }
      auto& perClass = scores.by_class[p.reserved_a >> 16];
      ++perClass.first;
      perClass.second += taken ? 1 : 0;
    }
  }

  int32_t label_;
  std::size_t packet_points_;
  std::shared_ptr<AlgoBase> algo_;
  float z_upper_ = -1.0f;
  float band_ = 0.1f;
};

double Median(std::vector<double> values) {
  if (values.empty()) {
    return 0.0;
  }
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// "clear" is the precision when the other returns within the band of the true ground (wall feet,
// the lowest centimetres of a car, a curb face) are left out: they are ground by height, and no
// plane can tell them apart. "classified" is the recall over the ground returns ground detection
// classified; "unclassified" the share of returns it never classifies (no plane beneath them, or
// arriving before the first fit of a revolution on a face it does not collect).
void PrintHeader() {
  std::printf("%-26s %8s %8s %9s %8s %8s %8s %10s %12s %9s\n", "frames", "scored", "ground",
              "precision", "recall", "F1", "clear", "classified", "unclassified", "ms/frame");
}

void PrintScores(const std::string& name, const Scores& s) {
  std::printf("%-26s %8llu %8llu %8.2f%% %7.2f%% %7.2f%% %7.2f%% %9.2f%% %11.2f%% %9.2f\n",
              name.c_str(), static_cast<unsigned long long>(s.considered),
              static_cast<unsigned long long>(s.ground), s.Precision(), s.Recall(), s.F1(),
              s.ClearPrecision(), s.ClassifiedRecall(), Scores::Share(s.unclassified, s.considered),
              Median(s.frame_ms));
}

void PrintClasses(const Scores& s) {
  for (const auto& [datasetClass, counts] : s.by_class) {
    std::printf("    %-22s %7llu returns, %6.2f%% labelled ground (%s)\n",
                sim::DatasetClassName(datasetClass).c_str(),
                static_cast<unsigned long long>(counts.first),
                Scores::Share(counts.second, counts.first),
                sim::TruthOfDatasetClass(datasetClass) == sim::TruthKind::kGround ? "ground"
                                                                                  : "not ground");
  }
}

struct DriveCase {
  const char* name;
  const char* scene;
  double slope;
};

void MeasureDrive(const DriveCase& c, const std::string& params, int32_t label) {
  sim::SimulationSettings settings;
  settings.model = "Marlo128";
  settings.scene.name = c.scene;
  settings.scene.egoSpeed = kDriveSpeed;
  settings.scene.groundSlope = c.slope;
  settings.frames = kDriveFrames;
  sim::Simulator simulator(settings);
  GroundRun run(params, label, simulator.Model().packetPoints);
  Scores scores;
  std::vector<_ori_point> frame;
  while (simulator.NextFrame(frame)) {
    scores.frame_ms.push_back(run.Frame(frame, scores));
  }
  PrintScores(c.name, scores);
}

// The frame once for the scores, then again and again for a steady time.
Scores MeasureImported(const std::vector<_ori_point>& frame, const std::string& params,
                       int32_t label, uint32_t packetPoints) {
  GroundRun run(params, label, packetPoints);
  Scores scores;
  run.Frame(frame, scores);
  for (int repeat = 0; repeat < kTimingRepeats; ++repeat) {
    Scores ignored;
    scores.frame_ms.push_back(run.Frame(frame, ignored));
  }
  return scores;
}

void MeasureRealFrames(const std::string& params, int32_t label, bool labelledOnly) {
  const std::string data = VELMAR_SHARED_DATA_DIR;
  sim::ImportOptions options;
  options.mapping = sim::ImportMapping::kMarlo128;
  const uint32_t packetPoints = sim::ImportedRecordingInfo(options).packetPoints;
  try {
    const sim::SourceCloud wads =
        sim::ReadKittiBin(data + "/wads-sample/sample.bin", data + "/wads-sample/sample.label");
    const Scores scores =
        MeasureImported(sim::MapFrame(wads, options, 0), params, label, packetPoints);
    PrintScores("real snowfall (WADS)", scores);
    PrintClasses(scores);
  } catch (const sim::ImportError& e) {
    std::printf("real snowfall frame skipped: %s\n", e.what());
  }
  if (labelledOnly) {
    return;
  }
  // Unlabelled: every return is scored as "real", to count the share labelled ground.
  options.unlabelledTruth = sim::TruthKind::kReal;
  for (int index = 0; index < 6; ++index) {
    char name[64];
    std::snprintf(name, sizeof(name), "/kitti-00/%06d.bin", index);
    try {
      const sim::SourceCloud cloud = sim::ReadKittiBin(data + name);
      const Scores scores =
          MeasureImported(sim::MapFrame(cloud, options, 0), params, label, packetPoints);
      std::printf("%-26s %8llu returns, %6.2f%% labelled ground, %11.2f%% unclassified %9.2f\n",
                  (std::string("real city") + name).c_str(),
                  static_cast<unsigned long long>(scores.considered),
                  Scores::Share(scores.other_taken, scores.other),
                  Scores::Share(scores.unclassified, scores.considered), Median(scores.frame_ms));
    } catch (const sim::ImportError& e) {
      std::printf("real city frame skipped: %s\n", e.what());
    }
  }
}

}  // namespace
}  // namespace bench
}  // namespace velmar

int main(int argc, char** argv) {
  using namespace velmar::bench;
  // Arguments: a configuration other than the shipped one, and "real", "labelled" or
  // "simulated" to run only those frames.
  const std::string config = argc > 1 ? argv[1] : std::string(VELMAR_CONFIG_DIR) + "/marlo128.json";
  const std::string only = argc > 2 ? argv[2] : "";
  int32_t label = 1;
  const std::string params = GroundParams(config, &label);
  std::printf("ground detection of %s (ground label %d)\n", config.c_str(), label);
  PrintHeader();
  const DriveCase drives[] = {{"simulated highway (flat)", "highway", 0.0},
                              {"simulated city (curbed)", "city", 0.0},
                              {"simulated city, 5% slope", "city", kSlope},
                              {"simulated highway, 5%", "highway", kSlope}};
  for (const DriveCase& drive : drives) {
    if (only != "real") {
      MeasureDrive(drive, params, label);
    }
  }
  if (only != "simulated") {
    MeasureRealFrames(params, label, only == "labelled");
  }
  return 0;
}
