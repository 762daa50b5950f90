// The frames every method of peers_bench is judged on, reduced to what a general-purpose
// point-cloud library sees (the coordinates of the returns) plus what the scores need: the class
// of each return where the frame is labelled, and the simulator's truth kind where there is one.
#ifndef VELMAR_BENCH_PEERS_PEER_FRAME_H
#define VELMAR_BENCH_PEERS_PEER_FRAME_H

#include <Eigen/Core>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/Import.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace peers {

// What a return is, as far as the scores go. Unscored returns (unlabelled ones, and every return
// of an unlabelled frame) count only towards the share of points a method flags.
enum class PointClass : uint8_t { kUnscored, kNoise, kGround, kObject };

using Points = std::vector<Eigen::Vector3f>;

struct PeerFrame {
  Points points;
  std::vector<PointClass> classes;  // one per point
  std::vector<uint8_t> kinds;       // simulator truth kind per point; empty for real frames
};

class FrameError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// SemanticKITTI numbering as the snowfall data labels it, mapped as the importer maps it
// (sim::TruthOfDatasetClass): falling snow is the noise, road, parking, sidewalk, other ground,
// lane marking, terrain and lying snow are ground, 0 is unlabelled. Only the low 16 bits carry
// the class.
PointClass ClassOfSemanticLabel(uint32_t label);

// The points of a cloud the importer read, in the file's own axes, classed by their labels when
// the cloud has them.
PeerFrame FrameOfCloud(const sim::SourceCloud& cloud);

// A KITTI-layout frame (float32 x, y, z, intensity per point), read by the importer's reader
// (sim/Import.h); unlabelled. Throws FrameError when the file is missing or its size is not a
// whole number of points.
PeerFrame ReadKittiFrame(const std::string& binPath);
// The same with one uint32 SemanticKITTI label per point.
PeerFrame ReadLabelledKittiFrame(const std::string& binPath, const std::string& labelPath);

// The returns (distance > 0) of a frame of point records, classed by the truth in reserved_a:
// every noise kind is noise, ground is ground, real is object, anything else is unscored.
PeerFrame FrameFromRecords(const std::vector<_ori_point>& records);

}  // namespace peers
}  // namespace velmar

#endif  // VELMAR_BENCH_PEERS_PEER_FRAME_H
