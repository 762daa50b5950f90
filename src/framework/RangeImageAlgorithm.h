// What the algorithms built on the range image share: they run on any model, keep the image
// between calls (so that packets of a frame meet their neighbours and a frame teaches the next
// its structure), read the column step the same way, and remove a return the same way.
#ifndef VELMAR_FRAMEWORK_RANGE_IMAGE_ALGORITHM_H
#define VELMAR_FRAMEWORK_RANGE_IMAGE_ALGORITHM_H

#include <string>

#include "framework/Algorithm.h"
#include "framework/RangeImage.h"

namespace velmar {

class RangeImageAlgorithm : public Algorithm {
 public:
  using Algorithm::Algorithm;

  bool IsSupported(const std::string& /*lidarTypeName*/) override { return true; }
  void ClearCache() override { image_.Reset(); }
  static std::size_t TableBytes(LidarType /*type*/, const NumberParams& /*params*/) {
    return RangeImage::kTableBytes;
  }

  double column_step = 0.0;       // degrees; 0 learns the sensor's step from the frames
  int32_t debug_using_echo = -1;  // >= 0: removed returns also get this label

 protected:
  // Reads "column_step" (0, or kMinColumnStepDeg..kMaxColumnStepDeg; otherwise the message and
  // 0) and "debug_using_echo", and starts a fresh image with that step.
  void ParseImageParams(const char* className);
  void Remove(_ori_point& p) const {
    p.distance = 0.0;
    if (debug_using_echo >= 0) {
      p.label = debug_using_echo;
    }
  }

  RangeImage image_{0.0};
};

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_RANGE_IMAGE_ALGORITHM_H
