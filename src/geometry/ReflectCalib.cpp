#include "geometry/ReflectCalib.h"

namespace velmar {
namespace {

constexpr const char* kClass = "ReflectCalib";
constexpr const char* kPathKey = "calib_file";

}  // namespace

void ReflectCalib::ParseParams() {
  ReadParam(kPathKey, calib_file);
  if (calib_file.empty()) {
    PrintParamInvalid(kClass);
    return;
  }
  const std::string path = DataPath(calib_file);
  std::string text;
  if (!ReadDataFileOrSay(kClass, kPathKey, path, kMaxTableBytes, text)) {
    return;
  }
  std::string problem;
  if (!table_.Parse(text, problem)) {
    PrintDataFileRefused(kClass, kPathKey, path, problem);
  }
}

void ReflectCalib::Process(std::vector<_ori_point>& frame) {
  const std::vector<CalibCurve>& curves = table_.Curves();
  const std::size_t channels = curves.size();
  for (_ori_point& p : frame) {
    if (p.channel < channels && curves[p.channel].knots != 0 && p.intensity == p.intensity) {
      p.intensity = curves[p.channel].Apply(p.intensity);
    }
  }
}

}  // namespace velmar
