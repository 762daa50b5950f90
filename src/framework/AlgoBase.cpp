#include "framework/AlgoBase.h"

#include <cmath>
#include <iostream>
#include <limits>

namespace velmar {
namespace {

template <typename Int>
Int TruncateSaturating(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  // Both limits are exactly representable as doubles for 32-bit types.
  constexpr double kLowest = static_cast<double>(std::numeric_limits<Int>::lowest());
  constexpr double kMax = static_cast<double>(std::numeric_limits<Int>::max());
  if (value <= kLowest) {
    return std::numeric_limits<Int>::lowest();
  }
  if (value >= kMax) {
    return std::numeric_limits<Int>::max();
  }
  return static_cast<Int>(value);
}

}  // namespace

int32_t TruncateToInt32(double value) {
  return TruncateSaturating<int32_t>(value);
}

uint32_t TruncateToUint32(double value) {
  return TruncateSaturating<uint32_t>(value);
}

void PrintLine(const std::string& line) {
  std::cout << line << std::endl;
}

bool AlgoBase::ReadParam(const std::string& key, double& field) const {
  const auto it = num_params.find(key);
  if (it == num_params.end()) {
    return false;
  }
  field = it->second;
  return true;
}

bool AlgoBase::ReadParam(const std::string& key, float& field) const {
  double value = 0.0;
  if (!ReadParam(key, value)) {
    return false;
  }
  field = static_cast<float>(value);
  return true;
}

bool AlgoBase::ReadParam(const std::string& key, int32_t& field) const {
  double value = 0.0;
  if (!ReadParam(key, value)) {
    return false;
  }
  field = TruncateToInt32(value);
  return true;
}

bool AlgoBase::ReadParam(const std::string& key, uint32_t& field) const {
  double value = 0.0;
  if (!ReadParam(key, value)) {
    return false;
  }
  field = TruncateToUint32(value);
  return true;
}

bool AlgoBase::ReadParam(const std::string& key, std::string& field) const {
  const auto it = str_params.find(key);
  if (it == str_params.end()) {
    return false;
  }
  field = it->second;
  return true;
}

double AlgoBase::ParamOrInsertZero(const std::string& key) {
  return num_params[key];
}

bool AlgoBase::HasAllParams(std::initializer_list<const char*> keys) const {
  for (const char* key : keys) {
    if (num_params.find(key) == num_params.end()) {
      return false;
    }
  }
  return true;
}

void AlgoBase::PrintParamInvalid(const char* className) {
  PrintLine(std::string("[algo]:") + className + " param is invalid!");
}

void AlgoBase::PrintParamOutOfRange(const char* className, const std::string& key) {
  PrintLine(std::string("[algo]:") + className + " " + key + " is not in the correct range!");
}

}  // namespace velmar
