// Small deterministic random source. The standard library's distributions differ between
// implementations, so the simulator draws its own numbers to stay identical on every machine.
#ifndef VELMAR_TOOLS_SIM_RANDOM_H
#define VELMAR_TOOLS_SIM_RANDOM_H

#include <cmath>
#include <cstdint>

namespace velmar {
namespace sim {

// One step of splitmix64: spreads a seed over all 64 bits.
inline uint64_t MixSeed(uint64_t value) {
  value += 0x9E3779B97F4A7C15ull;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
  return value ^ (value >> 31);
}

// Independent streams for the parts of a run (scene layout, frame k, ...).
inline uint64_t StreamSeed(uint64_t seed, uint64_t stream) {
  return MixSeed(MixSeed(seed) ^ MixSeed(stream + 0x632BE59BD9B4E019ull));
}

// xoshiro256** generator.
class Rng {
 public:
  Rng() : Rng(0) {}
  explicit Rng(uint64_t seed) {
    for (uint64_t& word : state_) {
      seed = MixSeed(seed);
      word = seed;
    }
  }

  uint64_t Next() {
    const uint64_t result = Rotl(state_[1] * 5, 7) * 9;
    const uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = Rotl(state_[3], 45);
    return result;
  }

  // Uniform in [0, 1), 53 bits.
  double Uniform() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }
  double Uniform(double low, double high) { return low + (high - low) * Uniform(); }
  bool Chance(double rate) { return rate > 0.0 && Uniform() < rate; }
  // Standard normal (Marsaglia's polar method; the second value of each pair is kept for the
  // next call).
  double Normal() {
    if (hasSpare_) {
      hasSpare_ = false;
      return spare_;
    }
    double u, v, s;
    do {
      u = 2.0 * Uniform() - 1.0;
      v = 2.0 * Uniform() - 1.0;
      s = u * u + v * v;
    } while (s >= 1.0 || s == 0.0);
    const double scale = std::sqrt(-2.0 * std::log(s) / s);
    spare_ = v * scale;
    hasSpare_ = true;
    return u * scale;
  }

 private:
  static uint64_t Rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

  uint64_t state_[4];
  double spare_ = 0.0;
  bool hasSpare_ = false;
};

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_RANDOM_H
