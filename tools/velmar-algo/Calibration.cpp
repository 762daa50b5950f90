#include "Calibration.h"

#include <algorithm>
#include <cmath>

#include <Eigen/Dense>

#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

// Intensities at or beyond these are clipped by the sensor.
constexpr double kClipLow = 1.5;
constexpr double kClipHigh = 253.5;
// Voxel indices are packed 21 bits each, covering +-1 M voxels along every axis.
constexpr int64_t kVoxelBias = int64_t{1} << 20;
constexpr uint64_t kVoxelMask = (uint64_t{1} << 21) - 1;

bool Usable(const _ori_point& p) {
  return p.distance > 0.0 && std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) &&
         p.intensity > kClipLow && p.intensity < kClipHigh && p.channel <= CalibTable::kMaxChannel;
}

uint64_t VoxelKey(const _ori_point& p, double voxel, double shift) {
  const auto index = [voxel, shift](double v) {
    const double cell =
        std::clamp(std::floor(v / voxel + shift), -double(kVoxelBias), double(kVoxelBias));
    return static_cast<uint64_t>(static_cast<int64_t>(cell) + kVoxelBias) & kVoxelMask;
  };
  return (index(p.x) << 42) | (index(p.y) << 21) | index(p.z);
}

}  // namespace

// Patches come from two grids, the second shifted by half a voxel along every axis, so that no
// plane of the grid keeps channels apart (the plane z = 0 would split the channels looking up
// from those looking down).
void CalibrationSolver::AddFrame(const std::vector<_ori_point>& frame) {
  constexpr double kShifts[] = {0.0, 0.5};
  for (double shift : kShifts) {
    AddPatches(frame, shift);
  }
}

void CalibrationSolver::AddPatches(const std::vector<_ori_point>& frame, double shift) {
  frame_.clear();
  for (const _ori_point& p : frame) {
    if (Usable(p)) {
      frame_.push_back({VoxelKey(p, voxel_, shift), p.channel, p.intensity});
    }
  }
  std::sort(frame_.begin(), frame_.end(), [](const Return& a, const Return& b) {
    return a.key != b.key ? a.key < b.key : a.channel < b.channel;
  });
  // One sample per channel and voxel; a voxel counts when two channels or more share it.
  std::size_t start = 0;
  while (start < frame_.size()) {
    std::size_t end = start;
    while (end < frame_.size() && frame_[end].key == frame_[start].key) {
      ++end;
    }
    if (frame_[start].channel != frame_[end - 1].channel) {
      const auto patch = static_cast<uint32_t>(patches_++);
      for (std::size_t i = start; i < end;) {
        std::size_t j = i;
        double total = 0.0;
        while (j < end && frame_[j].channel == frame_[i].channel) {
          total += frame_[j++].intensity;
        }
        const double count = static_cast<double>(j - i);
        samples_.push_back({patch, frame_[i].channel, total / count, count});
        i = j;
      }
    }
    start = end;
  }
}

// Channels joined by shared patches, as a union-find over channel numbers.
class ChannelGroups {
 public:
  explicit ChannelGroups(std::size_t channels) : parent_(channels) {
    for (std::size_t c = 0; c < channels; ++c) {
      parent_[c] = c;
    }
  }
  std::size_t Find(std::size_t c) {
    while (parent_[c] != c) {
      c = parent_[c] = parent_[parent_[c]];
    }
    return c;
  }
  void Join(std::size_t a, std::size_t b) { parent_[Find(a)] = Find(b); }

 private:
  std::vector<std::size_t> parent_;
};

