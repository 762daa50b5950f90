// What `velmar-algo run` does, as a function: feeds a recording through a pipeline as a host does,
// writes the result and returns the figures it printed. The Python batch runner calls it so that
// its output is the command's, byte for byte.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_RUN_RECORDING_H
#define VELMAR_TOOLS_VELMAR_ALGO_RUN_RECORDING_H

#include <cstdint>
#include <string>

#include "Outcome.h"

namespace velmar {
namespace tools {

struct RunOptions {
  std::string model;
  std::string config;
  std::string input;
  std::string output;
  uint32_t packet = 0;  // 0 feeds whole frames
};

struct RunFigures {
  uint32_t frames = 0;
  uint64_t pointsIn = 0;
  uint64_t pointsOut = 0;
  uint64_t returnsIn = 0;
  uint64_t returnsOut = 0;
  uint64_t unreturned = 0;  // packets never handed back
  double seconds = 0.0;     // spent inside Process, over every frame
  OutcomeTally tally;       // per truth class, recording in, frames out
};

// Throws CommandError or sim::RecordingError as the command reports them.
RunFigures RunRecording(const RunOptions& options);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_RUN_RECORDING_H
