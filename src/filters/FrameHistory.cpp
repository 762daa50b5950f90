#include "filters/FrameHistory.h"

namespace velmar {

void FrameHistory::PushCopy(const Frame& frame) {
  NextFreeSlot().assign(frame.begin(), frame.end());
  ++size_;
}

void FrameHistory::PushTakingOver(Frame& frame, std::size_t age) {
  Frame& slot = NextFreeSlot();
  const Frame& handed_back = At(age);
  slot.assign(handed_back.begin(), handed_back.end());
  slot.swap(frame);
  ++size_;
}

void FrameHistory::DropOldest() {
  if (size_ == 0) {
    return;
  }
  oldest_ = SlotOf(1);
  --size_;
}

void FrameHistory::Clear() {
  for (Frame& slot : slots_) {
    slot.clear();
  }
  oldest_ = 0;
  size_ = 0;
}

}  // namespace velmar
