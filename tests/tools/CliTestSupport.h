// Helpers of the tool tests: scratch folders, running velmar-algo, simulated frames, and small
// hand-built recordings whose every point is known.
#ifndef VELMAR_TESTS_TOOLS_CLI_TEST_SUPPORT_H
#define VELMAR_TESTS_TOOLS_CLI_TEST_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "Outcome.h"
#include "sim/Simulator.h"
#include "sim/Truth.h"
#include "support/TestSupport.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace clitest {

// A fresh folder, removed with its contents at the end of the test.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& Path() const { return path_; }
  std::string Path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct CommandResult {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs `velmar-algo <arguments>` (arguments are passed to the shell as they stand).
CommandResult RunCli(const std::string& arguments, const ScratchFolder& scratch);

void WriteText(const std::string& path, const std::string& text);
std::string ReadText(const std::string& path);

// A return of the given truth class at `distance` straight ahead, height `z`.
_ori_point TruthPoint(sim::TruthKind kind, double distance, double pulseWidth, double z = 0.0);

// Settings of a four-frame simulation without noise, and one frame of it.
sim::SimulationSettings Settings(const std::string& model, const std::string& scene = "city",
                                 uint64_t seed = 1);
std::vector<_ori_point> Generate(const sim::SimulationSettings& settings, uint32_t index = 0);

// Writes a recording of `model` made of `frames`.
void WriteRecording(const std::string& folder, const std::string& model,
                    const std::vector<std::vector<_ori_point>>& frames);
std::vector<std::vector<_ori_point>> ReadRecording(const std::string& folder);

// The counts of one truth class in a tally: returns, removed, flagged, moved, added, lost.
std::vector<uint64_t> Counts(const tools::OutcomeTally& tally, sim::TruthKind kind);

// Width and height of a PNG file; {0, 0} when it is not a PNG.
struct PngSize {
  uint32_t width = 0;
  uint32_t height = 0;
};
PngSize ReadPngSize(const std::string& path);

}  // namespace clitest
}  // namespace velmar

#endif  // VELMAR_TESTS_TOOLS_CLI_TEST_SUPPORT_H
