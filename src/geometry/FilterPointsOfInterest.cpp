#include "geometry/FilterPointsOfInterest.h"

namespace velmar {
namespace {

constexpr const char* kClass = "FilterPointsOfInterest";
constexpr const char* kPathKey = "road_map_boundary_path";

}  // namespace

void FilterPointsOfInterest::ParseParams() {
  ReadParam(kPathKey, road_map_boundary_path);
  ReadParam("invert_region", invert_region);
  ReadHeightBand();
  LoadMap();
}

void FilterPointsOfInterest::ReadHeightBand() {
  double low = min_height;
  double high = max_height;
  ReadParam("min_height", low);
  ReadParam("max_height", high);
  // Each bound alone must lie within the limit; together they must leave a band.
  if (!(low >= -kHeightLimit && low <= kHeightLimit)) {
    PrintParamOutOfRange(kClass, "min_height");
    low = -kHeightLimit;
  }
  if (!(high >= -kHeightLimit && high <= kHeightLimit)) {
    PrintParamOutOfRange(kClass, "max_height");
    high = kHeightLimit;
  }
  if (low > high) {
    PrintParamOutOfRange(kClass, "min_height");
    low = -kHeightLimit;
    high = kHeightLimit;
  }
  min_height = low;
  max_height = high;
}

void FilterPointsOfInterest::LoadMap() {
  LoadDataFile(
      kClass, kPathKey, road_map_boundary_path, kMaxMapBytes,
      [this](const std::string& text, std::string& problem) { return map_.Parse(text, problem); });
}

void FilterPointsOfInterest::Process(std::vector<_ori_point>& frame) {
  if (map_.Empty()) {
    return;
  }
  const bool keepInside = invert_region == 0;
  for (_ori_point& p : frame) {
    if (p.distance == 0.0) {
      continue;
    }
    const bool inBand = p.z >= min_height && p.z <= max_height;
    if (!inBand || map_.Contains(p.x, p.y) != keepInside) {
      p.distance = 0.0;
    }
  }
}

}  // namespace velmar
