#include "motion/UndistortPoint2.h"

#include "framework/about.h"

namespace velmar {

bool UndistortPoint2::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kQuillA4 || lidarTypeName == kZephelB2_B3_MP ||
         lidarTypeName == kMarlo256 || lidarTypeName == kMarlo128H || lidarTypeName == kMarlo128;
}

}  // namespace velmar
