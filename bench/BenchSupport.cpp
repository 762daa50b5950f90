#include "BenchSupport.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>

#include "CountingAllocator.h"
#include "framework/AlgoFactory.h"
#include "framework/LidarAlgo.h"
#include "sim/SensorModel.h"
#include "sim/Simulator.h"

namespace velmar {
namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kDriveFrames = 8;

double Seconds(Clock::duration d) {
  return std::chrono::duration<double>(d).count();
}

// Keeps the library's configuration messages out of the benchmark table.
class SilencedOutput {
 public:
  SilencedOutput() : previous_(std::cout.rdbuf(sink_.rdbuf())) {}
  ~SilencedOutput() { std::cout.rdbuf(previous_); }

 private:
  std::ostringstream sink_;
  std::streambuf* previous_;
};

// The frames of one timed iteration, restored from the source before each iteration so that
// every iteration sees unprocessed returns.
struct WorkUnits {
  std::vector<Frame> source;
  std::vector<Frame> work;

  void Split(const Frame& frame, std::size_t packetPoints) {
    source.clear();
    const std::size_t step =
        packetPoints == 0 ? std::max<std::size_t>(frame.size(), 1) : packetPoints;
    for (std::size_t begin = 0; begin < frame.size(); begin += step) {
      const std::size_t end = std::min(frame.size(), begin + step);
      source.emplace_back(frame.begin() + static_cast<std::ptrdiff_t>(begin),
                          frame.begin() + static_cast<std::ptrdiff_t>(end));
    }
    work.resize(source.size());
    for (std::size_t i = 0; i < source.size(); ++i) {
      work[i].reserve(source[i].size() * 2);
    }
  }

  void Restore(std::size_t i) { work[i].assign(source[i].begin(), source[i].end()); }
};

}  // namespace

const SimulatedDrive& Drive(const std::string& model, bool strongReturnArtefacts) {
  static std::map<std::pair<std::string, bool>, SimulatedDrive> cache;
  auto it = cache.find({model, strongReturnArtefacts});
  if (it != cache.end()) {
    return it->second;
  }
  sim::SimulationSettings settings;
  settings.model = model;
  settings.scene.name = "city";
  settings.scene.egoSpeed = 8.0;
  settings.noise[sim::NoiseKind::kRain] = 0.2;
  settings.noise[sim::NoiseKind::kSunlight] = 0.05;
  settings.noise[sim::NoiseKind::kInterference] = 0.05;
  if (strongReturnArtefacts) {
    for (sim::NoiseKind kind :
         {sim::NoiseKind::kCrosstalkVertical, sim::NoiseKind::kCrosstalkHorizontal,
          sim::NoiseKind::kGhost, sim::NoiseKind::kBloom}) {
      settings.noise[kind] = 1.0;
    }
  }
  settings.seed = 7;
  settings.frames = kDriveFrames;
  sim::Simulator simulator(settings);
  SimulatedDrive drive;
  drive.model = model;
  drive.packetPoints = simulator.Model().packetPoints;
  drive.frames.resize(kDriveFrames);
  for (uint32_t i = 0; i < kDriveFrames; ++i) {
    simulator.GenerateFrame(i, drive.frames[i]);
  }
  return cache.emplace(std::make_pair(model, strongReturnArtefacts), std::move(drive))
      .first->second;
}

std::string ColumnModel() {
  for (const char* name : {"QuillA4", "ZephelB2/B3/MP"}) {
    if (sim::FindSensorModel(name) != nullptr) {
      return name;
    }
  }
  return "Marlo128";
}

std::vector<Frame> TiledFrames(const std::string& model, std::size_t points, std::size_t count) {
  const SimulatedDrive& drive = Drive(model);
  std::vector<Frame> frames(count);
  std::size_t source = 0;
  std::size_t index = 0;
  for (Frame& frame : frames) {
    frame.reserve(points);
    while (frame.size() < points) {
      const Frame& from = drive.frames[source % drive.frames.size()];
      frame.push_back(from[index]);
      frame.back().mark = 0;
      if (++index == from.size()) {
        index = 0;
        ++source;
      }
    }
    if (!frame.empty()) {
      frame.back().mark = 1;
    }
  }
  return frames;
}

