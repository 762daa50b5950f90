// The figures of velmar-algo eval and their three forms: a table, a JSON document and a bar
// chart.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_EVAL_REPORT_H
#define VELMAR_TOOLS_VELMAR_ALGO_EVAL_REPORT_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "Distortion.h"
#include "Outcome.h"

namespace velmar {
namespace tools {

struct StageReport {
  uint32_t id = 0;
  std::string name;
  OutcomeTally tally;  // what this algorithm alone did, over the whole recording
};

struct EvalReport {
  std::string model;
  std::string config;
  std::string recording;
  uint32_t frames = 0;
  uint32_t packetPoints = 0;        // 0 when fed whole frames
  std::vector<StageReport> stages;  // in pipeline order
  OutcomeTally pipeline;            // recording in, host's frames out
  DistortionReport distortion;      // static returns against the true motion, in and out
};

struct EvalOptions {
  std::string model;
  std::string config;
  std::string input;
  uint32_t packet = 0;
};

// Runs the pipeline of `options` over the recording and measures it.
EvalReport Evaluate(const EvalOptions& options);

void PrintEvalTable(const EvalReport& report, std::ostream& out);
std::string EvalJson(const EvalReport& report);
// Bar chart of noise recall and real returns removed, per algorithm and for the pipeline; false
// when the file cannot be written.
bool PlotEval(const EvalReport& report, const std::string& path);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_EVAL_REPORT_H
