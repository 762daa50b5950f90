// The base of every algorithm of the pipeline, and the helpers with which algorithms read their
// parameters from the configuration.
#ifndef VELMAR_FRAMEWORK_ALGO_BASE_H
#define VELMAR_FRAMEWORK_ALGO_BASE_H

#include <cstdint>
#include <initializer_list>
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

 protected:
  // Each Read* leaves `field` as it is when `key` is absent and reports whether it was present.
  bool ReadParam(const std::string& key, double& field) const;
  bool ReadParam(const std::string& key, float& field) const;    // narrowed to single precision
  bool ReadParam(const std::string& key, int32_t& field) const;  // truncated toward zero
  bool ReadParam(const std::string& key, uint32_t& field) const;
  bool ReadParam(const std::string& key, std::string& field) const;

  // The value of `key`, or 0 after inserting `key` with value 0 when it is absent.
  double ParamOrInsertZero(const std::string& key);

  bool HasAllParams(std::initializer_list<const char*> keys) const;

  // "[algo]:<Class> param is invalid!" and "[algo]:<Class> <key> is not in the correct range!".
  static void PrintParamInvalid(const char* className);
  static void PrintParamOutOfRange(const char* className, const std::string& key);
};

// Truncates toward zero; out-of-range values saturate at the type's limits and NaN reads as 0, so
// no configuration value can make the conversion undefined.
int32_t TruncateToInt32(double value);
uint32_t TruncateToUint32(double value);

// Writes one diagnostic line to standard output, ended by std::endl.
void PrintLine(const std::string& line);

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ALGO_BASE_H
