// When, within its frame, a sensor sees each return. The record carries no time the library can
// trust (the host defines `timestamp`), but every model scans in a fixed pattern: the mirror
// models sweep the field once per face, the faces one after another, column after column; a
// spinning model turns once per frame. The face, echo bank and horizontal angle of a return
// therefore give its time.
#ifndef VELMAR_MOTION_SCAN_TIMING_H
#define VELMAR_MOTION_SCAN_TIMING_H

#include <cstdint>

#include "velmar/lidar_algo.h"

namespace velmar {

class ScanTiming {
 public:
  explicit ScanTiming(LidarType type);

  // False for models whose scan pattern the library does not know.
  bool Known() const { return slot_rule_ != SlotRule::kUnknown; }
  // Seconds from the start of a frame to the start of the next.
  double FramePeriod() const { return slot_period_ * slots_; }
  // Seconds from the start of the frame to the moment `p` was seen, in [0, FramePeriod()]. A
  // return whose face or echo the model does not have, or whose angle is not a number, is taken
  // as seen at the end of the frame.
  double TimeInFrame(const _ori_point& p) const;

 private:
  enum class SlotRule {
    kUnknown,
    kSingleSweep,    // spinning: one sweep per frame
    kFace,           // face f sweeps in slot f
    kLateBankEcho0,  // Marlo128: the echo-0 bank runs one face behind (faces 2, 0, 1)
    kFacePlusEcho,   // Brisel: the second echo of a face is sampled one slot later
  };

  // The slot of `p`, or -1 when it fits none.
  int32_t Slot(const _ori_point& p) const;

  SlotRule slot_rule_ = SlotRule::kUnknown;
  uint32_t slots_ = 1;
  double slot_period_ = 0.0;     // seconds
  double first_column_deg_ = 0;  // centre of the first column of a sweep
  double columns_per_deg_ = 1.0;
  double last_column_ = 0.0;    // index of the last column of a sweep
  double column_period_ = 0.0;  // seconds
};

}  // namespace velmar

#endif  // VELMAR_MOTION_SCAN_TIMING_H
