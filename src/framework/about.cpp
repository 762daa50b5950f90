#include "framework/about.h"

namespace velmar {

// Defined in one translation unit, in this order, so they are built by one initialiser before
// any pipeline can exist.
const std::string debugString = "";
const std::string versionNumber = "2.0.6";

const std::string kOrvik16 = "Orvik16";
const std::string kOrvik32 = "Orvik32";
const std::string kMarlo192 = "Marlo192";
const std::string kBrisel = "Brisel";
const std::string kQuillA1 = "QuillA1";
const std::string kQuillA2 = "QuillA2";
const std::string kMarloMini = "MarloMini";
const std::string kQuillA3 = "QuillA3";
const std::string kQuillA4 = "QuillA4";
const std::string kOrvik48 = "Orvik48";
const std::string kOrvik48_Depth = "Orvik48Depth";
const std::string kMarlo256 = "Marlo256";
const std::string kMarlo256_Depth = "Marlo256Depth";
const std::string kZephelB1 = "ZephelB1";
const std::string kMarlo256_SmallBlind = "Marlo256SmallBlind";
const std::string kZephelB2_B3_MP = "ZephelB2/B3/MP";
const std::string kMarlo128H = "Marlo128H";
const std::string kMarlo128 = "Marlo128";
const std::string kMarlo128F = "Marlo128F";
const std::string kZephelB2_64 = "ZephelB2-64";
const std::string kZephelT = "ZephelT";
const std::string kKR360 = "KR360";

std::string LidarTypeToStr(int type) {
  static const std::string* const kNames[kLidarTypeCount] = {
      &kOrvik16,        &kOrvik32,   &kMarlo192,       &kBrisel,    &kQuillA1,
      &kQuillA2,        &kMarloMini, &kQuillA3,        &kQuillA4,   &kOrvik48,
      &kOrvik48_Depth,  &kMarlo256,  &kMarlo256_Depth, &kZephelB1,  &kMarlo256_SmallBlind,
      &kZephelB2_B3_MP, &kMarlo128H, &kMarlo128,       &kMarlo128F, &kZephelB2_64,
      &kZephelT,        &kKR360};
  // Compared as unsigned so that negative values fall outside the table.
  const unsigned index = static_cast<unsigned>(type);
  if (index >= static_cast<unsigned>(kLidarTypeCount)) {
    return std::string();
  }
  return *kNames[index];
}

std::string ILidarAlgo::VersionNumber() {
  return versionNumber;
}

std::string ILidarAlgo::DebugString() {
  return debugString;
}

}  // namespace velmar
