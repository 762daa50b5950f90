// Cost against frame size, from 10^4 to 10^6 points: the per-point work must stay constant.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"

namespace velmar {
namespace bench {
namespace {

struct ScalingCase {
  int id;
  const char* name;
  const char* params;
};

constexpr ScalingCase kCases[] = {
    {0, "copy", ""},
    {5, "UnderGroundPoint", "{\"filter_ground_height\": 2.5}"},
    {26, "LidarInterfere128", "{}"},
    {27, "UndistortPoint2", "{}"},
};

void RunScaling(benchmark::State& state, const ScalingCase& c) {
  const std::size_t points = static_cast<std::size_t>(state.range(0));
  const std::vector<Frame> frames = TiledFrames("Marlo128", points, 3);
  if (c.id == 0) {
    Frame target;
    target.reserve(points);
    MeasureFrames(state, frames, 0, 1, [&](Frame& frame) {
      target.assign(frame.begin(), frame.end());
      benchmark::DoNotOptimize(target.data());
    });
  } else {
    std::shared_ptr<AlgoBase> algo = MakeAlgo(c.id, LIDAR_MARLO128, c.params);
    MeasureFrames(state, frames, 0, 14, [&](Frame& frame) { algo->Process(frame); });
  }
  state.counters["ns/point"] = state.counters["Mpoints/s"] > 0.0
                                   ? 1e3 / static_cast<double>(state.counters["Mpoints/s"])
                                   : 0.0;
}

const bool kRegistered = [] {
  for (const ScalingCase& c : kCases) {
    benchmark::RegisterBenchmark((std::string("scaling/") + c.name).c_str(), RunScaling, c)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->Arg(10000)
        ->Arg(30000)
        ->Arg(100000)
        ->Arg(300000)
        ->Arg(1000000);
  }
  return true;
}();

}  // namespace
}  // namespace bench
}  // namespace velmar
