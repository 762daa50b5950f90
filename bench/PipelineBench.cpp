// Whole default pipelines, as a host runs them, per simulated model.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iostream>
#include <sstream>

#include "BenchSupport.h"
#include "framework/about.h"
#include "sim/SensorModel.h"

namespace velmar {
namespace bench {
namespace {

// configs/<model>.json, with the characters a file name cannot hold replaced by '-'.
std::string DefaultConfig(const std::string& model) {
  std::string file = model;
  for (char& c : file) {
    if (c == '/') c = '-';
  }
  return std::string(VELMAR_CONFIG_DIR) + "/" + file + ".json";
}

void RunPipeline(benchmark::State& state, const sim::SensorModel* model) {
  std::unique_ptr<ILidarAlgo> pipeline;
  {
    std::ostringstream sink;
    std::streambuf* previous = std::cout.rdbuf(sink.rdbuf());
    pipeline = ILidarAlgo::Create(model->type, DefaultConfig(model->name));
    std::cout.rdbuf(previous);
  }
  // The drag filter, where a configuration has it, wants packets; the others take them as well,
  // so the pipeline is fed packet by packet like a driver that forwards every packet.
  const SimulatedDrive& drive = Drive(model->name);
  MeasureFrames(state, drive.frames, drive.packetPoints, 14,
                [&](Frame& frame) { pipeline->Process(frame); });
  state.SetLabel(DefaultConfig(model->name).substr(std::string(VELMAR_CONFIG_DIR).size() + 1));
}

void RunFramePipeline(benchmark::State& state, const sim::SensorModel* model) {
  std::unique_ptr<ILidarAlgo> pipeline;
  {
    std::ostringstream sink;
    std::streambuf* previous = std::cout.rdbuf(sink.rdbuf());
    pipeline = ILidarAlgo::Create(model->type, DefaultConfig(model->name));
    std::cout.rdbuf(previous);
  }
  const SimulatedDrive& drive = Drive(model->name);
  MeasureFrames(state, drive.frames, 0, 14, [&](Frame& frame) { pipeline->Process(frame); });
  state.SetLabel("whole frames");
}

const bool kRegistered = [] {
  for (const sim::SensorModel& model : sim::SensorModels()) {
    if (!std::ifstream(DefaultConfig(model.name))) {
      continue;
    }
    benchmark::RegisterBenchmark(("pipeline/" + model.name + "/packets").c_str(), RunPipeline,
                                 &model)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("pipeline/" + model.name + "/frames").c_str(),
                                 RunFramePipeline, &model)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
}  // namespace bench
}  // namespace velmar
