// Version text and the model names used by configuration files and IsSupported.
#ifndef VELMAR_FRAMEWORK_ABOUT_H
#define VELMAR_FRAMEWORK_ABOUT_H

#include <string>

#include "velmar/lidar_algo.h"

namespace velmar {

extern const std::string debugString;
extern const std::string versionNumber;

extern const std::string kOrvik16;
extern const std::string kOrvik32;
extern const std::string kMarlo192;
extern const std::string kBrisel;
extern const std::string kQuillA1;
extern const std::string kQuillA2;
extern const std::string kMarloMini;
extern const std::string kQuillA3;
extern const std::string kQuillA4;
extern const std::string kOrvik48;
extern const std::string kOrvik48_Depth;
extern const std::string kMarlo256;
extern const std::string kMarlo256_Depth;
extern const std::string kZephelB1;
extern const std::string kMarlo256_SmallBlind;
extern const std::string kZephelB2_B3_MP;
extern const std::string kMarlo128H;
extern const std::string kMarlo128;
extern const std::string kMarlo128F;
extern const std::string kZephelB2_64;
extern const std::string kZephelT;
extern const std::string kKR360;

constexpr int kLidarTypeCount = 22;

}  // namespace velmar

#endif  // VELMAR_FRAMEWORK_ABOUT_H
