#include "FrameFeeder.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "framework/AlgoCommon.h"

namespace velmar {
namespace tools {
namespace {

// Enough for any pipeline whose algorithms hold back at most a few packets; the drag filter
// holds one.
constexpr int kMaxFlushes = 4;
// Frames handed on whose buffers are kept for the next ones; one is in flight at a time unless
// the pipeline holds packets back across a frame's end.
constexpr std::size_t kSpareFrames = 2;

static_assert(sizeof(_ori_point::reserved_c) == 2 * sizeof(uint32_t), "stamp fits reserved_c");

void EmptyMeasures(_ori_point& point) {
  ClearMeasures(point);
  point.mark = 0;
}

}  // namespace

Stamp ReadStamp(const _ori_point& point) {
  Stamp stamp;
  std::memcpy(&stamp.unit, point.reserved_c, sizeof(uint32_t));
  std::memcpy(&stamp.index, point.reserved_c + sizeof(uint32_t), sizeof(uint32_t));
  return stamp;
}

void WriteStamp(_ori_point& point, Stamp stamp) {
  std::memcpy(point.reserved_c, &stamp.unit, sizeof(uint32_t));
  std::memcpy(point.reserved_c + sizeof(uint32_t), &stamp.index, sizeof(uint32_t));
}

FrameFeeder::FrameFeeder(UnitProcessor processor, uint32_t packetPoints, FrameSink sink)
    : processor_(std::move(processor)), packetPoints_(packetPoints), sink_(std::move(sink)) {}

void FrameFeeder::Feed(const std::vector<_ori_point>& frame) {
  frames_.push_back(ReuseFrame());
  frames_.back().input.assign(frame.begin(), frame.end());
  CutIntoUnits(frames_.back());
}

void FrameFeeder::Feed(std::vector<_ori_point>&& frame) {
  frames_.push_back(ReuseFrame());
  frames_.back().input.swap(frame);
  CutIntoUnits(frames_.back());
  if (frame.capacity() == 0 && !spare_.empty()) {
    frame.swap(spare_.back().input);
  }
}

void FrameFeeder::CutIntoUnits(FedFrame& fed) {
  const std::vector<_ori_point>& frame = fed.input;
  fed.index = nextFrame_++;
  std::size_t step = packetPoints_ == 0 ? std::max<std::size_t>(frame.size(), 1) : packetPoints_;
  std::size_t offset = 0;
  do {
    std::size_t size = std::min(step, frame.size() - offset);
    Unit unit;
    unit.seq = nextSeq_++;
    unit.frame = fed.index;
    unit.offset = offset;
    unit.size = size;
    units_.push_back(unit);
    fed.units.push_back(unit.seq);
    buffer_.assign(frame.begin() + static_cast<std::ptrdiff_t>(offset),
                   frame.begin() + static_cast<std::ptrdiff_t>(offset + size));
    for (std::size_t i = 0; i < size; ++i) {
      WriteStamp(buffer_[i], Stamp{unit.seq, static_cast<uint32_t>(i)});
    }
    ProcessUnit(buffer_, &fed, unit.seq);
    offset += size;
  } while (offset < frame.size());
  if (!frame.empty()) {
    const std::size_t lastSize = frame.size() - (fed.units.size() - 1) * step;
    lastUnit_.assign(frame.end() - static_cast<std::ptrdiff_t>(lastSize), frame.end());
  }
  EmitReadyFrames();
}

// A frame's buffers are as large as the frame (tens of megabytes for a Marlo128): taking them
// over from a frame already handed on spares the allocator and the kernel a fresh mapping, and
// its page faults, every frame.
FedFrame FrameFeeder::ReuseFrame() {
  if (spare_.empty()) {
    return FedFrame{};
  }
  FedFrame frame = std::move(spare_.back());
  spare_.pop_back();
  frame.output.clear();
  frame.origin.clear();
  frame.units.clear();
  frame.seconds = 0.0;
  frame.unreturned = 0;
  return frame;
}

void FrameFeeder::Finish() {
  for (int flush = 0; flush < kMaxFlushes && !lastUnit_.empty(); ++flush) {
    if (flush > 0 && !HasUnreturnedUnits()) {
      break;
    }
    uint32_t seq = nextSeq_++;
    buffer_ = lastUnit_;
    for (std::size_t i = 0; i < buffer_.size(); ++i) {
      EmptyMeasures(buffer_[i]);
      WriteStamp(buffer_[i], Stamp{seq, static_cast<uint32_t>(i)});
    }
    ProcessUnit(buffer_, nullptr, seq);
  }
  for (Unit& unit : units_) {
    unit.final = true;
  }
  EmitReadyFrames();
}

void FrameFeeder::ProcessUnit(std::vector<_ori_point>& buffer, FedFrame* owner, uint32_t seq) {
  auto start = std::chrono::steady_clock::now();
  processor_(buffer);
  std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  if (owner != nullptr) {
    owner->seconds += spent.count();
  }
  Route(buffer, seq);
}

// The packet that came back is the one named by its first point's stamp. Packets are handed
// back in the order they were given, so every packet before it is now final. A packet that comes
// back empty tells nothing about order: it is taken to be the one just fed and finalises nothing.
void FrameFeeder::Route(std::vector<_ori_point>& buffer, uint32_t fedSeq) {
  bool named = !buffer.empty() && ReadStamp(buffer.front()).unit != 0;
  uint32_t seq = named ? ReadStamp(buffer.front()).unit : fedSeq;
  Unit* unit = FindUnit(seq);
  if (unit == nullptr) {
    return;  // an empty packet pushed in at the end, or a packet already handed on
  }
  unit->result.swap(buffer);
  unit->returned = true;
  TakeSpareUnitBuffer(buffer);
  if (!named) {
    return;
  }
  for (Unit& earlier : units_) {
    if (earlier.seq >= seq) {
      break;
    }
    earlier.final = true;
  }
}

// Every packet's result is held until its frame is handed on; fed as packets, a Marlo128 frame
// is thousands of them. Recycling their buffers keeps the allocator from handing the frame's
// worth of memory back to the kernel and faulting it in again for the next frame.
void FrameFeeder::KeepUnitBuffers(std::size_t count) {
  for (std::size_t u = 0; u < count; ++u) {
    if (units_[u].result.capacity() > 0) {
      spareUnitBuffers_.push_back(std::move(units_[u].result));
    }
  }
}

void FrameFeeder::TakeSpareUnitBuffer(std::vector<_ori_point>& buffer) {
  if (buffer.capacity() == 0 && !spareUnitBuffers_.empty()) {
    buffer.swap(spareUnitBuffers_.back());
    spareUnitBuffers_.pop_back();
  }
}

FrameFeeder::Unit* FrameFeeder::FindUnit(uint32_t seq) {
  if (units_.empty() || seq < units_.front().seq) {
    return nullptr;
  }
  std::size_t position = seq - units_.front().seq;
  return position < units_.size() ? &units_[position] : nullptr;
}

bool FrameFeeder::HasUnreturnedUnits() const {
  return std::any_of(units_.begin(), units_.end(), [](const Unit& unit) { return !unit.returned; });
}

void FrameFeeder::EmitReadyFrames() {
  while (!frames_.empty()) {
    FedFrame& frame = frames_.front();
    std::size_t count = frame.units.size();
    bool ready = std::all_of(units_.begin(), units_.begin() + static_cast<std::ptrdiff_t>(count),
                             [](const Unit& unit) { return unit.final; });
    if (!ready) {
      return;
    }
    Assemble(frame);
    sink_(frame);
    KeepUnitBuffers(count);
    units_.erase(units_.begin(), units_.begin() + static_cast<std::ptrdiff_t>(count));
    if (spare_.size() < kSpareFrames) {
      spare_.push_back(std::move(frame));
    }
    frames_.pop_front();
  }
}

// The frame's units sit at the front of the queue, in order. A returned point is traced back by
// its stamp; points stamped in another frame (copies an algorithm kept from earlier frames) have
// no origin here, and their reserved_c bytes are cleared since the recording's are not at hand.
void FrameFeeder::Assemble(FedFrame& frame) {
  frame.output.clear();
  frame.origin.clear();
  uint32_t firstSeq = frame.units.front();
  std::size_t count = frame.units.size();
  std::size_t points = 0;
  for (std::size_t u = 0; u < count; ++u) {
    points += units_[u].returned ? units_[u].result.size() : units_[u].size;
  }
  frame.output.reserve(points);
  frame.origin.reserve(points);
  for (std::size_t u = 0; u < count; ++u) {
    const Unit& unit = units_[u];
    if (!unit.returned) {
      ++frame.unreturned;
      const auto from = frame.input.begin() + static_cast<std::ptrdiff_t>(unit.offset);
      frame.output.insert(frame.output.end(), from, from + static_cast<std::ptrdiff_t>(unit.size));
      for (std::size_t i = 0; i < unit.size; ++i) {
        frame.origin.push_back(static_cast<int64_t>(unit.offset + i));
      }
      continue;
    }
    // Copied as a block and then restored in place: the packet is still in cache for the second
    // pass, and a block copy is faster than one point at a time.
    const std::size_t first = frame.output.size();
    frame.output.insert(frame.output.end(), unit.result.begin(), unit.result.end());
    for (std::size_t i = first; i < frame.output.size(); ++i) {
      _ori_point& restored = frame.output[i];
      const int64_t origin = OriginOf(ReadStamp(restored), firstSeq, count);
      if (origin == kNoOrigin) {
        std::memset(restored.reserved_c, 0, sizeof(restored.reserved_c));
      } else {
        std::memcpy(restored.reserved_c, frame.input[static_cast<std::size_t>(origin)].reserved_c,
                    sizeof(restored.reserved_c));
      }
      frame.origin.push_back(origin);
    }
  }
}

// The input index a stamp names, when it names a point of the frame's own packets.
int64_t FrameFeeder::OriginOf(Stamp stamp, uint32_t firstSeq, std::size_t count) const {
  if (stamp.unit < firstSeq || stamp.unit - firstSeq >= count) {
    return kNoOrigin;
  }
  const Unit& unit = units_[stamp.unit - firstSeq];
  return stamp.index < unit.size ? static_cast<int64_t>(unit.offset + stamp.index) : kNoOrigin;
}

}  // namespace tools
}  // namespace velmar
