#include "sim/FrameBuilder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "framework/AlgoCommon.h"
#include "sim/ReturnModel.h"
#include "sim/Truth.h"

namespace velmar {
namespace sim {
namespace {

constexpr double kRangeNoiseSigma = 0.02;  // metres, on surface returns
// A retro-reflector saturates the receiver and stretches the pulse beyond every diffuse return.
constexpr double kRetroPulseLow = 44.0;
constexpr double kRetroPulseHigh = 52.0;

constexpr double kNearObjectRange = 2.0;  // an inner channel this close causes edge echoes
constexpr uint32_t kGroupPoints = 32;     // point groups of the 128-channel packets
constexpr double kGhostOffset67Low = 66.0;
constexpr double kGhostOffset67High = 68.0;
constexpr double kDragEdgeGap = 1.0;   // depth step (metres) that leaves a smear
constexpr double kDragMaxDepth = 1.8;  // how far behind the near edge smear points lie
constexpr double kSpikeLow = 1.5;      // metres a spike jumps, at least
constexpr double kSpikeHigh = 25.0;    // and at most
constexpr double kSpikeNearest = 0.5;  // no spike lands nearer than this
constexpr double kMixedMinGap = 1.0;   // depth step (metres) between two surfaces that mixes

double Clamp(double value, double low, double high) {
  return std::min(high, std::max(low, value));
}

// Scene boxes are numbered from 1 in the truth; the ground and empty beams carry no object.
uint32_t ObjectNumber(const SurfaceHit& hit) {
  return hit.object >= 0 ? static_cast<uint32_t>(hit.object) + 1 : kNoTruthObject;
}

uint64_t ToNanoseconds(double seconds) {
  return static_cast<uint64_t>(std::llround(seconds * 1e9));
}

}  // namespace

FrameBuilder::FrameBuilder(const SensorModel& model, const NoiseSettings& noise, uint64_t seed)
    : model_(model),
      noise_(noise),
      seed_(seed),
      cosEl_(model.channels),
      sinEl_(model.channels),
      groupOfChannel_(model.firstChannel + model.channels, -1),
      beams_(model.channels),
      previous_(model.channels),
      edgeNow_(model.channels),
      edgePrevious_(model.channels),
      artefacts_(model, noise) {
  for (uint32_t i = 0; i < model.channels; ++i) {
    cosEl_[i] = std::cos(model.elevationDeg[i] * kDegToRad);
    sinEl_[i] = std::sin(model.elevationDeg[i] * kDegToRad);
  }
  for (std::size_t g = 0; g < model.channelGroups.size(); ++g) {
    for (uint32_t channel : model.channelGroups[g]) {
      if (channel < groupOfChannel_.size()) {
        groupOfChannel_[channel] = static_cast<int>(g);
      }
    }
  }
}

void FrameBuilder::Build(Scene& scene, uint32_t index, std::vector<_ori_point>& frame) {
  const uint64_t frameSeed = StreamSeed(seed_, index);
  surfaceRng_ = Rng(frameSeed);
  for (std::size_t k = 0; k < kNoiseKindCount; ++k) {
    noiseRng_[k] = Rng(StreamSeed(frameSeed, k + 1));
  }
  // Start from all-zero records; whatever the vector held before (a processed frame) is gone.
  frame.resize(model_.PointsPerFrame());
  std::memset(static_cast<void*>(frame.data()), 0, frame.size() * sizeof(_ori_point));
  if (artefacts_.Enabled()) {
    artefacts_.StartFrame(frame.size());
  }
  std::size_t base = 0;
  for (uint32_t slot = 0; slot < model_.faces; ++slot) {
    const double sweepStart = model_.ColumnTimeSec(index, slot, 0);
    scene.PrepareSweep(sweepStart, sweepStart + model_.facePeriodSec);
    for (uint32_t column = 0; column < model_.ColumnsPerFace(); ++column) {
      Column col;
      col.slot = slot;
      col.column = column;
      col.angleDeg = model_.ColumnAngleDeg(column);
      col.cosAz = std::cos(col.angleDeg * kDegToRad);
      col.sinAz = std::sin(col.angleDeg * kDegToRad);
      col.time = model_.ColumnTimeSec(index, slot, column);
      col.timestampNs = ToNanoseconds(col.time);
      col.base = base;
      BuildColumn(scene, col, frame);
      base += model_.channels;
    }
  }
  if (artefacts_.Enabled()) {
    artefacts_.Apply(frame, noiseRng_);
  }
  frame.back().mark = 1;
}

void FrameBuilder::BuildColumn(Scene& scene, const Column& col, std::vector<_ori_point>& frame) {
  scene.PrepareColumn(col.column, col.time);
  previous_.swap(beams_);
  for (uint32_t ch = 0; ch < model_.channels; ++ch) {
    SurfaceHit hit = scene.Cast(cosEl_[ch] * col.cosAz, cosEl_[ch] * col.sinAz, sinEl_[ch]);
    if (hit.range > 0.0 && !model_.SlotSeesRange(col.slot, hit.range)) {
      hit = SurfaceHit();
    }
    beams_[ch] = hit;
    Return ret = SurfaceReturn(hit);
    AddBeamNoise(col, ch, ret);
    WritePoint(col, ch, ret, frame[col.base + ch]);
    if (artefacts_.Enabled()) {
      artefacts_.NoteSurface(col.base + ch, hit);
    }
  }
  AddEdgeEchoes(col, frame);
  AddGhosts(col, frame);
  edgePrevious_.swap(edgeNow_);
  std::fill(edgeNow_.begin(), edgeNow_.end(), 0);
  if (col.column > 0) {
    AddDrag(col, frame);
    AddMixed(col, frame);
  }
  previousColumn_ = col;
}

FrameBuilder::Return FrameBuilder::SurfaceReturn(const SurfaceHit& hit) {
  Return ret;
  if (hit.range <= 0.0) {
    return ret;
  }
  ret.range = std::max(0.05, hit.range + kRangeNoiseSigma * surfaceRng_.Normal());
  ret.truth = EncodeTruth(hit.kind, ObjectNumber(hit));
  if (hit.retro) {
    ret.pulse = surfaceRng_.Uniform(kRetroPulseLow, kRetroPulseHigh);
    ret.intensity = kMaxIntensity;
    return ret;
  }
  ret.pulse = Clamp(DiffusePulseWidth(hit.reflectivity, hit.range) + 0.5 * surfaceRng_.Normal(),
                    kMinDiffusePulse, kMaxDiffusePulse);
  ret.intensity = Clamp(hit.reflectivity * kMaxIntensity * (1.0 + 0.05 * surfaceRng_.Normal()), 1.0,
                        kMaxIntensity);
  return ret;
}

bool FrameBuilder::IsEdgeChannel(uint32_t channelIndex) const {
  const uint32_t inBank = channelIndex % model_.bankChannels;
  return inBank < model_.edgeChannels || inBank >= model_.bankChannels - model_.edgeChannels;
}

void FrameBuilder::AddBeamNoise(const Column& col, uint32_t channelIndex, Return& ret) {
  // Drops and fog are only seen in front of the target; the detector-side kinds replace the
  // return whatever lies behind them.
  auto inFront = [&ret](double range) { return ret.range <= 0.0 || range < ret.range; };
  if (IsSurfaceTruth(TruthKindOf(ret.truth)) && Happens(NoiseKind::kSpike)) {
    AddSpike(ret);
  }
  if (Happens(NoiseKind::kFog)) {
    Rng& rng = NoiseRng(NoiseKind::kFog);
    const double range = rng.Uniform(0.3, 6.0);
    const Return fog{range, rng.Uniform(1.0, 4.0), rng.Uniform(1.0, 6.0),
                     EncodeTruth(TruthKind::kFog, false)};
    if (inFront(range)) {
      ret = fog;
    }
  }
  if (Happens(NoiseKind::kRain)) {
    Rng& rng = NoiseRng(NoiseKind::kRain);
    const double u = rng.Uniform();
    const double range = 0.5 + 14.5 * u * u;
    const Return drop{range, rng.Uniform(1.0, 5.0), rng.Uniform(1.0, 10.0),
                      EncodeTruth(TruthKind::kRain, false)};
    if (inFront(range)) {
      ret = drop;
    }
  }
  if (Happens(NoiseKind::kSunlight)) {
    Rng& rng = NoiseRng(NoiseKind::kSunlight);
    ret = {rng.Uniform(0.3, 30.0), rng.Uniform(1.0, 6.0), rng.Uniform(1.0, 8.0),
           EncodeTruth(TruthKind::kSunlight, false)};
  }
  if (Happens(NoiseKind::kInterference)) {
    Rng& rng = NoiseRng(NoiseKind::kInterference);
    ret = {rng.Uniform(1.0, 0.75 * model_.maxRange), rng.Uniform(3.0, 25.0), rng.Uniform(5.0, 80.0),
           EncodeTruth(TruthKind::kInterference, false)};
  }
  const uint32_t channel = model_.ChannelNumber(channelIndex);
  for (const FixedEchoWindow& w : model_.fixedEchoes) {
    if (channel >= w.firstChannel && channel <= w.lastChannel && col.angleDeg >= w.firstAngleDeg &&
        col.angleDeg <= w.lastAngleDeg && Happens(NoiseKind::kFixedEcho)) {
      Rng& rng = NoiseRng(NoiseKind::kFixedEcho);
      ret = {rng.Uniform(w.nearRange, w.farRange), rng.Uniform(3.0, 12.0), rng.Uniform(2.0, 20.0),
             EncodeTruth(TruthKind::kFixedEcho, false)};
    }
  }
  if (IsEdgeChannel(channelIndex) && Happens(NoiseKind::kCloseRange)) {
    Rng& rng = NoiseRng(NoiseKind::kCloseRange);
    ret = {rng.Uniform(0.3, 5.0), rng.Uniform(1.0, 5.5), rng.Uniform(1.0, 10.0),
           EncodeTruth(TruthKind::kCloseRange, false)};
  }
}

// The surface return's range jumps along the beam, nearer or farther, staying within the
// sensor's range; pulse and intensity stay those of the surface.
void FrameBuilder::AddSpike(Return& ret) {
  Rng& rng = NoiseRng(NoiseKind::kSpike);
  const double jump = rng.Uniform(kSpikeLow, kSpikeHigh);
  const bool nearer = rng.Chance(0.5);
  double range = nearer ? ret.range - jump : ret.range + jump;
  if (range < kSpikeNearest || range > model_.maxRange) {
    range = nearer ? ret.range + jump : ret.range - jump;
  }
  if (range >= kSpikeNearest && range <= model_.maxRange) {
    ret.range = range;
    ret.truth = EncodeTruth(TruthKind::kSpike);
  }
}

void FrameBuilder::WritePoint(const Column& col, uint32_t channelIndex, const Return& ret,
                              _ori_point& p) const {
  const double horizontal = ret.range * cosEl_[channelIndex];
  p.x = horizontal * col.cosAz;
  p.y = horizontal * col.sinAz;
  p.z = ret.range * sinEl_[channelIndex];
  p.intensity = ret.intensity;
  p.distance = ret.range;
  p.pulse_width = ret.pulse;
  p.reserved_a = ret.truth;
  p.channel = model_.ChannelNumber(channelIndex);
  p.hor_angle = col.angleDeg;
  p.mirror = model_.Mirror(col.slot, channelIndex);
  p.echo = model_.Echo(channelIndex);
  p.timestamp = col.timestampNs;
}

// A very near object seen by an inner channel of a 64-channel column makes the outermost
// channels on that side report echoes far behind it.
void FrameBuilder::AddEdgeEchoes(const Column& col, std::vector<_ori_point>& frame) {
  constexpr uint32_t kColumn64 = 64;
  const double rate = Rate(NoiseKind::kCloseRange);
  if (rate <= 0.0 || model_.bankChannels != kColumn64) {
    return;
  }
  struct Side {
    uint32_t firstInner, lastInner, firstEdge;
  };
  // Inner positions 6-22 guard the six lowest positions, 41-56 the six highest.
  constexpr uint32_t kEdge = 6;
  const Side sides[2] = {{kEdge, 22, 0}, {41, kColumn64 - kEdge - 2, kColumn64 - kEdge}};
  for (const Side& side : sides) {
    double nearest = 0.0;
    for (uint32_t ch = side.firstInner; ch <= side.lastInner; ++ch) {
      const SurfaceHit& hit = beams_[ch];
      if (hit.range > 0.0 && hit.range <= kNearObjectRange &&
          (nearest == 0.0 || hit.range < nearest)) {
        nearest = hit.range;
      }
    }
    if (nearest == 0.0) {
      continue;
    }
    for (uint32_t ch = side.firstEdge; ch < side.firstEdge + kEdge; ++ch) {
      if (Happens(NoiseKind::kCloseRange)) {
        Rng& rng = NoiseRng(NoiseKind::kCloseRange);
        const Return ret{nearest + rng.Uniform(5.5, 30.0), rng.Uniform(2.0, 10.0),
                         rng.Uniform(1.0, 12.0), EncodeTruth(TruthKind::kCloseRange, false)};
        WritePoint(col, ch, ret, frame[col.base + ch]);
      }
    }
  }
}

void FrameBuilder::AddGhosts(const Column& col, std::vector<_ori_point>& frame) {
  if (Rate(NoiseKind::kGhost) <= 0.0) {
    return;
  }
  for (uint32_t ch = 0; ch < model_.channels; ++ch) {
    const _ori_point& p = frame[col.base + ch];
    if (TruthKindOf(p) == TruthKind::kReal && p.pulse_width > kStrongPulse &&
        Happens(NoiseKind::kGhost)) {
      AddGhost(col, ch, p.distance, frame);
    }
  }
}

void FrameBuilder::AddGhost(const Column& col, uint32_t channelIndex, double range,
                            std::vector<_ori_point>& frame) {
  Rng& rng = NoiseRng(NoiseKind::kGhost);
  auto leak = [&](uint32_t partner, double ghostRange, double pulseLow, double pulseHigh) {
    if (partner >= model_.channels || ghostRange <= 0.0 || ghostRange > model_.maxRange) {
      return;
    }
    _ori_point& q = frame[col.base + partner];
    if (q.pulse_width > kStrongPulse) {
      return;  // a strong return of its own is not drowned by a ghost
    }
    const Return ret{ghostRange, rng.Uniform(pulseLow, pulseHigh), rng.Uniform(2.0, 15.0),
                     EncodeTruth(TruthKind::kGhost, false)};
    WritePoint(col, partner, ret, q);
  };
  switch (model_.ghostRule) {
    case GhostRule::kGroupPartner67: {
      const uint32_t position = channelIndex % kGroupPoints;
      if (position == 0) {
        return;
      }
      const uint32_t partner = position <= 15 ? position + 16 : position - 12;
      leak(channelIndex - position + partner,
           range + rng.Uniform(kGhostOffset67Low, kGhostOffset67High), 8.0, 30.0);
      return;
    }
    case GhostRule::kChannelGroups: {
      const uint32_t channel = model_.ChannelNumber(channelIndex);
      const int group = channel < groupOfChannel_.size() ? groupOfChannel_[channel] : -1;
      if (group < 0) {
        return;
      }
      for (uint32_t mate : model_.channelGroups[group]) {
        if (mate != channel && mate >= model_.firstChannel) {
          leak(mate - model_.firstChannel, range + rng.Uniform(-0.9, 0.9), 10.0, 35.0);
        }
      }
      return;
    }
    case GhostRule::kAdjacent:
      if (channelIndex >= 2) {
        leak(channelIndex - 2, range + rng.Uniform(-0.5, 0.5), 10.0, 35.0);
      }
      leak(channelIndex + 2, range + rng.Uniform(-0.5, 0.5), 10.0, 35.0);
      return;
  }
}

// Where the depth steps between this column and the previous one, the beam on the far side
// partly catches the near edge and reports a point smeared just behind it.
void FrameBuilder::AddDrag(const Column& col, std::vector<_ori_point>& frame) {
  const double rate = Rate(NoiseKind::kDrag);
  if (rate <= 0.0) {
    return;
  }
  const double kNothing = 1e30;
  const std::size_t previousBase = col.base - model_.channels;
  for (uint32_t ch = 0; ch < model_.channels; ++ch) {
    const double before = previous_[ch].range > 0.0 ? previous_[ch].range : kNothing;
    const double now = beams_[ch].range > 0.0 ? beams_[ch].range : kNothing;
    const double nearRange = std::min(before, now);
    const double gap = std::max(before, now) - nearRange;
    // A smear needs a step between two objects (or an object and open sky); a surface seen
    // at a grazing angle steps in range too, but leaves no smear.
    if (nearRange >= kNothing || gap <= kDragEdgeGap || previous_[ch].object == beams_[ch].object) {
      continue;
    }
    const bool farIsNow = now > before;
    if (!farIsNow && edgePrevious_[ch]) {
      continue;
    }
    _ori_point& target = frame[(farIsNow ? col.base : previousBase) + ch];
    const _ori_point& edge = frame[(farIsNow ? previousBase : col.base) + ch];
    // Only a clean edge smears; a point already turned into noise stays as it is.
    if (!IsSurfaceTruth(TruthKindOf(edge)) || IsNoiseTruth(TruthKindOf(target)) ||
        !Happens(NoiseKind::kDrag)) {
      continue;
    }
    Rng& rng = NoiseRng(NoiseKind::kDrag);
    const double depth = rng.Uniform(0.1, std::min(kDragMaxDepth, gap - 0.2));
    const double edgePulse = edge.pulse_width > 0.0 ? edge.pulse_width : kPulseFloor;
    const Return ret{nearRange + depth, edgePulse * rng.Uniform(0.3, 0.6), rng.Uniform(1.0, 20.0),
                     EncodeTruth(TruthKind::kDrag, false)};
    WritePoint(farIsNow ? col : previousColumn_, ch, ret, target);
    if (!farIsNow) {
      edgeNow_[ch] = 1;
    }
  }
}

// Where the depth steps by more than a metre between two surfaces in neighbouring columns, the
// beam on the far side partly catches both and reports a range between them, with a pulse and
// an intensity between theirs.
void FrameBuilder::AddMixed(const Column& col, std::vector<_ori_point>& frame) {
  if (Rate(NoiseKind::kMixed) <= 0.0) {
    return;
  }
  const std::size_t previousBase = col.base - model_.channels;
  for (uint32_t ch = 0; ch < model_.channels; ++ch) {
    const SurfaceHit& before = previous_[ch];
    const SurfaceHit& now = beams_[ch];
    if (before.range <= 0.0 || now.range <= 0.0 || before.object == now.object ||
        std::fabs(now.range - before.range) <= kMixedMinGap) {
      continue;
    }
    const bool farIsNow = now.range > before.range;
    _ori_point& target = frame[(farIsNow ? col.base : previousBase) + ch];
    const _ori_point& edge = frame[(farIsNow ? previousBase : col.base) + ch];
    if (!IsSurfaceTruth(TruthKindOf(edge)) || !IsSurfaceTruth(TruthKindOf(target)) ||
        !Happens(NoiseKind::kMixed)) {
      continue;
    }
    const double share = NoiseRng(NoiseKind::kMixed).Uniform(0.1, 0.9);
    const Return ret{edge.distance + share * (target.distance - edge.distance),
                     0.5 * (edge.pulse_width + target.pulse_width),
                     0.5 * (edge.intensity + target.intensity), EncodeTruth(TruthKind::kMixed)};
    WritePoint(farIsNow ? col : previousColumn_, ch, ret, target);
  }
}

}  // namespace sim
}  // namespace velmar
