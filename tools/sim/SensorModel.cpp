#include "sim/SensorModel.h"

#include "framework/AlgoCommon.h"

namespace velmar {
namespace sim {
namespace {

// Two columns on each side of the grid: the sweep starts just before 30 degrees and ends just
// after the last grid column, so every sweep crosses both ends of the field.
constexpr uint32_t kTurnColumns = 2;
constexpr uint32_t kMirrorFaces = 3;
// Three faces per frame at 10 frames a second.
constexpr double kFacePeriodSec = 1.0 / 30.0;
constexpr double kMountHeight = 1.8;

std::vector<double> EvenElevations(uint32_t channels, double topDeg, double stepDeg) {
  std::vector<double> elevations(channels);
  for (uint32_t i = 0; i < channels; ++i) {
    elevations[i] = topDeg - stepDeg * i;
  }
  return elevations;
}

// Two banks of 64 channels over the same field, the second half a step lower, so that channel
// pairs (1,2), (3,4), ... of a bank are neighbours and the banks interleave.
std::vector<double> Marlo128Elevations() {
  constexpr double kTopDeg = 10.0;
  constexpr double kHalfStepDeg = 0.2;
  std::vector<double> elevations(128);
  for (uint32_t i = 0; i < 128; ++i) {
    const uint32_t bank = i / 64;
    const uint32_t inBank = i % 64;
    elevations[i] = kTopDeg - kHalfStepDeg * (2 * inBank + bank);
  }
  return elevations;
}

SensorModel BaseModel(const std::string& name, LidarType type, uint32_t channels,
                      uint32_t packetPoints, double maxRange) {
  SensorModel m;
  m.name = name;
  m.type = type;
  m.channels = channels;
  m.firstChannel = 1;
  m.faces = kMirrorFaces;
  m.gridColumns = static_cast<uint32_t>(kSweepGridColumns);
  m.turnColumns = kTurnColumns;
  m.startAngleDeg = kSweepGridFirstAngle;
  m.columnStepDeg = kSweepGridColumnStep;
  m.packetPoints = packetPoints;
  m.facePeriodSec = kFacePeriodSec;
  m.maxRange = maxRange;
  m.mountHeight = kMountHeight;
  m.bankChannels = channels;
  m.bankFaceShift = {0};
  m.bankEcho = {0};
  m.nearSlot = -1;
  m.nearFaceRange = 0.0;
  m.farFaceRange = 0.0;
  m.edgeChannels = 6;
  m.ghostRule = GhostRule::kAdjacent;
  return m;
}

SensorModel Marlo128() {
  SensorModel m = BaseModel("Marlo128", LIDAR_MARLO128, 128, 128, 200.0);
  // Bank A (channels 1-64) reports echo 1 and faces 0, 1, 2 in the three time slots; bank B
  // (65-128) reports echo 0 and runs one face behind: 2, 0, 1. Both banks are on their
  // reference face in slot 0 and on their near-range face in slot 2.
  m.bankChannels = 64;
  m.bankFaceShift = {0, 2};
  m.bankEcho = {1, 0};
  m.nearSlot = 2;
  m.nearFaceRange = 2.55;
  m.farFaceRange = 2.45;
  m.elevationDeg = Marlo128Elevations();
  m.ghostRule = GhostRule::kGroupPartner67;
  m.fixedEchoes = {{25, 32, 45.0, 60.0, 62.0, 70.0}, {95, 105, 125.0, 135.0, 62.0, 70.0}};
  return m;
}

SensorModel ZephelB2() {
  SensorModel m = BaseModel("ZephelB2/B3/MP", LIDAR_ZEPHEL_B2_B3_MP, 64, 128, 150.0);
  m.elevationDeg = EvenElevations(64, 15.0, 0.6);
  return m;
}

SensorModel QuillA4() {
  SensorModel m = BaseModel("QuillA4", LIDAR_QUILL_A4, 64, 128, 200.0);
  m.elevationDeg = EvenElevations(64, 12.0, 0.4);
  return m;
}

SensorModel ZephelT() {
  SensorModel m = BaseModel("ZephelT", LIDAR_ZEPHEL_T, 96, 96, 180.0);
  m.elevationDeg = EvenElevations(96, 12.0, 0.25);
  m.ghostRule = GhostRule::kChannelGroups;
  m.channelGroups = {{10, 25, 81}, {9, 26, 89},  {12, 27, 82}, {11, 28, 90}, {14, 29, 83},
                     {13, 30, 91}, {16, 31, 84}, {15, 32, 92}, {18, 33, 85}, {17, 34, 93},
                     {20, 35, 86}, {19, 36, 94}, {22, 37, 87}, {21, 38, 95}, {24, 39, 88},
                     {23, 40, 96}, {42, 65, 1},  {41, 73, 57}, {44, 66, 2},  {43, 74, 58},
                     {46, 67, 3},  {45, 75, 59}, {48, 68, 4},  {47, 76, 60}, {50, 69, 5},
                     {49, 77, 61}, {52, 70, 6},  {51, 78, 62}, {54, 71, 7},  {53, 79, 63},
                     {56, 72, 8},  {55, 80, 64}};
  return m;
}

// The spinning Orvik sensors have no mirror: one sweep of the full turn per frame, 1800
// columns of 0.2 degrees, 10 frames a second, every channel of a column one after the other.
SensorModel SpinningModel(const std::string& name, LidarType type, uint32_t channels,
                          uint32_t packetPoints, double maxRange) {
  SensorModel m = BaseModel(name, type, channels, packetPoints, maxRange);
  m.faces = 1;
  m.gridColumns = 1800;
  m.turnColumns = 0;
  m.startAngleDeg = 0.0;
  m.columnStepDeg = 0.2;
  m.facePeriodSec = 0.1;
  return m;
}

// 16 channels, packets of 20 columns.
SensorModel Orvik16() {
  SensorModel m = SpinningModel("Orvik16", LIDAR_ORVIK16, 16, 320, 120.0);
  m.elevationDeg = EvenElevations(16, 15.0, 2.0);
  m.edgeChannels = 2;
  return m;
}

// 48 channels: a column fires them as three runs of 16 neighbours in elevation, and a packet
// carries eight runs (128 points), so a column may continue in the next packet.
SensorModel Orvik48() {
  SensorModel m = SpinningModel("Orvik48", LIDAR_ORVIK48, 48, 128, 150.0);
  m.elevationDeg = EvenElevations(48, 8.0, 0.5);
  m.edgeChannels = 3;
  return m;
}

}  // namespace

double SensorModel::ColumnAngleDeg(uint32_t column) const {
  const double step = static_cast<double>(column) - static_cast<double>(turnColumns) + 0.5;
  return startAngleDeg + step * columnStepDeg;
}

uint32_t SensorModel::Mirror(uint32_t slot, uint32_t channelIndex) const {
  return (slot + bankFaceShift[Bank(channelIndex)]) % faces;
}

uint32_t SensorModel::Echo(uint32_t channelIndex) const {
  return bankEcho[Bank(channelIndex)];
}

bool SensorModel::SlotSeesRange(uint32_t slot, double range) const {
  if (nearSlot < 0) {
    return true;
  }
  if (slot == static_cast<uint32_t>(nearSlot)) {
    return range < nearFaceRange;
  }
  return range > farFaceRange;
}

const std::vector<SensorModel>& SensorModels() {
  static const std::vector<SensorModel> models = {Marlo128(), ZephelB2(), QuillA4(),
                                                  ZephelT(),  Orvik16(),  Orvik48()};
  return models;
}

const SensorModel* FindSensorModel(const std::string& name) {
  for (const SensorModel& model : SensorModels()) {
    if (model.name == name) {
      return &model;
    }
  }
  return nullptr;
}

}  // namespace sim
}  // namespace velmar
