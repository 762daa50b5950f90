// The base of every algorithm of the pipeline: what the pipeline hands an algorithm at creation
// and the five operations through which it drives it. Hosts build against this layout, so it
// stays exactly this: the fields in this order and every operation pure, in this slot order.
// What the algorithms have in common beyond that lives in Algorithm.h.
#ifndef VELMAR_FRAMEWORK_ALGO_BASE_H
#define VELMAR_FRAMEWORK_ALGO_BASE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {

class AlgoBase {
 public:
  AlgoBase(const std::string& name, const std::string& desc, LidarType type)
      : name(name), desc(desc), lidar_type(type) {}

  virtual uint32_t Id() const = 0;
  virtual void Process(std::vector<_ori_point>& frame) = 0;
  virtual bool IsSupported(const std::string& lidarTypeName) = 0;
  virtual void ParseParams() = 0;
  virtual void ClearCache() = 0;
  virtual ~AlgoBase() = default;

  std::string name;
  std::string desc;
  std::map<std::string, double> num_params;
  std::map<std::string, std::string> str_params;
  LidarType lidar_type;
  uint32_t id = 0;
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGO_BASE_H
