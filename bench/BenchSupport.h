// What the benchmarks share: simulated frames per model, the time of a plain copy of a frame (the
// floor for anything that reads and writes every record once), algorithms built through the id
// table, and the timed loop that feeds frames or packets the way a host does.
#ifndef VELMAR_BENCH_BENCH_SUPPORT_H
#define VELMAR_BENCH_BENCH_SUPPORT_H

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/AlgoBase.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace bench {

using Frame = std::vector<_ori_point>;

struct SimulatedDrive {
  std::string model;
  uint32_t packetPoints = 0;
  std::vector<Frame> frames;
};

// A few consecutive frames of a rainy city drive of `model`, generated once and cached. With
// `strongReturnArtefacts`, the drive also carries crosstalk, ghosts and blooming around every
// strong return, for the filters that remove them.
const SimulatedDrive& Drive(const std::string& model, bool strongReturnArtefacts = false);

// The simulated model that stands for the single-column "QuillA4"/"ZephelB2/B3/MP" family.
std::string ColumnModel();

// Frames of exactly `points` points, tiled from a model's drive, each ending on a marked point.
std::vector<Frame> TiledFrames(const std::string& model, std::size_t points, std::size_t count);

// Seconds one memcpy of `points` records takes (a median over repeated runs, cached per size).
double CopySeconds(std::size_t points);

// An algorithm of the id table configured from JSON parameter text; its messages are dropped.
std::shared_ptr<AlgoBase> MakeAlgo(int id, LidarType type, const std::string& params);

using ProcessFn = std::function<void(Frame&)>;

// Runs `process` over the frames in turn (whole frames when packetPoints is 0, otherwise packet
// by packet) after `warmupFrames` untimed frames, timing only the processing. Reports points per
// second, the ratio to a plain copy of the frame and the allocations per frame.
void MeasureFrames(benchmark::State& state, const std::vector<Frame>& frames,
                   std::size_t packetPoints, std::size_t warmupFrames, const ProcessFn& process);

}  // namespace bench
}  // namespace velmar

#endif  // VELMAR_BENCH_BENCH_SUPPORT_H
