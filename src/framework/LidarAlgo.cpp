#include "framework/LidarAlgo.h"

#include "framework/Messages.h"
#include "framework/about.h"

namespace velmar {

std::unique_ptr<ILidarAlgo> ILidarAlgo::Create(LidarType type, const std::string& configPath) {
  return std::make_unique<LidarAlgo>(type, configPath);
}

LidarAlgo::LidarAlgo(LidarType type, const std::string& configPath) : lidar_type(type) {
  // A bad configuration leaves a working pipeline that passes frames through; the reasons have
  // been printed by then.
  ParseAlgoConfigFromFile(configPath);
}

void LidarAlgo::Process(std::vector<_ori_point>& frame) {
  std::lock_guard<std::mutex> lock(mutex);
  for (const auto& algo : algos) {
    algo->Process(frame);
  }
}

void LidarAlgo::ClearCache() {
  std::lock_guard<std::mutex> lock(mutex);
  for (const auto& algo : algos) {
    algo->ClearCache();
  }
}

bool LidarAlgo::UpdateAlgoParam(const std::string& json) {
  if (json.empty()) {
    PrintLine("[algo]: algo json string is empty!");
    return false;
  }
  rapidjson::Document document;
  document.Parse<kJsonParseFlags>(json.c_str(), json.size());
  return ParseAlgoConfigImp(document);
}

std::vector<std::shared_ptr<AlgoBase>> LidarAlgo::Algorithms() {
  std::lock_guard<std::mutex> lock(mutex);
  return algos;
}

}  // namespace velmar
