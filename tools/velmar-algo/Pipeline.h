// Opening a pipeline for a configuration file. The library never refuses to create a pipeline:
// it prints why a configuration is bad and runs with no algorithms. A tool must tell the user
// instead, so the pipeline is created empty and the file is then applied with
// ParseAlgoConfigFromFile, whose result says whether the library accepted it. The library's own
// messages (algorithms added, parameters out of range, why a file was refused) still reach standard
// output.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_PIPELINE_H
#define VELMAR_TOOLS_VELMAR_ALGO_PIPELINE_H

#include <memory>
#include <string>

#include "framework/LidarAlgo.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

// The pipeline as a host sees it, through the public interface.
std::unique_ptr<ILidarAlgo> OpenPipeline(LidarType model, const std::string& configPath);

// The same pipeline with its algorithm list at hand, for measuring each algorithm.
std::unique_ptr<LidarAlgo> OpenMeasurablePipeline(LidarType model, const std::string& configPath);

// The text of a configuration file; CommandError when it cannot be read.
std::string ReadConfigText(const std::string& path);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_PIPELINE_H
