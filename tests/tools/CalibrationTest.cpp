// Deriving a calibration table without targets: known channel gains recovered from a synthetic
// frame, and the simulated unit whose errors the derivation is measured against.
#include <gtest/gtest.h>

#include <cmath>

#include "Calibration.h"
#include "sim/ChannelResponse.h"
#include "sim/SensorModel.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

// Eight channels sweep walls of three brightnesses; each channel's reports are scaled by its
// gain. Where channel 0 meets each wall's first metre it sees the road instead: patches where two
// channels saw different surfaces, which must not pull its gain.
TEST(Calibration, RecoversKnownGainsOnASyntheticFrame) {
  const double gains[] = {0.7, 1.3, 1.0, 0.85, 1.2, 0.95, 1.1, 0.9};
  const double walls[] = {60.0, 120.0, 180.0};
  std::vector<_ori_point> frame;
  for (int wall = 0; wall < 3; ++wall) {
    for (uint32_t channel = 0; channel < 8; ++channel) {
      for (int step = 0; step < 200; ++step) {
        _ori_point p{};
        p.x = 10.0 * wall + 0.05 * step;
        p.y = 20.0;
        p.z = 0.1 * channel + 0.013 * (step % 7);
        p.distance = 20.0;
        p.channel = channel;
        const bool foot = channel == 0 && step < 20;
        const double truth = foot ? 30.0 : walls[wall] * (1.0 + 0.02 * std::sin(step));
        p.intensity = gains[channel] / 1.15 * truth;
        frame.push_back(p);
      }
    }
  }
  CalibrationSolver solver(0.5);
  solver.AddFrame(frame);
  const std::map<uint32_t, ChannelFit> fits = solver.Solve(5);
  ASSERT_EQ(fits.size(), 8u);
  // The scale is the mean channel's: compare gains relative to their geometric mean.
  double logMean = 0.0;
  for (double g : gains) {
    logMean += std::log(g) / 8.0;
  }
  for (uint32_t channel = 0; channel < 8; ++channel) {
    EXPECT_NEAR(fits.at(channel).gain, gains[channel] / std::exp(logMean), 0.01) << channel;
  }
  // The table undoes them: every channel reports the same for the same wall.
  const std::vector<CalibCurve> curves = CalibrationSolver::Curves(fits);
  for (uint32_t channel = 0; channel < 8; ++channel) {
    EXPECT_NEAR(curves[channel].Apply(gains[channel] * 100.0), 100.0 * std::exp(logMean), 1.0);
  }
}

TEST(Calibration, DrivesOfOneUnitShareTheirChannelErrors) {
  const sim::SensorModel& model = *sim::FindSensorModel("Marlo128");
  sim::UnitSettings unit;
  unit.seed = 7;
  unit.gainSpread = 0.2;
  unit.offsetSpread = 3.0;
  const sim::ChannelResponse first(model, unit), again(model, unit);
  unit.seed = 8;
  const sim::ChannelResponse other(model, unit);
  double spread = 0.0;
  int differ = 0;
  for (uint32_t c = 1; c <= 128; ++c) {
    EXPECT_EQ(first.Gain(c), again.Gain(c));
    EXPECT_EQ(first.Offset(c), again.Offset(c));
    differ += first.Gain(c) != other.Gain(c) ? 1 : 0;
    spread += (first.Gain(c) - 1.0) * (first.Gain(c) - 1.0) / 128.0;
  }
  EXPECT_EQ(differ, 128);
  EXPECT_NEAR(std::sqrt(spread), 0.2, 0.05);
}

}  // namespace
}  // namespace tools
}  // namespace velmar
