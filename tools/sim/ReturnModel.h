// How strongly a surface answers a beam, in the units the simulated receiver uses for its pulse
// widths: shared by the surface returns and by the artefacts that strong returns cause.
#ifndef VELMAR_TOOLS_SIM_RETURN_MODEL_H
#define VELMAR_TOOLS_SIM_RETURN_MODEL_H

#include <algorithm>
#include <cmath>

namespace velmar {
namespace sim {

constexpr double kMaxIntensity = 255.0;
// Received energy of a diffuse surface of reflectivity 1 at 1 m.
constexpr double kPulseEnergyScale = 2000.0;
// A return with a wider pulse than this saturates the receiver: only retro-reflectors get there.
constexpr double kStrongPulse = 40.0;
// Ranges are taken no nearer than this, so that energy stays finite.
constexpr double kNearestEnergyRange = 0.5;

// Energy a surface of `reflectivity` sends back from `range`: reflectivity x 2000 / r^2.
inline double ReceivedEnergy(double reflectivity, double range) {
  const double r = std::max(range, kNearestEnergyRange);
  return reflectivity * kPulseEnergyScale / (r * r);
}

// Pulse width of a diffuse surface grows with the log of the received energy, within these.
constexpr double kPulseFloor = 6.0;
constexpr double kPulseGain = 5.0;
constexpr double kMinDiffusePulse = 1.5;
constexpr double kMaxDiffusePulse = 38.0;

// Mean pulse width of a diffuse surface of `reflectivity` at `range`, before receiver noise and
// the clamp to [kMinDiffusePulse, kMaxDiffusePulse].
inline double DiffusePulseWidth(double reflectivity, double range) {
  return kPulseFloor + kPulseGain * std::log1p(ReceivedEnergy(reflectivity, range));
}

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_RETURN_MODEL_H
