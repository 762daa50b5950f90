#include "motion/ScanTiming.h"

#include <algorithm>
#include <cmath>

#include "framework/AlgoCommon.h"

namespace velmar {
namespace {

constexpr double kMillisecond = 1e-3;
constexpr int32_t kMirrorSweepColumns = kSweepGridColumns + 2 * kSweepTurnColumns;

// The spinning 16-channel model turns once per 100 ms frame in 1800 columns of 0.2 degrees, the
// first centred at 0.1 degrees.
constexpr double kSpinPeriodSec = 0.1;
constexpr int32_t kSpinColumns = 1800;
constexpr double kSpinColumnStepDeg = 0.2;

}  // namespace

ScanTiming::ScanTiming(LidarType type) {
  switch (type) {
    case LIDAR_ORVIK16:
      slot_rule_ = SlotRule::kSingleSweep;
      slots_ = 1;
      slot_period_ = kSpinPeriodSec;
      first_column_deg_ = 0.5 * kSpinColumnStepDeg;
      columns_per_deg_ = 1.0 / kSpinColumnStepDeg;
      last_column_ = kSpinColumns - 1;
      column_period_ = kSpinPeriodSec / kSpinColumns;
      return;
    case LIDAR_MARLO128:
      slot_rule_ = SlotRule::kLateBankEcho0;
      break;
    case LIDAR_BRISEL:
      slot_rule_ = SlotRule::kFacePlusEcho;
      break;
    case LIDAR_ZEPHEL_B2_B3_MP:
    case LIDAR_QUILL_A4:
    case LIDAR_ZEPHEL_T:
    case LIDAR_MARLO192:
    case LIDAR_QUILL_A1:
    case LIDAR_QUILL_A2:
      slot_rule_ = SlotRule::kFace;
      break;
    default:
      return;
  }
  // The mirror models: three face sweeps of 724 columns each, the first column centred half a
  // step after the left edge of the first turn column.
  slots_ = kMirrorFaceSlots;
  slot_period_ = kMirrorFacePeriodMs * kMillisecond;
  columns_per_deg_ = 1.0 / kSweepGridColumnStep;
  first_column_deg_ = kSweepGridFirstAngle - (kSweepTurnColumns - 0.5) * kSweepGridColumnStep;
  last_column_ = kMirrorSweepColumns - 1;
  column_period_ = slot_period_ / kMirrorSweepColumns;
}

int32_t ScanTiming::Slot(const _ori_point& p) const {
  const bool face_known = p.mirror < slots_;
  switch (slot_rule_) {
    case SlotRule::kSingleSweep:
      return 0;
    case SlotRule::kFace:
      return face_known ? static_cast<int32_t>(p.mirror) : -1;
    case SlotRule::kLateBankEcho0:
      if (!face_known || p.echo > 1) {
        return -1;
      }
      return static_cast<int32_t>((p.mirror + (p.echo == 0 ? 1 : 0)) % slots_);
    case SlotRule::kFacePlusEcho:
      if (!face_known || p.echo > 1) {
        return -1;
      }
      return static_cast<int32_t>((p.mirror + p.echo) % slots_);
    case SlotRule::kUnknown:
      break;
  }
  return -1;
}

double ScanTiming::TimeInFrame(const _ori_point& p) const {
  const int32_t slot = Slot(p);
  const double column = (p.hor_angle - first_column_deg_) * columns_per_deg_;
  if (slot < 0 || std::isnan(column)) {
    return FramePeriod();
  }
  return slot * slot_period_ + std::clamp(column, 0.0, last_column_) * column_period_;
}

}  // namespace velmar
