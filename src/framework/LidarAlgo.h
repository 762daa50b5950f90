// The pipeline: the algorithms of one configuration, run in order of id over every frame.
#ifndef VELMAR_FRAMEWORK_LIDAR_ALGO_H
#define VELMAR_FRAMEWORK_LIDAR_ALGO_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "framework/AlgoBase.h"
#include "velmar/lidar_algo.h"

namespace velmar {

class LidarAlgo : public ILidarAlgo {
 public:
  LidarAlgo(LidarType type, const std::string& configPath);

  void Process(std::vector<_ori_point>& frame) override;
  bool UpdateAlgoParam(const std::string& json) override;
  void ClearCache() override;

  bool ParseAlgoConfigFromFile(const std::string& path);
  bool ParseAlgoConfigImp(const rapidjson::Document& document);
  // As above; relative data-file paths of the algorithms are taken from `dataFolder` (ending in
  // '/', or empty for the working directory).
  bool ParseAlgoConfigImp(const rapidjson::Document& document, const std::string& dataFolder);

  // The assembled algorithms in processing order; for inspection by tools and tests.
  std::vector<std::shared_ptr<AlgoBase>> Algorithms();

 protected:
  // Builds the algorithm of one "algo_list" entry, or nullptr when the entry is skipped.
  std::shared_ptr<AlgoBase> AssembleEntry(const rapidjson::Value& entry,
                                          const std::string& dataFolder) const;
  bool AcceptsModel(AlgoBase& algo, const rapidjson::Value* lidarTypes) const;

  std::vector<std::shared_ptr<AlgoBase>> algos;
  LidarType lidar_type;
  std::mutex mutex;
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_LIDAR_ALGO_H
