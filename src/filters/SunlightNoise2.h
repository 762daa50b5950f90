// Removes near returns whose range jumps away from the same channel in the previous column while
// the ranges around them are scattered or sparse, as sunlight speckle is.
#ifndef VELMAR_FILTERS_SUNLIGHT_NOISE2_H
#define VELMAR_FILTERS_SUNLIGHT_NOISE2_H

#include <cstddef>
#include <vector>

#include "framework/Algorithm.h"

namespace velmar {

class SunlightNoise2 : public Algorithm {
 public:
  SunlightNoise2(const std::string& name, const std::string& desc, LidarType type);

  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  // No ParseParams: the thresholds are tuned for the supported models.
  void ClearCache() override;

  bool skip_mirror_one;

 private:
  struct ColumnSpread {
    float spread;
    int32_t count;
  };

  static void CopyRanges(const std::vector<_ori_point>& frame, std::vector<double>& ranges);
  // The unfiltered range of the same channel one column earlier: the first column of the frame
  // continues the last column of the previous frame. nullptr when that point does not exist.
  const double* GetPreColumRange(std::size_t index) const;
  // Spread and number of the valid ranges within three channels of `index`, in this column and
  // the previous one.
  ColumnSpread GetPreColumAndCurColumRange(std::size_t index) const;
  void GatherRanges(const std::vector<_ori_point>& frame);

  // The extremes and number of the valid ranges at one place, this column and the previous one.
  struct RangeBand {
    float low;
    float high;
    int32_t count;
  };

  // Unfiltered ranges, the only field the rules read from neighbours: the previous frame's, and
  // the current frame's while it is being filtered. The two swap roles after each frame.
  std::vector<double> previous_;
  std::vector<double> current_;
  std::vector<RangeBand> bands_;
  bool two_columns_ = false;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_SUNLIGHT_NOISE2_H
