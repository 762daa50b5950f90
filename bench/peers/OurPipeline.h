// Our side of peers_bench: a configuration run through the pipeline packet by packet, as the
// tools run it, and its outcome turned into the flags every peer is scored by. The functions
// take point records of any model, so frames from any source (simulated drives today, imported
// recordings of other sensors later) go through the same code.
#ifndef VELMAR_BENCH_PEERS_OUR_PIPELINE_H
#define VELMAR_BENCH_PEERS_OUR_PIPELINE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "PeerFrame.h"
#include "Scores.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace peers {

using Records = std::vector<_ori_point>;

struct FeedSettings {
  LidarType model = LIDAR_MARLO128;
  uint32_t packetPoints = 128;
  uint32_t warmupFrames = 0;  // frames fed but not measured (history filters warming up)
};

// One measured frame: its returns, the flags of our pipeline on them, the CPU time the pipeline
// took on its packets.
struct OurFrame {
  PeerFrame frame;
  Flags flags;
  double seconds = 0.0;
  Flags unclassified;  // ground runs: the returns that came out with neither of its labels
};
using OurFrameSink = std::function<void(const OurFrame&)>;

// Flags the returns the pipeline removed.
void RunOurNoise(const std::vector<Records>& frames, const std::string& configText,
                 const FeedSettings& feed, const OurFrameSink& sink);
// Runs only ground detection (id 35) of the configuration and flags the returns it labels
// ground (its "debug_using_echo" label).
void RunOurGround(const std::vector<Records>& frames, const std::string& configText,
                  const FeedSettings& feed, const OurFrameSink& sink);

// Configuration helpers: the file with only the entries whose id `keep` accepts, and the ids of
// a configuration as "4, 5, 23".
std::string ConfigSubset(const std::string& text, const std::function<bool(int)>& keep);
std::string IdsOf(const std::string& text);

}  // namespace peers
}  // namespace velmar

#endif  // VELMAR_BENCH_PEERS_OUR_PIPELINE_H
