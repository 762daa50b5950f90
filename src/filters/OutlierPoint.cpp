#include "filters/OutlierPoint.h"

#include <cmath>

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

constexpr const char* kClassName = "OutlierPoint";
constexpr const char* kMultipleKey = "thresholdMultiple";
constexpr const char* kMinThresholdKey = "minThreshold";
constexpr double kDefaultMultiple = 4.0;
constexpr double kDefaultMinThreshold = 0.1;

constexpr std::size_t kRunPoints = 16;
constexpr std::size_t kColumnPoints = 64;
constexpr std::size_t kOrvik16Points = 320;
constexpr std::size_t kFixedStepPoints = 128;
constexpr std::size_t kColumnModelPoints = 128;

// Range differences are compared in whole metres: |trunc(diff)| > t. A difference whose whole part
// leaves the 32-bit range is far by any measure; a NaN is never far.
bool WholeMetresExceed(double diff, double t) {
  const double whole = std::trunc(diff);
  if (!HoldsWhole<int32_t>(whole) && !std::isnan(whole)) {
    return true;
  }
  return std::fabs(whole) > t;
}

double RaisedThreshold(double t, double min_thresh) {
  return (t < min_thresh) ? min_thresh : t;
}

}  // namespace

bool OutlierPoint::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kOrvik16 || lidarTypeName == kOrvik48 || lidarTypeName == kBrisel ||
         lidarTypeName == kQuillA2;
}

// Both values or neither: a half-given pair would mix a tuned value with a default.
void OutlierPoint::ParseParams() {
  if (!HasAllParams({kMultipleKey, kMinThresholdKey})) {
    PrintParamInvalid(kClassName);
    return;
  }
  ReadParam(kMultipleKey, threshold_multiple);
  ReadParam(kMinThresholdKey, min_threshold);
  if (threshold_multiple < 0.0) {
    threshold_multiple = kDefaultMultiple;
    PrintParamOutOfRange(kClassName, kMultipleKey);
  }
  if (min_threshold < 0.0) {
    min_threshold = kDefaultMinThreshold;
    PrintParamOutOfRange(kClassName, kMinThresholdKey);
  }
}

void OutlierPoint::Process(std::vector<_ori_point>& frame) {
  if (lidar_type == LIDAR_ORVIK16 || lidar_type == LIDAR_BRISEL || lidar_type == LIDAR_ORVIK48) {
    FilterOutlierPoint_1(frame, threshold_multiple, min_threshold);
  } else {
    FilterOutlierPoint_2(frame, threshold_multiple, min_threshold);
  }
}

void OutlierPoint::FilterOutlierPoint_1(std::vector<_ori_point>& frame, double multiple,
                                        double min_thresh) const {
  const bool per_range = (lidar_type == LIDAR_ORVIK16);
  const std::size_t treated = per_range ? kOrvik16Points : kFixedStepPoints;
  if (frame.size() < treated) {
    return;
  }
  // The fixed-step models use one threshold for the whole frame; "Orvik16" widens it with range.
  const double fixed_t = RaisedThreshold(std::sin(angle_fixed * deg_to_rad) * multiple, min_thresh);
  const double step_sin = std::sin(angle_orvik16 * deg_to_rad);
  for (std::size_t run_begin = 0; run_begin < treated; run_begin += kRunPoints) {
    for (std::size_t i = run_begin; i < run_begin + kRunPoints; ++i) {
      const double t = per_range
                           ? RaisedThreshold(step_sin * frame[i].distance * multiple, min_thresh)
                           : fixed_t;
      FilterPointInRun(frame, run_begin, run_begin + kRunPoints, i, t);
    }
  }
}

void OutlierPoint::FilterOutlierPoint_2(std::vector<_ori_point>& frame, double multiple,
                                        double min_thresh) const {
  if (frame.size() < kColumnModelPoints) {
    return;
  }
  const double step_sin = std::sin(angle_column * deg_to_rad);
  for (std::size_t column = 0; column < kColumnModelPoints; column += kColumnPoints) {
    for (std::size_t i = column; i < column + kColumnPoints; ++i) {
      const double t = RaisedThreshold(step_sin * frame[i].distance * multiple, min_thresh);
      FilterPointInRun(frame, column, column + kColumnPoints, i, t);
    }
  }
}

// At the ends of a run the line test is the neighbour's (the second point, or the last but one,
// against the line through its own neighbours): an end has no line of its own, so it is judged
// by its neighbour's, in the 16-point runs of Orvik16, Brisel and Orvik48 and in the 64-point
// columns of QuillA2 alike.
void OutlierPoint::FilterPointInRun(std::vector<_ori_point>& frame, std::size_t run_begin,
                                    std::size_t run_end, std::size_t index, double t) {
  const auto range = [&](std::ptrdiff_t offset) {
    return frame[static_cast<std::size_t>(static_cast<std::ptrdiff_t>(index) + offset)].distance;
  };
  const double d = frame[index].distance;
  const auto far = [&](std::ptrdiff_t offset) { return WholeMetresExceed(range(offset) - d, t); };
  const auto off_line = [&](double a, double b, double middle) {
    return WholeMetresExceed((a + b) * 0.5 - middle, t);
  };

  bool outlier = false;
  if (index == run_begin) {
    outlier = far(1) && far(2) && off_line(d, range(2), range(1));
  } else if (index == run_begin + 1) {
    outlier = far(1) && far(2) && far(-1) && off_line(range(-1), range(1), d);
  } else if (index + 2 == run_end) {
    outlier = far(1) && far(-1) && far(-2) && off_line(range(-1), range(1), d);
  } else if (index + 1 == run_end) {
    outlier = far(-1) && far(-2) && off_line(d, range(-2), range(-1));
  } else {
    outlier = far(1) && far(2) && far(-1) && far(-2) && off_line(range(-1), range(1), d);
  }
  if (outlier) {
    frame[index].distance = 0.0;
  }
}

}  // namespace velmar
