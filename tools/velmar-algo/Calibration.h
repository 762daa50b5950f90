// Deriving a reflectance calibration table from a recording, without targets, and measuring how
// much channels disagree on the intensity of one surface.
//
// Derivation: within one frame, returns of several channels that fall into one small voxel see one
// surface patch. Each channel reports its gain x the patch's true intensity, so in logarithms a
// channel's mean in a patch is its log gain plus the patch's log level. Both are found by weighted
// least squares over every patch that two or more channels share; the patches tie the channels to
// one common scale, the mean channel (log gains summing to 0). Offsets are not fitted: channels
// that see one kind of surface (the downward channels see road only) cannot tell an offset from a
// gain, and fitting both made those channels worse. Returns at the ends of the scale are left out,
// since a clipped value says nothing of the gain.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_CALIBRATION_H
#define VELMAR_TOOLS_VELMAR_ALGO_CALIBRATION_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "geometry/CalibTable.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

struct ChannelFit {
  double gain = 1.0;
  double offset = 0.0;      // kept at 0 by the derivation; the table can carry it
  std::size_t patches = 0;  // shared patches the channel was fitted on
};

class CalibrationSolver {
 public:
  explicit CalibrationSolver(double voxelMetres = 0.5) : voxel_(voxelMetres) {}

  void AddFrame(const std::vector<_ori_point>& frame);
  // Fits every channel seen in at least `minPatches` shared patches; the others keep gain 1 and
  // offset 0 and are left out of the table.
  std::map<uint32_t, ChannelFit> Solve(std::size_t minPatches = 30) const;
  // The table that undoes the fitted errors, channel by channel.
  static std::vector<CalibCurve> Curves(const std::map<uint32_t, ChannelFit>& fits);
  std::size_t SharedPatches() const { return patches_; }

 private:
  void AddPatches(const std::vector<_ori_point>& frame, double shift);

  struct Sample {
    uint32_t patch;
    uint32_t channel;
    double mean;
    double count;
  };
  double voxel_;
  std::vector<Sample> samples_;
  std::size_t patches_ = 0;
  // Per frame, reused: (voxel key, channel, intensity) of every usable return.
  struct Return {
    uint64_t key;
    uint32_t channel;
    double intensity;
  };
  std::vector<Return> frame_;
};

// Disagreement of channels on one surface: for each simulated object (the object number of the
// truth), the mean intensity of each channel that saw it often enough, and the standard deviation
// of those means across channels. A channel whose returns on an object reach the ends of the
// scale is left out for that object: its clipped values cannot be calibrated.
class ChannelSpread {
 public:
  // `raw` is the frame as recorded, `frame` the same frame after calibration (or itself); the
  // clipping is judged on the recorded values.
  void AddFrame(const std::vector<_ori_point>& raw, const std::vector<_ori_point>& frame);
  struct Summary {
    std::size_t objects = 0;  // objects seen by enough channels
    double meanSpread = 0.0;  // mean over objects of the channel standard deviation
    double medianSpread = 0.0;
    double worstSpread = 0.0;
  };
  Summary Summarise(std::size_t minReturns = 10, std::size_t minChannels = 3) const;

 private:
  struct Sum {
    double total = 0.0;
    std::size_t count = 0;
    std::size_t clipped = 0;
  };
  std::map<uint32_t, std::map<uint32_t, Sum>> sums_;  // object -> channel -> intensities
};

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_CALIBRATION_H
