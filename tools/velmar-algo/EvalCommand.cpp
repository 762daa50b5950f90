// velmar-algo eval: what each algorithm of a pipeline, and the pipeline as a whole, does to each
// class of return of a simulated recording.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>

#include "CommandSupport.h"
#include "Commands.h"
#include "EvalReport.h"
#include "FrameFeeder.h"
#include "Pipeline.h"
#include "StageMeter.h"

namespace velmar {
namespace tools {
namespace {

struct EvalCommandOptions {
  EvalOptions eval;
  std::string json;
  std::string plot;
};

void WriteTextFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) {
    throw CommandError(path + ": cannot write file");
  }
}

void Eval(const EvalCommandOptions& options) {
  EvalReport report = Evaluate(options.eval);
  PrintEvalTable(report, std::cout);
  if (!options.json.empty()) {
    WriteTextFile(options.json, EvalJson(report));
  }
  if (!options.plot.empty() && !PlotEval(report, options.plot)) {
    throw CommandError(options.plot + ": cannot write picture");
  }
}

}  // namespace

EvalReport Evaluate(const EvalOptions& options) {
  LidarType model = ParseModel(options.model);
  std::unique_ptr<sim::RecordingReader> reader = OpenRecording(options.input);
  CheckRecordingModel(*reader, options.input, model);
  std::unique_ptr<LidarAlgo> pipeline = OpenMeasurablePipeline(model, options.config);

  StageMeter meter(pipeline->Algorithms());
  EvalReport report;
  report.model = options.model;
  report.config = options.config;
  report.recording = options.input;
  report.packetPoints = options.packet;
  std::vector<OutcomeTally> stageTotals(meter.StageCount());
  DistortionMeter distortion(reader->Info());
  FeedRecording(
      *reader, [&meter](std::vector<_ori_point>& unit) { meter.Process(unit); }, options.packet,
      std::numeric_limits<uint32_t>::max(),
      [&](FedFrame& frame) {
        ++report.frames;
        meter.Collect(frame.units, stageTotals);
        std::vector<int64_t> representative = Representatives(
            frame.input.size(), frame.output, [&frame](std::size_t j) { return frame.origin[j]; });
        TallyOutcomes(frame.input, frame.output, representative, report.pipeline);
        distortion.Add(frame, representative);
      },
      "eval");
  for (std::size_t s = 0; s < meter.StageCount(); ++s) {
    const AlgoBase& algorithm = meter.Algorithm(s);
    report.stages.push_back(StageReport{algorithm.Id(), algorithm.name, stageTotals[s]});
  }
  report.distortion = distortion.Report();
  return report;
}

void AddEvalCommand(CLI::App& app) {
  auto options = std::make_shared<EvalCommandOptions>();
  CLI::App* command = app.add_subcommand(
      "eval", "Measure what each algorithm of a pipeline does to each truth class");
  command->add_option("--model", options->eval.model, "sensor model, e.g. Marlo128")->required();
  command->add_option("--config", options->eval.config, "pipeline configuration (JSON)")
      ->required();
  command->add_option("--packet", options->eval.packet, "feed packets of N points")
      ->check(CLI::PositiveNumber);
  command->add_option("--json", options->json, "also write the figures as JSON to FILE");
  command->add_option("--plot", options->plot, "also draw a bar chart into FILE (PNG)");
  command->add_option("IN", options->eval.input, "recording folder")->required();
  command->callback([options] { RunGuarded("eval", [&options] { Eval(*options); }); });
}

}  // namespace tools
}  // namespace velmar
