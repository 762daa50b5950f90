// velmar-algo run: feeds a recording through a pipeline as a host does and writes what comes out.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>

#include "CommandSupport.h"
#include "Commands.h"
#include "FrameFeeder.h"
#include "Outcome.h"
#include "Pipeline.h"
#include "RunRecording.h"

namespace velmar {
namespace tools {
namespace {

constexpr double kMillisecondsPerSecond = 1000.0;
constexpr double kPointsPerMillion = 1e6;

class RunSummary {
 public:
  void Add(const FedFrame& frame) {
    ++frames_;
    pointsIn_ += frame.input.size();
    pointsOut_ += frame.output.size();
    returnsIn_ += std::count_if(frame.input.begin(), frame.input.end(), IsReturn);
    returnsOut_ += std::count_if(frame.output.begin(), frame.output.end(), IsReturn);
    unreturned_ += frame.unreturned;
    std::vector<int64_t> representative = Representatives(
        frame.input.size(), frame.output, [&frame](std::size_t j) { return frame.origin[j]; });
    TallyOutcomes(frame.input, frame.output, representative, tally_);
    seconds_.push_back(frame.seconds);
  }

  void Print(std::ostream& out, const std::string& written) const {
    ClassCounts all = tally_.Noise();
    all += tally_.Surface();
    out << "frames           " << frames_ << '\n'
        << "points in        " << pointsIn_ << " (" << returnsIn_ << " returns)\n"
        << "points out       " << pointsOut_ << " (" << returnsOut_ << " returns)\n"
        << "removed          " << all.removed << " returns\n";
    if (all.added > 0) {
      out << "added            " << all.added << " returns appended by the pipeline\n";
    }
    if (all.lost > 0 || unreturned_ > 0) {
      out << "warning          " << all.lost << " returns lost, " << unreturned_
          << " packets never handed back (written unprocessed)\n";
    }
    out << "time per frame   " << TimeLine() << '\n'
        << "throughput       " << ThroughputLine() << '\n'
        << "written to       " << written << std::endl;
  }

  RunFigures Figures() const {
    RunFigures figures;
    figures.frames = frames_;
    figures.pointsIn = pointsIn_;
    figures.pointsOut = pointsOut_;
    figures.returnsIn = returnsIn_;
    figures.returnsOut = returnsOut_;
    figures.unreturned = unreturned_;
    for (double s : seconds_) {
      figures.seconds += s;
    }
    figures.tally = tally_;
    return figures;
  }

 private:
  std::string TimeLine() const {
    if (seconds_.empty()) {
      return "-";
    }
    std::vector<double> sorted = seconds_;
    std::sort(sorted.begin(), sorted.end());
    double median = sorted[sorted.size() / 2];
    if (sorted.size() % 2 == 0) {
      median = (sorted[sorted.size() / 2 - 1] + median) / 2.0;
    }
    return "median " + Milliseconds(median) + ", worst " + Milliseconds(sorted.back());
  }

  std::string ThroughputLine() const {
    double total = 0.0;
    for (double s : seconds_) {
      total += s;
    }
    if (total <= 0.0) {
      return "-";
    }
    char text[96];
    std::snprintf(text, sizeof(text), "%.2f Mpoints/s (%.1f frames/s)",
                  static_cast<double>(pointsIn_) / total / kPointsPerMillion,
                  static_cast<double>(frames_) / total);
    return text;
  }

  static std::string Milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f ms", seconds * kMillisecondsPerSecond);
    return text;
  }

  uint32_t frames_ = 0;
  uint64_t pointsIn_ = 0;
  uint64_t pointsOut_ = 0;
  uint64_t returnsIn_ = 0;
  uint64_t returnsOut_ = 0;
  uint64_t unreturned_ = 0;
  OutcomeTally tally_;
  std::vector<double> seconds_;
};

// The output replaces whatever recording is at its place, so it must be neither the input nor
// a folder holding it.
void CheckDistinctFolders(const std::string& input, const std::string& output) {
  std::error_code error;
  const std::filesystem::path in = std::filesystem::weakly_canonical(input, error);
  const std::filesystem::path out = std::filesystem::weakly_canonical(output, error);
  const auto mismatch = std::mismatch(out.begin(), out.end(), in.begin(), in.end());
  if (mismatch.first == out.end()) {
    throw CommandError(output + ": output folder is the input recording or holds it");
  }
}

void RunInto(const RunOptions& options, RunSummary& summary) {
  LidarType model = ParseModel(options.model);
  std::unique_ptr<sim::RecordingReader> reader = OpenRecording(options.input);
  CheckRecordingModel(*reader, options.input, model);
  CheckDistinctFolders(options.input, options.output);
  std::unique_ptr<ILidarAlgo> pipeline = OpenPipeline(model, options.config);

  sim::RecordingInfo info = reader->Info();
  info.frames = 0;
  info.attributes["config"] = options.config;
  info.attributes["source"] = options.input;
  info.attributes["fed_as"] =
      options.packet == 0 ? "frames" : "packets of " + std::to_string(options.packet);
  sim::StagedFolder staged(options.output);
  sim::RecordingWriter writer(staged.Path(), info);
  FeedRecording(
      *reader, [&pipeline](std::vector<_ori_point>& unit) { pipeline->Process(unit); },
      options.packet, std::numeric_limits<uint32_t>::max(),
      [&](FedFrame& frame) {
        writer.WriteFrame(frame.output);
        summary.Add(frame);
      },
      "run");
  writer.Close();
  staged.Commit();
}

void Run(const RunOptions& options) {
  RunSummary summary;
  RunInto(options, summary);
  summary.Print(std::cout, options.output);
}

}  // namespace

RunFigures RunRecording(const RunOptions& options) {
  RunSummary summary;
  RunInto(options, summary);
  return summary.Figures();
}

void AddRunCommand(CLI::App& app) {
  auto options = std::make_shared<RunOptions>();
  CLI::App* command = app.add_subcommand(
      "run", "Feed a recording through a pipeline as a host does and write the result");
  command->add_option("--model", options->model, "sensor model, e.g. Marlo128")->required();
  command->add_option("--config", options->config, "pipeline configuration (JSON)")->required();
  command
      ->add_option("--packet", options->packet,
                   "feed packets of N points instead of whole frames (96, 128, 192 for the "
                   "packet-level filters)")
      ->check(CLI::PositiveNumber);
  command->add_option("IN", options->input, "input recording folder")->required();
  command->add_option("OUT", options->output, "output recording folder")->required();
  command->callback([options] { RunGuarded("run", [&options] { Run(*options); }); });
}

}  // namespace tools
}  // namespace velmar
