#include "filters/DisturbPointFilter.h"

#include <algorithm>

namespace velmar {
namespace {

constexpr const char* kClassName = "DisturbPointFilter";
constexpr double kMaxFactor = 50.0;
constexpr double kMaxRadius = 5.0;
constexpr int32_t kNeighbourCells = 8;

// The eight cells around a return, sides before corners, then its own cell.
constexpr int kOffsets[9][2] = {{0, -1}, {0, 1},  {-1, 0}, {1, 0}, {-1, -1},
                                {-1, 1}, {1, -1}, {1, 1},  {0, 0}};

float Squared(float v) {
  return v * v;
}

}  // namespace

bool DisturbPointFilter::IsSupported(const std::string& /*lidarTypeName*/) {
  return true;
}

void DisturbPointFilter::ParseParams() {
  ReadInRange(kClassName, "support_factor", support_factor, 0.0, kMaxFactor);
  ReadInRange(kClassName, "min_radius", min_radius, 0.0, kMaxRadius);
  ReadInRange(kClassName, "min_agreeing", min_agreeing, 1, kNeighbourCells * 4);
  ReadInRange(kClassName, "column_step", column_step, 0.0, RangeImage::kMaxColumnStepDeg);
  if (column_step > 0.0 && column_step < RangeImage::kMinColumnStepDeg) {
    PrintParamOutOfRange(kClassName, "column_step");
    column_step = 0.0;
  }
  ReadParam("debug_using_echo", debug_using_echo);
  image_ = RangeImage(column_step);
}

void DisturbPointFilter::ClearCache() {
  image_.Reset();
}

bool DisturbPointFilter::Supported(const ImageReturn& r, int32_t self) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  for (const auto& o : kOffsets) {
    float separation = 0.0f;
    int32_t n = image_.Neighbour(r.channel, r.column, o[0], o[1], separation);
    const float radius = std::max(static_cast<float>(min_radius),
                                  static_cast<float>(support_factor) * r.range * separation);
    for (; n >= 0; n = returns[static_cast<std::size_t>(n)].next) {
      const ImageReturn& other = returns[static_cast<std::size_t>(n)];
      if (n != self && Squared(r.x - other.x) + Squared(r.y - other.y) + Squared(r.z - other.z) <
                           Squared(radius)) {
        return true;
      }
    }
  }
  return false;
}

int32_t DisturbPointFilter::AgreeingNeighbours(const ImageReturn& r, int32_t self) const {
  const std::vector<ImageReturn>& returns = image_.Returns();
  int32_t agreeing = 0;
  for (const auto& o : kOffsets) {
    float separation = 0.0f;
    for (int32_t n = image_.Neighbour(r.channel, r.column, o[0], o[1], separation); n >= 0;
         n = returns[static_cast<std::size_t>(n)].next) {
      if (n != self && supported_[static_cast<std::size_t>(n)] != 0) {
        ++agreeing;
      }
    }
  }
  return agreeing;
}

void DisturbPointFilter::Judge(std::vector<_ori_point>& frame, std::size_t first) {
  const std::vector<ImageReturn>& returns = image_.Returns();
  supported_.resize(returns.size());
  for (std::size_t i = first; i < returns.size(); ++i) {
    supported_[i] = Supported(returns[i], static_cast<int32_t>(i)) ? 1 : 0;
  }
  for (std::size_t i = first; i < returns.size(); ++i) {
    if (supported_[i] != 0 ||
        AgreeingNeighbours(returns[i], static_cast<int32_t>(i)) < min_agreeing) {
      continue;
    }
    _ori_point& p = frame[returns[i].index];
    p.distance = 0.0;
    if (debug_using_echo >= 0) {
      p.label = debug_using_echo;
    }
  }
}

void DisturbPointFilter::Process(std::vector<_ori_point>& frame) {
  image_.AddCall(frame, [this, &frame](std::size_t first) { Judge(frame, first); });
}

}  // namespace velmar
