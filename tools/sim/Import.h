// Frames of other sensors turned into recordings of ours, so that the library's algorithms run
// on real geometry: KITTI-layout .bin files (float32 x, y, z, intensity) with optional
// SemanticKITTI .label files, and PCD files with x, y, z, intensity and, when present, ring and
// time. docs/simulator.md ("Imported recordings") describes every field the mapping writes.
//
// Reading and mapping are separate steps so that a C++ program can put a cloud of its own
// through the same mapping: fill a SourceCloud and call MapFrame.
#ifndef VELMAR_TOOLS_SIM_IMPORT_H
#define VELMAR_TOOLS_SIM_IMPORT_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/Recording.h"
#include "sim/Truth.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace sim {

class ImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One frame of another sensor, in that sensor's axes: x forward, y left, z up (metres).
struct SourceCloud {
  std::vector<float> x, y, z, intensity;
  std::vector<int32_t> ring;    // beam of each point; empty when the file has none
  std::vector<double> time;     // seconds from the start of the turn; empty when none
  std::vector<uint32_t> label;  // SemanticKITTI label (class in the low 16 bits); empty: none
  std::size_t Size() const { return x.size(); }
};

// Reads a KITTI .bin and, when `labelPath` is not empty, its .label. ImportError (naming the
// file) for a missing file, a .bin that is not a whole number of 16-byte points, or a .label
// whose count differs from the points'.
SourceCloud ReadKittiBin(const std::string& binPath, const std::string& labelPath = "");
// Reads an ASCII or binary PCD file with fields x, y, z and intensity (any numeric types), and
// ring, time (seconds) or t (nanoseconds) and label when present.
SourceCloud ReadPcdCloud(const std::string& path);

enum class ImportMapping {
  kGeneric,   // any spinning sensor, full turn, one column per azimuth step: model "KR360"
  kMarlo128,  // the Marlo128 frame layout: sweep grid, faces, banks, packets of 128
};

struct ImportOptions {
  ImportMapping mapping = ImportMapping::kGeneric;
  // Truth of points of a cloud without labels: kUnlabelled, or kReal for frames known to hold
  // no noise (clear weather).
  TruthKind unlabelledTruth = TruthKind::kUnlabelled;
  double framePeriodSec = 0.1;
};

// What the mapping found and dropped, for the record and the user.
struct ImportReport {
  std::size_t points = 0;   // points in the source
  std::size_t written = 0;  // returns in the frame
  std::size_t invalid = 0;  // no range, or not finite
  std::size_t outside = 0;  // outside the Marlo128 field or beyond its channels or faces
  std::size_t beams = 0;
  double columnStepDeg = 0.0;
  double intensityScale = 1.0;
};

// Elevation (degrees) separating consecutive beams, found from the elevations of the returns:
// beams are the peaks of a fine histogram, at least `minSeparationDeg` apart; a boundary is the
// emptiest elevation between two peaks. Sorted upwards; a cloud with one beam has none.
std::vector<double> FindBeamBoundaries(const std::vector<double>& elevationsDeg,
                                       double minSeparationDeg = 0.1);

// The truth kind of a SemanticKITTI class: 110 (falling snow) snow; 40, 44, 48, 49, 60, 72 and
// 111 ground; 0 unlabelled; anything else real.
TruthKind TruthOfDatasetClass(uint32_t datasetClass);
// "car", "road", "falling snow", ...; "class N" when unknown.
std::string DatasetClassName(uint32_t datasetClass);

// Maps one source frame into point records (frame `frameIndex` of the recording, which sets its
// time stamps).
std::vector<_ori_point> MapFrame(const SourceCloud& cloud, const ImportOptions& options,
                                 uint32_t frameIndex, ImportReport* report = nullptr);

// The recording metadata of imported frames: model, packet size and the attributes that tell
// eval that the object half of the truth holds the dataset's class.
RecordingInfo ImportedRecordingInfo(const ImportOptions& options);

// The attribute eval looks for, and its value on imported recordings.
constexpr const char* kTruthObjectAttribute = "truth_object";
constexpr const char* kTruthObjectIsDatasetClass = "dataset class";

}  // namespace sim
}  // namespace velmar

#endif  // VELMAR_TOOLS_SIM_IMPORT_H
