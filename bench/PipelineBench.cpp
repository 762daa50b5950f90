// Whole default pipelines, as a host runs them, per simulated model.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iostream>
#include <sstream>

#include "BenchSupport.h"
#include "framework/about.h"
#include "sim/SensorModel.h"

namespace velmar {
namespace bench {
namespace {

// The model's default configuration: configs/<name>.json, the name in lower case and cut at the
// first '/' ("ZephelB2/B3/MP" -> zephelb2.json).
std::string DefaultConfig(const std::string& model) {
  std::string file = model.substr(0, model.find('/'));
  std::transform(file.begin(), file.end(), file.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::string(VELMAR_CONFIG_DIR) + "/" + file + ".json";
}

// The drag filter, where a configuration has it, wants packets and ground detection fits when a
// packet opening the reference face arrives, so drivers forward packets; whole frames are measured
// too for hosts that gather frames first.
void RunPipeline(benchmark::State& state, const sim::SensorModel* model, bool packets) {
  std::unique_ptr<ILidarAlgo> pipeline;
  {
    std::ostringstream sink;
    std::streambuf* previous = std::cout.rdbuf(sink.rdbuf());
    pipeline = ILidarAlgo::Create(model->type, DefaultConfig(model->name));
    std::cout.rdbuf(previous);
  }
  const SimulatedDrive& drive = Drive(model->name);
  MeasureFrames(state, drive.frames, packets ? drive.packetPoints : 0, 14,
                [&](Frame& frame) { pipeline->Process(frame); });
  state.SetLabel(DefaultConfig(model->name).substr(std::string(VELMAR_CONFIG_DIR).size() + 1));
}

const bool kRegistered = [] {
  for (const sim::SensorModel& model : sim::SensorModels()) {
    if (!std::ifstream(DefaultConfig(model.name))) {
      continue;
    }
    for (const bool packets : {true, false}) {
      const std::string name = "pipeline/" + model.name + (packets ? "/packets" : "/frames");
      benchmark::RegisterBenchmark(name.c_str(), RunPipeline, &model, packets)
          ->UseManualTime()
          ->Unit(benchmark::kMillisecond);
    }
  }
  return true;
}();

}  // namespace
}  // namespace bench
}  // namespace velmar
