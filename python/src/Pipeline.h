// velmar.Pipeline as the extension sees it: one ILidarAlgo, the messages the library printed
// while assembling it, and the calls a host makes. The Python class of the package derives from
// it and adds the checks and warnings that are easier to state in Python.
#ifndef VELMAR_PYTHON_PIPELINE_H
#define VELMAR_PYTHON_PIPELINE_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PointArray.h"
#include "framework/LidarAlgo.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace python {

class Pipeline {
 public:
  enum class ConfigKind { kPath, kJsonText };

  // Like ILidarAlgo::Create, never refuses: a configuration the library cannot use leaves
  // entries out and says why in Messages().
  Pipeline(LidarType model, const std::string& config, ConfigKind kind);

  pybind11::array Process(pybind11::handle frame);
  bool Update(const std::string& json);
  void ClearCache();

  // Ids and names of the assembled algorithms, in processing order.
  std::vector<std::pair<uint32_t, std::string>> Algorithms();
  // What the library printed during the last assembly (creation or Update), line by line.
  const std::vector<std::string>& Messages() const { return messages_; }
  LidarType Model() const { return model_; }

 private:
  LidarType model_;
  std::unique_ptr<ILidarAlgo> pipeline_;
  std::shared_ptr<PointsPool> pool_ = std::make_shared<PointsPool>();
  std::vector<std::string> messages_;
};

void BindPipeline(pybind11::module_& module);

}  // namespace python
}  // namespace velmar

#endif  // VELMAR_PYTHON_PIPELINE_H
