// A bounded history of whole frames, oldest first. Its slots keep their storage when frames are
// dropped or the history is cleared, so once every slot has held a frame of the usual size no
// further frame costs an allocation.
#ifndef VELMAR_FILTERS_FRAME_HISTORY_H
#define VELMAR_FILTERS_FRAME_HISTORY_H

#include <cstddef>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {

class FrameHistory {
 public:
  using Frame = std::vector<_ori_point>;

  explicit FrameHistory(std::size_t capacity) : slots_(capacity) {}

  std::size_t Size() const { return size_; }

  // The frame `age` places after the oldest one.
  const Frame& At(std::size_t age) const { return slots_[SlotOf(age)]; }

  // Appends a copy of `frame`. The history must not be full.
  void PushCopy(const Frame& frame);
  // Appends `frame` by taking over its storage and hands back in `frame` a copy of the frame
  // `age` places after the oldest, which must exist. The copy is made before anything changes,
  // so when it cannot be allocated the history and `frame` stay as they were. The history must
  // not be full.
  void PushTakingOver(Frame& frame, std::size_t age);

  void DropOldest();
  void Clear();

 private:
  std::size_t SlotOf(std::size_t age) const { return (oldest_ + age) % slots_.size(); }
  Frame& NextFreeSlot() { return slots_[SlotOf(size_)]; }

  std::vector<Frame> slots_;
  std::size_t oldest_ = 0;
  std::size_t size_ = 0;
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_FRAME_HISTORY_H