std::map<uint32_t, ChannelFit> CalibrationSolver::Solve(std::size_t minPatches) const {
  // For every pair of channels, the log ratio of their means in each patch they share.
  std::unordered_map<uint32_t, std::vector<float>> ratios;
  std::size_t begin = 0;
  while (begin < samples_.size()) {
    std::size_t end = begin;
    while (end < samples_.size() && samples_[end].patch == samples_[begin].patch) {
      ++end;
    }
    for (std::size_t i = begin; i < end; ++i) {
      for (std::size_t j = i + 1; j < end; ++j) {
        const uint32_t pair =
            samples_[i].channel * (CalibTable::kMaxChannel + 1) + samples_[j].channel;
        ratios[pair].push_back(
            static_cast<float>(std::log(samples_[i].mean) - std::log(samples_[j].mean)));
      }
    }
    begin = end;
  }
  // The median of each pair that shared enough patches: a patch where one channel met another
  // surface than the other (the foot of a wall, a curb line) is an outlier, and the median is
  // not moved by it where a mean would be, and would carry it along the chain of channels.
  struct Pair {
    uint32_t a, b;
    double logRatio, weight;
  };
  std::vector<Pair> pairs;
  const std::size_t channelCount = CalibTable::kMaxChannel + 1;
  ChannelGroups groups(channelCount);
  std::vector<std::size_t> shared(channelCount, 0);
  for (auto& [key, values] : ratios) {
    if (values.size() < minPatches) {
      continue;
    }
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    const Pair pair{key / static_cast<uint32_t>(channelCount),
                    key % static_cast<uint32_t>(channelCount), values[values.size() / 2],
                    static_cast<double>(values.size())};
    pairs.push_back(pair);
    groups.Join(pair.a, pair.b);
    shared[pair.a] += values.size();
    shared[pair.b] += values.size();
  }
  // Only within one group of channels joined by pairs is there a common scale: the largest.
  std::vector<std::size_t> groupSize(channelCount, 0);
  for (std::size_t c = 0; c < channelCount; ++c) {
    groupSize[groups.Find(c)] += shared[c] > 0 ? 1 : 0;
  }
  const std::size_t main = std::max_element(groupSize.begin(), groupSize.end()) - groupSize.begin();
  std::vector<int> column(channelCount, -1);
  std::vector<uint32_t> channels;
  for (uint32_t c = 0; c < channelCount; ++c) {
    if (shared[c] > 0 && groups.Find(c) == main) {
      column[c] = static_cast<int>(channels.size());
      channels.push_back(c);
    }
  }
  std::map<uint32_t, ChannelFit> fits;
  if (channels.size() < 2) {
    return fits;
  }
  // Log gains a with a[a] - a[b] = median log ratio for every pair, in least squares weighted by
  // the patches behind each median; their sum is held at 0, so the mean channel is the reference.
  const auto n = static_cast<Eigen::Index>(channels.size());
  Eigen::MatrixXd normal = Eigen::MatrixXd::Ones(n, n);
  Eigen::VectorXd rhs = Eigen::VectorXd::Zero(n);
  for (const Pair& pair : pairs) {
    const int a = column[pair.a], b = column[pair.b];
    if (a < 0 || b < 0) {
      continue;
    }
    normal(a, a) += pair.weight;
    normal(b, b) += pair.weight;
    normal(a, b) -= pair.weight;
    normal(b, a) -= pair.weight;
    rhs(a) += pair.weight * pair.logRatio;
    rhs(b) -= pair.weight * pair.logRatio;
  }
  const Eigen::VectorXd logGain = normal.ldlt().solve(rhs);
  for (Eigen::Index i = 0; i < n; ++i) {
    const uint32_t channel = channels[static_cast<std::size_t>(i)];
    fits[channel] = {std::exp(logGain(i)), 0.0, shared[channel]};
  }
  return fits;
}

std::vector<CalibCurve> CalibrationSolver::Curves(const std::map<uint32_t, ChannelFit>& fits) {
  constexpr double kMinGain = 0.05;
  std::vector<CalibCurve> curves;
  for (const auto& [channel, fit] : fits) {
    if (!(fit.gain > kMinGain)) {
      continue;
    }
    // raw = gain x calibrated + offset: knots where the line meets the ends of both scales.
    const double rawLow = std::max(0.0, fit.offset);
    const double rawHigh =
        std::min(CalibTable::kMaxKnotValue, fit.offset + fit.gain * CalibTable::kFullScale);
    if (!(rawHigh > rawLow)) {
      continue;
    }
    if (curves.size() <= channel) {
      curves.resize(channel + 1);
    }
    CalibCurve& curve = curves[channel];
    curve.knots = 2;
    curve.raw = {rawLow, rawHigh};
    curve.calibrated = {(rawLow - fit.offset) / fit.gain, (rawHigh - fit.offset) / fit.gain};
    curve.Prepare();
  }
  return curves;
}

void ChannelSpread::AddFrame(const std::vector<_ori_point>& raw,
                             const std::vector<_ori_point>& frame) {
  const std::size_t points = std::min(raw.size(), frame.size());
  for (std::size_t i = 0; i < points; ++i) {
    const _ori_point& p = raw[i];
    const uint32_t object = sim::TruthObjectOf(p);
    if (p.distance > 0.0 && object != sim::kNoTruthObject &&
        sim::TruthKindOf(p) == sim::TruthKind::kReal) {
      Sum& sum = sums_[object][p.channel];
      if (p.intensity > kClipLow && p.intensity < kClipHigh) {
        sum.total += frame[i].intensity;
        ++sum.count;
      } else {
        ++sum.clipped;
      }
    }
  }
}

ChannelSpread::Summary ChannelSpread::Summarise(std::size_t minReturns,
                                                std::size_t minChannels) const {
  std::vector<double> spreads;
  for (const auto& [object, channels] : sums_) {
    std::vector<double> means;
    for (const auto& [channel, sum] : channels) {
      if (sum.count >= minReturns && sum.clipped == 0) {
        means.push_back(sum.total / static_cast<double>(sum.count));
      }
    }
    if (means.size() < minChannels) {
      continue;
    }
    double mean = 0.0;
    for (double m : means) {
      mean += m;
    }
    mean /= static_cast<double>(means.size());
    double variance = 0.0;
    for (double m : means) {
      variance += (m - mean) * (m - mean);
    }
    spreads.push_back(std::sqrt(variance / static_cast<double>(means.size())));
  }
  Summary summary;
  summary.objects = spreads.size();
  if (spreads.empty()) {
    return summary;
  }
  std::sort(spreads.begin(), spreads.end());
  for (double s : spreads) {
    summary.meanSpread += s;
  }
  summary.meanSpread /= static_cast<double>(spreads.size());
  summary.medianSpread = spreads[spreads.size() / 2];
  summary.worstSpread = spreads.back();
  return summary;
}

}  // namespace tools
}  // namespace velmar
