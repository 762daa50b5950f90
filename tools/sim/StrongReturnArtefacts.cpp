#include "sim/StrongReturnArtefacts.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "framework/AlgoCommon.h"
#include "sim/ReturnModel.h"
#include "sim/Truth.h"

namespace velmar {
namespace sim {
namespace {

// A retro-reflector sends back as much light as a diffuse surface this many times brighter than
// white would: it saturates the receiver at every range the scenes hold.
constexpr double kRetroReflectivity = 200.0;

// Crosstalk needs this much energy: a white diffuse surface within 3.6 m, a retro-reflector
// within 50 m. Its reach grows with the decades of energy above that onset.
constexpr double kCrosstalkOnset = 150.0;
constexpr double kVerticalChannelsPerDecade = 1.5;
constexpr uint32_t kMaxVerticalChannels = 4;
constexpr double kHorizontalColumnsPerDecade = 0.8;
constexpr uint32_t kMaxHorizontalColumns = 2;

// A retro-reflector blooms from this energy on (within 63 m); the halo's angular radius grows
// with the decades above it.
constexpr double kBloomOnset = 100.0;
constexpr double kHaloBaseDeg = 0.2;
constexpr double kHaloDegPerDecade = 0.2;
constexpr double kMaxHaloDeg = 0.6;

// What the false returns carry, as shares of the strong return's pulse width and intensity, and
// how late they read (metres).
constexpr double kCrosstalkPulseLow = 0.05;
constexpr double kCrosstalkPulseHigh = 0.2;
constexpr double kCrosstalkIntensityLow = 0.02;
constexpr double kCrosstalkIntensityHigh = 0.1;
constexpr double kCrosstalkMaxWalk = 0.25;
constexpr double kHaloPulseLow = 0.08;
constexpr double kHaloPulseHigh = 0.3;
constexpr double kHaloIntensityLow = 0.02;
constexpr double kHaloIntensityHigh = 0.15;
constexpr double kHaloMaxWalk = 0.15;
constexpr double kMinFalsePulse = 1.0;
constexpr double kMinFalseIntensity = 1.0;

// A false return is seen only by a beam whose own return lies farther than it by this margin.
constexpr double kInFrontMargin = 0.3;

// 1 + the decades of `energy` above `onset`, times `perDecade`, whole, at most `most`.
uint32_t Reach(double energy, double onset, double perDecade, uint32_t most) {
  const double reach = 1.0 + std::floor(perDecade * std::log10(energy / onset));
  return static_cast<uint32_t>(std::min(static_cast<double>(most), std::max(1.0, reach)));
}

// Chance that a cell `distance` steps out of a reach of `reach` steps shows the artefact: always
// next to the source, falling off linearly outward.
double FallOff(double distance, double reach) {
  return 1.0 - 0.5 * (distance - 1.0) / reach;
}

}  // namespace

StrongReturnArtefacts::StrongReturnArtefacts(const SensorModel& model, const NoiseSettings& noise)
    : model_(model),
      noise_(noise),
      enabled_(noise[NoiseKind::kCrosstalkVertical] > 0.0 ||
               noise[NoiseKind::kCrosstalkHorizontal] > 0.0 || noise[NoiseKind::kBloom] > 0.0),
      cosEl_(model.channels),
      sinEl_(model.channels),
      rankOf_(model.channels),
      channelAtRank_(model.channels) {
  for (uint32_t i = 0; i < model.channels; ++i) {
    cosEl_[i] = std::cos(model.elevationDeg[i] * kDegToRad);
    sinEl_[i] = std::sin(model.elevationDeg[i] * kDegToRad);
  }
  std::iota(channelAtRank_.begin(), channelAtRank_.end(), 0u);
  std::stable_sort(channelAtRank_.begin(), channelAtRank_.end(), [&model](uint32_t a, uint32_t b) {
    return model.elevationDeg[a] > model.elevationDeg[b];
  });
  for (uint32_t rank = 0; rank < model.channels; ++rank) {
    rankOf_[channelAtRank_[rank]] = rank;
  }
}

void StrongReturnArtefacts::StartFrame(std::size_t points) {
  energy_.assign(points, 0.0f);
  retro_.assign(points, 0);
}

void StrongReturnArtefacts::NoteSurface(std::size_t index, const SurfaceHit& hit) {
  if (hit.kind != TruthKind::kReal) {
    return;
  }
  energy_[index] = static_cast<float>(
      ReceivedEnergy(hit.retro ? kRetroReflectivity : hit.reflectivity, hit.range));
  retro_[index] = hit.retro ? 1 : 0;
}

void StrongReturnArtefacts::Apply(std::vector<_ori_point>& frame,
                                  std::array<Rng, kNoiseKindCount>& streams) {
  const std::pair<NoiseKind, SourceAction> kinds[] = {
      {NoiseKind::kCrosstalkVertical, &StrongReturnArtefacts::AddVerticalCrosstalk},
      {NoiseKind::kCrosstalkHorizontal, &StrongReturnArtefacts::AddHorizontalCrosstalk},
      {NoiseKind::kBloom, &StrongReturnArtefacts::AddBloom}};
  for (const auto& [kind, action] : kinds) {
    if (noise_[kind] > 0.0) {
      ForEachSource(frame, kind, streams[static_cast<std::size_t>(kind)], action);
    }
  }
}

// Sources are the surface returns that are still reported as themselves (rain in front, a
// smear or an earlier artefact may have taken their place) and strong enough for the kind;
// only retro-reflectors bloom.
void StrongReturnArtefacts::ForEachSource(std::vector<_ori_point>& frame, NoiseKind kind, Rng& rng,
                                          SourceAction action) {
  const bool bloom = kind == NoiseKind::kBloom;
  const double onset = bloom ? kBloomOnset : kCrosstalkOnset;
  const std::size_t sweepPoints = model_.PointsPerFace();
  for (std::size_t i = 0; i < frame.size(); ++i) {
    if (energy_[i] < onset || (bloom && !retro_[i]) || TruthKindOf(frame[i]) != TruthKind::kReal ||
        !rng.Chance(noise_[kind])) {
      continue;
    }
    const std::size_t inSweep = i % sweepPoints;
    const Source source{i - inSweep, static_cast<uint32_t>(inSweep / model_.channels),
                        static_cast<uint32_t>(inSweep % model_.channels), energy_[i]};
    (this->*action)(source, frame, rng);
  }
}

void StrongReturnArtefacts::AddVerticalCrosstalk(const Source& source,
                                                 std::vector<_ori_point>& frame, Rng& rng) {
  const uint32_t reach =
      Reach(source.energy, kCrosstalkOnset, kVerticalChannelsPerDecade, kMaxVerticalChannels);
  const _ori_point& from = frame[IndexOf(source, source.column, source.channel)];
  const int64_t rank = rankOf_[source.channel];
  for (uint32_t step = 1; step <= reach; ++step) {
    for (int64_t side : {-1, 1}) {
      const int64_t other = rank + side * static_cast<int64_t>(step);
      if (other < 0 || other >= static_cast<int64_t>(model_.channels) ||
          !rng.Chance(FallOff(step, reach))) {
        continue;
      }
      const uint32_t channel = channelAtRank_[static_cast<std::size_t>(other)];
      Crosstalk(from, frame, IndexOf(source, source.column, channel), TruthKind::kCrosstalkVertical,
                rng);
    }
  }
}

void StrongReturnArtefacts::AddHorizontalCrosstalk(const Source& source,
                                                   std::vector<_ori_point>& frame, Rng& rng) {
  const uint32_t reach =
      Reach(source.energy, kCrosstalkOnset, kHorizontalColumnsPerDecade, kMaxHorizontalColumns);
  const _ori_point& from = frame[IndexOf(source, source.column, source.channel)];
  for (uint32_t step = 1; step <= reach; ++step) {
    for (int64_t side : {-1, 1}) {
      const int64_t column = static_cast<int64_t>(source.column) + side * step;
      if (column < 0 || column >= static_cast<int64_t>(model_.ColumnsPerFace()) ||
          !rng.Chance(FallOff(step, reach))) {
        continue;
      }
      Crosstalk(from, frame, IndexOf(source, static_cast<uint32_t>(column), source.channel),
                TruthKind::kCrosstalkHorizontal, rng);
    }
  }
}

void StrongReturnArtefacts::Crosstalk(const _ori_point& from, std::vector<_ori_point>& frame,
                                      std::size_t index, TruthKind kind, Rng& rng) const {
  const double range = from.distance + rng.Uniform(0.0, kCrosstalkMaxWalk);
  const double pulse = from.pulse_width * rng.Uniform(kCrosstalkPulseLow, kCrosstalkPulseHigh);
  const double intensity =
      from.intensity * rng.Uniform(kCrosstalkIntensityLow, kCrosstalkIntensityHigh);
  Leak(frame, index, range, std::max(kMinFalsePulse, pulse),
       std::max(kMinFalseIntensity, intensity), kind);
}

// The halo covers the cells within its angular radius of the source; a cell's chance and
// strength fall off toward the rim.
void StrongReturnArtefacts::AddBloom(const Source& source, std::vector<_ori_point>& frame,
                                     Rng& rng) {
  const double radius = std::min(
      kMaxHaloDeg, kHaloBaseDeg + kHaloDegPerDecade * std::log10(source.energy / kBloomOnset));
  const _ori_point& from = frame[IndexOf(source, source.column, source.channel)];
  const double elevation = model_.elevationDeg[source.channel];
  const int64_t columns = static_cast<int64_t>(radius / model_.columnStepDeg);
  // Ranks run down in elevation, so the halo's channels are those around the source's rank.
  int64_t top = rankOf_[source.channel];
  while (top > 0 && elevation - model_.elevationDeg[channelAtRank_[top - 1]] >= -radius) {
    --top;
  }
  for (int64_t dc = -columns; dc <= columns; ++dc) {
    const int64_t column = static_cast<int64_t>(source.column) + dc;
    if (column < 0 || column >= static_cast<int64_t>(model_.ColumnsPerFace())) {
      continue;
    }
    for (int64_t rank = top; rank < static_cast<int64_t>(model_.channels); ++rank) {
      const uint32_t channel = channelAtRank_[static_cast<std::size_t>(rank)];
      const double rise = model_.elevationDeg[channel] - elevation;
      if (rise < -radius) {
        break;
      }
      const double distance = std::hypot(dc * model_.columnStepDeg, rise);
      if ((dc == 0 && channel == source.channel) || distance > radius) {
        continue;
      }
      const double strength = 1.0 - 0.5 * distance / radius;
      if (!rng.Chance(strength)) {
        continue;
      }
      const double range = from.distance + rng.Uniform(0.0, kHaloMaxWalk);
      const double pulse = from.pulse_width * strength * rng.Uniform(kHaloPulseLow, kHaloPulseHigh);
      const double intensity =
          from.intensity * strength * rng.Uniform(kHaloIntensityLow, kHaloIntensityHigh);
      Leak(frame, IndexOf(source, static_cast<uint32_t>(column), channel), range,
           std::max(kMinFalsePulse, pulse), std::max(kMinFalseIntensity, intensity),
           TruthKind::kBloom);
    }
  }
}

bool StrongReturnArtefacts::Leak(std::vector<_ori_point>& frame, std::size_t index, double range,
                                 double pulse, double intensity, TruthKind kind) const {
  _ori_point& target = frame[index];
  const bool strongItself =
      target.pulse_width > kStrongPulse ||
      (energy_[index] >= kCrosstalkOnset && TruthKindOf(target) == TruthKind::kReal);
  if ((target.distance > 0.0 && target.distance <= range + kInFrontMargin) || strongItself) {
    return false;
  }
  const uint32_t channel = target.channel - model_.firstChannel;
  const double horizontal = range * cosEl_[channel];
  const double azimuth = target.hor_angle * kDegToRad;
  target.x = horizontal * std::cos(azimuth);
  target.y = horizontal * std::sin(azimuth);
  target.z = range * sinEl_[channel];
  target.intensity = intensity;
  target.distance = range;
  target.pulse_width = pulse;
  target.reserved_a = EncodeTruth(kind);
  return true;
}

}  // namespace sim
}  // namespace velmar
