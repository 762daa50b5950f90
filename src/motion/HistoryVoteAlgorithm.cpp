#include "motion/HistoryVoteAlgorithm.h"

#include "framework/about.h"

namespace velmar {

bool HistoryVoteAlgorithm::IsSupported(const std::string& lidarTypeName) {
  return lidarTypeName == kQuillA4 || lidarTypeName == kZephelB2_B3_MP;
}

void HistoryVoteAlgorithm::ParseParams() {
  ReadParam("debug_using_echo", debug_using_echo);
  ReadParam("num_thred", num_thred);
  ReadParam("num_thred_neigh", num_thred_neigh);
  ReadParam("r_thred", r_thred);
}

}  // namespace velmar
