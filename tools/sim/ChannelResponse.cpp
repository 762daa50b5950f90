#include "sim/ChannelResponse.h"

#include <algorithm>

#include "sim/Random.h"

namespace velmar {
namespace sim {
namespace {

constexpr uint64_t kUnitStream = 0x0C4A77E1;
// A gain never falls so low that a channel goes blind.
constexpr double kMinGain = 0.2;
constexpr double kMinIntensity = 1.0;
constexpr double kMaxIntensity = 255.0;

}  // namespace

ChannelResponse::ChannelResponse(const SensorModel& model, const UnitSettings& unit)
    : firstChannel_(model.ChannelNumber(0)) {
  Rng rng(StreamSeed(unit.seed, kUnitStream));
  for (uint32_t c = 0; c < model.channels; ++c) {
    gain_.push_back(std::max(kMinGain, 1.0 + unit.gainSpread * rng.Normal()));
    offset_.push_back(unit.offsetSpread * rng.Normal());
  }
}

double ChannelResponse::Gain(uint32_t channel) const {
  return gain_.at(channel - firstChannel_);
}

double ChannelResponse::Offset(uint32_t channel) const {
  return offset_.at(channel - firstChannel_);
}

void ChannelResponse::Apply(std::vector<_ori_point>& frame) const {
  for (_ori_point& p : frame) {
    const uint32_t index = p.channel - firstChannel_;
    if (p.distance > 0.0 && index < gain_.size()) {
      p.intensity =
          std::clamp(gain_[index] * p.intensity + offset_[index], kMinIntensity, kMaxIntensity);
    }
  }
}

}  // namespace sim
}  // namespace velmar
