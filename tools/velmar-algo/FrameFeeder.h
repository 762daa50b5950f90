// Feeds recorded frames to a pipeline the way a host does, whole or cut into packets, and puts
// the frames back together from what the pipeline returns.
//
// A pipeline may hand back another packet than the one it was given: the drag filter answers
// every packet with the previous one, filtered, after passing its first two packets unchanged.
// To know which packet came back, each point is stamped with its packet's sequence number and
// its index in the packet, in the record's reserved_c bytes, which no algorithm reads. When a
// packet comes back more than once, its last version counts; once the recording ends, packets
// still held by the pipeline are pushed out with empty packets of the same size. The stamps are
// replaced by the recording's own bytes before a frame is handed on, so no point is lost,
// duplicated or altered on the way. Pipelines are taken to hand packets back in the order they
// were given, as every algorithm of the library does.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_FRAME_FEEDER_H
#define VELMAR_TOOLS_VELMAR_ALGO_FRAME_FEEDER_H

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace tools {

// Processes one frame or packet in place, as ILidarAlgo::Process does.
using UnitProcessor = std::function<void(std::vector<_ori_point>&)>;

// Where a point came from: the packet it was stamped in and its index there.
struct Stamp {
  uint32_t unit = 0;  // sequence number of the packet, from 1; 0 for an unstamped point
  uint32_t index = 0;
};
Stamp ReadStamp(const _ori_point& point);
void WriteStamp(_ori_point& point, Stamp stamp);

constexpr int64_t kNoOrigin = -1;

// One frame after the pipeline: the frame as recorded, the frame as a host would see it, and
// for each output point the index of the input point it is (or is a copy of).
struct FedFrame {
  uint32_t index = 0;
  std::vector<_ori_point> input;
  std::vector<_ori_point> output;
  std::vector<int64_t> origin;  // per output point: input index, or kNoOrigin
  std::vector<uint32_t> units;  // sequence numbers of the packets it was cut into
  double seconds = 0.0;         // time spent in the pipeline on its packets
  uint32_t unreturned = 0;      // packets the pipeline never handed back (written unprocessed)
};

class FrameFeeder {
 public:
  using FrameSink = std::function<void(FedFrame&)>;

  // `packetPoints` 0 feeds whole frames.
  FrameFeeder(UnitProcessor processor, uint32_t packetPoints, FrameSink sink);

  // Feeds one frame; frames whose packets have all come back are handed to the sink, in order.
  void Feed(const std::vector<_ori_point>& frame);
  // The same, taking the frame's storage instead of copying it; `frame` is left holding a buffer
  // of a frame handed on (or nothing), ready to be read into.
  void Feed(std::vector<_ori_point>&& frame);
  // Pushes out the packets the pipeline still holds and hands over the remaining frames.
  void Finish();

 private:
  struct Unit {
    uint32_t seq = 0;
    uint32_t frame = 0;
    std::size_t offset = 0;  // index in the frame of the unit's first point
    std::size_t size = 0;
    bool returned = false;
    bool final = false;
    std::vector<_ori_point> result;
  };

  void CutIntoUnits(FedFrame& fed);
  void ProcessUnit(std::vector<_ori_point>& buffer, FedFrame* owner, uint32_t seq);
  void Route(std::vector<_ori_point>& buffer, uint32_t fedSeq);
  Unit* FindUnit(uint32_t seq);
  void KeepUnitBuffers(std::size_t count);
  void TakeSpareUnitBuffer(std::vector<_ori_point>& buffer);
  FedFrame ReuseFrame();
  void EmitReadyFrames();
  void Assemble(FedFrame& frame);
  int64_t OriginOf(Stamp stamp, uint32_t firstSeq, std::size_t count) const;
  bool HasUnreturnedUnits() const;

  UnitProcessor processor_;
  uint32_t packetPoints_;
  FrameSink sink_;
  std::deque<FedFrame> frames_;
  std::deque<Unit> units_;
  uint32_t nextFrame_ = 0;
  uint32_t nextSeq_ = 1;
  std::vector<_ori_point> buffer_;
  std::vector<_ori_point> lastUnit_;  // template of the empty packets pushed in at the end
  std::vector<FedFrame> spare_;       // frames handed on, kept for their buffers
  std::vector<std::vector<_ori_point>> spareUnitBuffers_;  // results of packets handed on
};

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_FRAME_FEEDER_H