double CopySeconds(std::size_t points) {
  // The buffers are made once per size; the copy is timed anew on every call, right after the
  // case it is compared with, so that a busy spell on a shared machine weighs on both alike.
  struct Buffers {
    std::vector<_ori_point> from;
    std::vector<_ori_point> to;
  };
  static std::map<std::size_t, Buffers> cache;
  Buffers& buffers = cache[points];
  if (buffers.from.size() != points) {
    buffers.from.resize(points);
    buffers.to.resize(points);
    std::memset(buffers.from.data(), 1, points * sizeof(_ori_point));
    std::memset(buffers.to.data(), 0, points * sizeof(_ori_point));
  }
  constexpr int kRuns = 15;
  std::vector<double> runs;
  for (int run = 0; run < kRuns; ++run) {
    const auto start = Clock::now();
    std::memcpy(buffers.to.data(), buffers.from.data(), points * sizeof(_ori_point));
    benchmark::ClobberMemory();
    runs.push_back(Seconds(Clock::now() - start));
  }
  std::nth_element(runs.begin(), runs.begin() + runs.size() / 2, runs.end());
  return runs[runs.size() / 2];
}

std::shared_ptr<AlgoBase> MakeAlgo(int id, LidarType type, const std::string& params) {
  SilencedOutput quiet;
  rapidjson::Document document;
  document.Parse(params.c_str());
  return ConfigureAlgo(id, "bench", "", type, document.HasParseError() ? nullptr : &document);
}

void MeasureFrames(benchmark::State& state, const std::vector<Frame>& frames,
                   std::size_t packetPoints, std::size_t warmupFrames, const ProcessFn& process) {
  std::vector<WorkUnits> units(frames.size());
  std::size_t points = 0;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    units[i].Split(frames[i], packetPoints);
    points += frames[i].size();
  }
  const double meanPoints = static_cast<double>(points) / static_cast<double>(frames.size());

  std::size_t next = 0;
  // Each packet (or frame) is restored just before it is processed, as a driver fills a packet
  // and hands it over: a packet filter then finds its packet in cache, as it would live. Only the
  // Process calls are timed and counted.
  auto runFrame = [&](bool timed, double& seconds, uint64_t& allocations) {
    WorkUnits& unit = units[next++ % units.size()];
    Clock::duration spent{};
    uint64_t allocated = 0;
    for (std::size_t i = 0; i < unit.work.size(); ++i) {
      unit.Restore(i);
      const uint64_t allocationsBefore = AllocationCount();
      const auto start = Clock::now();
      process(unit.work[i]);
      spent += Clock::now() - start;
      allocated += AllocationCount() - allocationsBefore;
    }
    if (timed) {
      seconds = Seconds(spent);
      allocations += allocated;
    }
  };

  double seconds = 0.0;
  uint64_t allocations = 0;
  for (std::size_t i = 0; i < warmupFrames; ++i) {
    runFrame(false, seconds, allocations);
  }
  double total = 0.0;
  allocations = 0;
  for (auto _ : state) {
    runFrame(true, seconds, allocations);
    state.SetIterationTime(seconds);
    total += seconds;
  }
  const double iterations = static_cast<double>(state.iterations());
  const double perFrame = total / std::max(iterations, 1.0);
  state.counters["points"] = meanPoints;
  state.counters["Mpoints/s"] = perFrame > 0.0 ? meanPoints / perFrame / 1e6 : 0.0;
  state.counters["x_copy"] = perFrame / CopySeconds(static_cast<std::size_t>(meanPoints));
  state.counters["allocs/frame"] = static_cast<double>(allocations) / std::max(iterations, 1.0);
}

}  // namespace bench
}  // namespace velmar
