#include "framework/Algorithm.h"

#include "framework/AlgoCommon.h"
#include "framework/DataFile.h"
#include "framework/Messages.h"

namespace velmar {

bool Algorithm::ReadParam(const std::string& key, double& field) const {
  const auto it = num_params.find(key);
  if (it == num_params.end()) {
    return false;
  }
  field = it->second;
  return true;
}

// The numeric fields of other types read the double and convert it.
template <typename Field, typename Convert>
bool Algorithm::ReadConverted(const std::string& key, Field& field, Convert convert) const {
  double value = 0.0;
  if (!ReadParam(key, value)) {
    return false;
  }
  field = convert(value);
  return true;
}

bool Algorithm::ReadParam(const std::string& key, float& field) const {
  return ReadConverted(key, field, [](double v) { return static_cast<float>(v); });
}

bool Algorithm::ReadParam(const std::string& key, int32_t& field) const {
  return ReadConverted(key, field, TruncateToInt32);
}

bool Algorithm::ReadParam(const std::string& key, uint32_t& field) const {
  return ReadConverted(key, field, TruncateToUint32);
}

bool Algorithm::ReadParam(const std::string& key, std::string& field) const {
  const auto it = str_params.find(key);
  if (it == str_params.end()) {
    return false;
  }
  field = it->second;
  return true;
}

double Algorithm::ParamOrInsertZero(const std::string& key) {
  return num_params[key];
}

bool Algorithm::HasAllParams(std::initializer_list<const char*> keys) const {
  for (const char* key : keys) {
    if (num_params.find(key) == num_params.end()) {
      return false;
    }
  }
  return true;
}

void Algorithm::ReadInRange(const char* className, const std::string& key, double& field,
                            double low, double high) const {
  double value = 0.0;
  if (!ReadParam(key, value)) {
    return;
  }
  if (!(value >= low && value <= high)) {
    PrintParamOutOfRange(className, key);
    return;
  }
  field = value;
}

void Algorithm::ReadInRange(const char* className, const std::string& key, int32_t& field,
                            double low, double high) const {
  double value = static_cast<double>(field);
  ReadInRange(className, key, value, low, high);
  field = TruncateToInt32(value);
}

void Algorithm::PrintParamInvalid(const char* className) {
  PrintLine(std::string("[algo]:") + className + " param is invalid!");
}

void Algorithm::PrintParamOutOfRange(const char* className, const std::string& key) {
  PrintLine(std::string("[algo]:") + className + " " + key + " is not in the correct range!");
}

std::string Algorithm::DataPath(const std::string& path) const {
  if (path.empty() || path.front() == '/' || data_folder_.empty()) {
    return path;
  }
  return data_folder_ + path;
}

namespace {

std::string DataFileReason(DataFileStatus status, std::size_t maxBytes) {
  switch (status) {
    case DataFileStatus::kCannotOpen:
      return "cannot be opened";
    case DataFileStatus::kNotRegular:
      return "is not a regular file";
    case DataFileStatus::kTooLarge:
      return "is larger than " + std::to_string(maxBytes) + " bytes";
    default:
      return "cannot be read";
  }
}

}  // namespace

bool Algorithm::LoadDataFile(
    const char* className, const std::string& key, const std::string& path, std::size_t maxBytes,
    const std::function<bool(const std::string& text, std::string& problem)>& parse) const {
  const std::string resolved = DataPath(path);
  std::string text;
  const DataFileStatus status = ReadDataFile(resolved, text, maxBytes);
  std::string problem;
  if (status != DataFileStatus::kRead) {
    problem = DataFileReason(status, maxBytes);
  } else if (parse(text, problem)) {
    return true;
  }
  PrintLine(std::string("[algo]:") + className + " " + key + " " + resolved + " " + problem + "!");
  return false;
}

}  // namespace velmar
