// How a model's frames and packets are laid out for the filters that look across channels and
// columns: a frame is a run of columns, each holding its channels in channel order; the channels'
// order in elevation; the packets the sensor sends; and the angle between columns.
#ifndef VELMAR_FILTERS_COLUMN_LAYOUT_H
#define VELMAR_FILTERS_COLUMN_LAYOUT_H

#include <array>
#include <cstdint>

#include "velmar/lidar_algo.h"

namespace velmar {

struct ColumnLayout {
  static constexpr uint32_t kMaxColumnPoints = 128;

  uint32_t columnPoints = 0;   // channels of a column, one point each, in channel order
  uint32_t firstChannel = 1;   // number carried by a column's first channel
  uint32_t packetPoints = 0;   // points of a packet as the sensor sends it
  double columnStepDeg = 0.0;  // horizontal angle from one column to the next
  // Place of each channel (by its index in the column) counted from the top in elevation, and
  // the index at each place.
  std::array<uint8_t, kMaxColumnPoints> rankOfIndex{};
  std::array<uint8_t, kMaxColumnPoints> indexOfRank{};

  // The layout of `type`, or nullptr for a model without one.
  static const ColumnLayout* Of(LidarType type);
};

}  // namespace velmar

#endif  // VELMAR_FILTERS_COLUMN_LAYOUT_H
