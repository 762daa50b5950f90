#include "filters/ColumnLayout.h"

#include "framework/AlgoCommon.h"

namespace velmar {
namespace {

constexpr double kOrvikColumnStepDeg = 0.2;

// Channels in elevation order, top down.
ColumnLayout InOrder(uint32_t columnPoints, uint32_t packetPoints, double columnStepDeg) {
  ColumnLayout layout;
  layout.columnPoints = columnPoints;
  layout.packetPoints = packetPoints;
  layout.columnStepDeg = columnStepDeg;
  for (uint32_t i = 0; i < columnPoints; ++i) {
    layout.rankOfIndex[i] = static_cast<uint8_t>(i);
    layout.indexOfRank[i] = static_cast<uint8_t>(i);
  }
  return layout;
}

// The 128-channel models fire two banks of 64 channels whose beams interleave: channel j of the
// first bank lies just above channel j of the second.
ColumnLayout TwoInterleavedBanks() {
  constexpr uint32_t kBank = ColumnLayout::kMaxColumnPoints / 2;
  ColumnLayout layout = InOrder(2 * kBank, kPacketPoints128, kSweepGridColumnStep);
  for (uint32_t j = 0; j < kBank; ++j) {
    layout.rankOfIndex[j] = static_cast<uint8_t>(2 * j);
    layout.rankOfIndex[kBank + j] = static_cast<uint8_t>(2 * j + 1);
    layout.indexOfRank[2 * j] = static_cast<uint8_t>(j);
    layout.indexOfRank[2 * j + 1] = static_cast<uint8_t>(kBank + j);
  }
  return layout;
}

}  // namespace

const ColumnLayout* ColumnLayout::Of(LidarType type) {
  // Mirror models: columns of the sweep grid; 64 channels in packets of two columns, or 96 in
  // packets of one.
  static const ColumnLayout kColumns64 =
      InOrder(kColumnPoints64, kPacketPoints128, kSweepGridColumnStep);
  static const ColumnLayout kColumns96 =
      InOrder(kPacketPoints96, kPacketPoints96, kSweepGridColumnStep);
  static const ColumnLayout kColumns128 = TwoInterleavedBanks();
  // Spinning 48-channel models: packets of eight runs of 16 channels, so a column may continue
  // in the next packet.
  static const ColumnLayout kColumns48 = InOrder(48, kPacketPoints128, kOrvikColumnStepDeg);
  switch (type) {
    case LIDAR_ZEPHEL_B1:
    case LIDAR_ZEPHEL_B2_B3_MP:
    case LIDAR_ZEPHEL_B2_64:
    case LIDAR_QUILL_A4:
      return &kColumns64;
    case LIDAR_ZEPHEL_T:
      return &kColumns96;
    case LIDAR_MARLO128:
    case LIDAR_MARLO128H:
    case LIDAR_MARLO128F:
      return &kColumns128;
    case LIDAR_ORVIK48:
    case LIDAR_ORVIK48_DEPTH:
      return &kColumns48;
    default:
      return nullptr;
  }
}

}  // namespace velmar
