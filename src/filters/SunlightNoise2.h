// Removes near returns whose range jumps away from the same channel in the previous column while
// the ranges around them are scattered or sparse, as sunlight speckle is.
#ifndef VELMAR_FILTERS_SUNLIGHT_NOISE2_H
#define VELMAR_FILTERS_SUNLIGHT_NOISE2_H

#include <cstddef>

#include "framework/AlgoBase.h"

namespace velmar {

class SunlightNoise2 : public AlgoBase {
 public:
  SunlightNoise2(const std::string& name, const std::string& desc, LidarType type);

  uint32_t Id() const override { return id; }
  void Process(std::vector<_ori_point>& frame) override;
  bool IsSupported(const std::string& lidarTypeName) override;
  void ParseParams() override {}  // the thresholds are tuned for the supported models
  void ClearCache() override;

  bool skip_mirror_one;

 private:
  struct ColumnSpread {
    float spread;
    int32_t count;
  };

  // The same channel one column earlier: the first column of the frame continues the last column
  // of the previous frame. nullptr when that point does not exist.
  const _ori_point* GetPreColumPoint(std::size_t index) const;
  // Spread and number of the valid ranges within three channels of `index`, in this column and
  // the previous one.
  ColumnSpread GetPreColumAndCurColumRange(std::size_t index) const;

  // Unfiltered copies: the previous frame, and the current one while it is being filtered.
  std::vector<_ori_point> previous_;
  std::vector<_ori_point> current_;
  bool two_columns_ = false;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_SUNLIGHT_NOISE2_H
