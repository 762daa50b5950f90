#include "Pipeline.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include "CommandSupport.h"

namespace velmar {
namespace tools {
namespace {

// Standard output is silenced while the empty pipeline is created: the library's note that no
// file was named says nothing to the user.
class SilencedOutput {
 public:
  SilencedOutput() : saved_(std::cout.rdbuf(sink_.rdbuf())) {}
  ~SilencedOutput() { std::cout.rdbuf(saved_); }
  SilencedOutput(const SilencedOutput&) = delete;
  SilencedOutput& operator=(const SilencedOutput&) = delete;

 private:
  std::ostringstream sink_;
  std::streambuf* saved_;
};

// Applied as a file, so that data files the configuration names by relative paths are found
// beside it, as a host's pipeline finds them.
std::unique_ptr<LidarAlgo> Configure(std::unique_ptr<LidarAlgo> pipeline, const std::string& path) {
  if (!pipeline->ParseAlgoConfigFromFile(path)) {
    throw CommandError(path + ": configuration refused by the library (see its message above)");
  }
  return pipeline;
}

}  // namespace

std::string ReadConfigText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CommandError(path + ": cannot open configuration file");
  }
  std::ostringstream text;
  text << file.rdbuf();
  if (text.str().empty()) {
    throw CommandError(path + ": configuration file is empty");
  }
  return text.str();
}

std::unique_ptr<ILidarAlgo> OpenPipeline(LidarType model, const std::string& configPath) {
  return OpenMeasurablePipeline(model, configPath);
}

std::unique_ptr<LidarAlgo> OpenMeasurablePipeline(LidarType model, const std::string& configPath) {
  ReadConfigText(configPath);  // a missing or empty file is the user's error, said plainly
  std::unique_ptr<LidarAlgo> pipeline;
  {
    SilencedOutput silence;
    pipeline = std::make_unique<LidarAlgo>(model, "");
  }
  return Configure(std::move(pipeline), configPath);
}

}  // namespace tools
}  // namespace velmar
