// Geometry and timing of the simulated sensor families: how many channels a column has, where
// each channel looks, which mirror face and echo value each return carries, how columns are
// packed into packets and how a frame is ordered. The point order produced from these tables is
// the order that the library's algorithms rely on for each model.
#ifndef VELMAR_TOOLS_SIM_SENSOR_MODEL_H
#define VELMAR_TOOLS_SIM_SENSOR_MODEL_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

// How a strong (wide-pulse) return leaks into other channels of the same column.
enum class GhostRule {
  kGroupPartner67,  // 32-channel groups: position i -> i + 16 (1..15) or i - 12 (16..31), 67 m
                    // behind
  kChannelGroups,   // fixed groups of three channels, at about the same range
  kAdjacent,        // the channels two above and two below, at about the same range
};

// A window of channels and angles where the sensor reports a false echo at a fixed range band.
struct FixedEchoWindow {
  uint32_t firstChannel;
  uint32_t lastChannel;
  double firstAngleDeg;
  double lastAngleDeg;
  double nearRange;
  double farRange;
};

struct SensorModel {
  std::string name;  // the model's text name, as LidarTypeToStr gives it
  LidarType type;

  uint32_t channels;      // points per column, in channel order
  uint32_t firstChannel;  // number carried by the first channel of a column
  uint32_t faces;         // mirror faces, each sweeping the whole field once per frame
  uint32_t gridColumns;   // columns from the start angle on, in equal steps
  uint32_t turnColumns;   // extra columns before the start angle and after the last grid column
  double startAngleDeg;   // left edge of the first grid column
  double columnStepDeg;   // horizontal step between columns
  uint32_t packetPoints;  // points per packet (whole columns)
  double facePeriodSec;   // time one face takes to sweep all its columns
  double maxRange;        // metres; nothing farther returns
  double mountHeight;     // metres above the road

  // Channels are split into banks of `bankChannels`; bank b reports face (slot + faceShift[b]) %
  // faces and echo value echo[b]. Single-bank models have one entry each.
  uint32_t bankChannels;
  std::vector<uint32_t> bankFaceShift;
  std::vector<uint32_t> bankEcho;

  // Time slot whose faces only see near targets (below nearFaceRange); the other slots only see
  // targets beyond farFaceRange. -1 when every face sees every range.
  int nearSlot;
  double nearFaceRange;
  double farFaceRange;

  std::vector<double> elevationDeg;  // per channel index (0-based), degrees above horizontal

  uint32_t edgeChannels;  // channels at each end of a bank that pick up close-range noise
  GhostRule ghostRule;
  // Channel numbers of each group, for GhostRule::kChannelGroups.
  std::vector<std::array<uint32_t, 3>> channelGroups;
  std::vector<FixedEchoWindow> fixedEchoes;

  // Derived layout.
  uint32_t ColumnsPerFace() const { return gridColumns + 2 * turnColumns; }
  uint32_t PointsPerFace() const { return ColumnsPerFace() * channels; }
  uint32_t PointsPerFrame() const { return PointsPerFace() * faces; }
  double FramePeriodSec() const { return facePeriodSec * faces; }
  double ColumnPeriodSec() const { return facePeriodSec / ColumnsPerFace(); }
  // Time of a column of a face's sweep within frame `frame`, seconds since the first frame.
  double ColumnTimeSec(uint32_t frame, uint32_t slot, uint32_t column) const {
    return frame * FramePeriodSec() + slot * facePeriodSec + column * ColumnPeriodSec();
  }
  // Horizontal angle of a column (0 .. ColumnsPerFace()-1), at the centre of its step, degrees.
  double ColumnAngleDeg(uint32_t column) const;
  uint32_t ChannelNumber(uint32_t channelIndex) const { return firstChannel + channelIndex; }
  uint32_t Bank(uint32_t channelIndex) const { return channelIndex / bankChannels; }
  uint32_t Mirror(uint32_t slot, uint32_t channelIndex) const;
  uint32_t Echo(uint32_t channelIndex) const;
  // True when a target at `range` can be seen in this slot.
  bool SlotSeesRange(uint32_t slot, double range) const;
};

// Every simulated model, in a fixed order.
const std::vector<SensorModel>& SensorModels();
// The model of that text name, or nullptr.
const SensorModel* FindSensorModel(const std::string& name);

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_SENSOR_MODEL_H
