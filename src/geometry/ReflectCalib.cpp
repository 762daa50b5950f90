#include "geometry/ReflectCalib.h"

#include <algorithm>
#include <limits>

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
  const bool loaded = LoadDataFile(kClass, kPathKey, calib_file, kMaxTableBytes,
                                   [this](const std::string& text, std::string& problem) {
                                     return table_.Parse(text, problem);
                                   });
  if (loaded) {
    LayOutSegments();
  }
}

void ReflectCalib::LayOutSegments() {
  const std::vector<CalibCurve>& curves = table_.Curves();
  first_segment_.assign(curves.size(), 0);
  segment_count_.assign(curves.size(), 0);
  for (std::size_t channel = 0; channel < curves.size(); ++channel) {
    const CalibCurve& curve = curves[channel];
    if (curve.knots < 2) {
      continue;
    }
    first_segment_[channel] = static_cast<uint32_t>(segments_.size());
    segment_count_[channel] = curve.knots - 1;
    for (uint32_t k = 0; k + 1 < curve.knots; ++k) {
      const bool last = k + 2 == curve.knots;
      segments_.push_back({last ? std::numeric_limits<double>::infinity() : curve.raw[k + 1],
                           curve.slope[k], curve.offset[k]});
    }
  }
}

// The same mapping as CalibCurve::Apply.
void ReflectCalib::Process(std::vector<_ori_point>& frame) {
  const std::size_t channels = segment_count_.size();
  for (_ori_point& p : frame) {
    const double raw = p.intensity;
    if (p.channel >= channels || segment_count_[p.channel] == 0 || raw != raw) {
      continue;
    }
    const Segment* segment = &segments_[first_segment_[p.channel]];
    while (raw > segment->rawEnd) {
      ++segment;
    }
    p.intensity = std::clamp(segment->offset + segment->slope * raw, 0.0, CalibTable::kFullScale);
  }
}

}  // namespace velmar
