#include "sim/Import.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <numeric>
#include <sstream>

#include "framework/AlgoCommon.h"
#include "sim/Pcd.h"
#include "sim/ReturnModel.h"
#include "sim/SensorModel.h"

namespace velmar {
namespace sim {
namespace {

constexpr std::size_t kKittiPointBytes = 4 * sizeof(float);
constexpr double kFullTurnDeg = 360.0;
constexpr double kHalfTurnDeg = 180.0;
// A generic turn starts and ends behind the sensor and runs clockwise seen from above, as
// spinning sensors of this kind do.
constexpr double kTurnStartDeg = 270.0;
constexpr double kDefaultColumnStepDeg = 0.2;
constexpr double kStepBinDeg = 0.001;
constexpr double kSmallestStepDeg = 0.005;
constexpr double kLargestStepDeg = 2.0;
constexpr double kBeamBinDeg = 0.02;
// Peaks lower than this share of the median peak are stray returns between beams.
constexpr double kBeamFloorShare = 0.05;
// Points in scan order step backwards in azimuth only now and then (a return a hair behind
// its neighbour); a file in another order steps back about half the time.
constexpr double kScanOrderMaxBackShare = 0.05;
// Fewer turns than this is not a multi-beam sweep stored ring after ring.
constexpr int32_t kScanOrderMinRings = 8;
// How far either side of a full turn the next ring's first point is looked for.
constexpr double kRingStartSearchDeg = 10.0;
// Less of a turn than this after the last ring started is not a ring of its own.
constexpr double kRingSliverDeg = 90.0;

constexpr uint32_t kClassMask = 0xFFFFu;
constexpr uint32_t kBankChannels = 64;

[[noreturn]] void Fail(const std::string& path, const std::string& problem) {
  throw ImportError(path + ": " + problem);
}

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    Fail(path, "cannot open the file");
  }
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

double Wrapped(double degrees) {
  double a = std::fmod(degrees, kFullTurnDeg);
  return a < 0.0 ? a + kFullTurnDeg : a;
}

// A source point in our axes (x right, y forward, z up), with what the mapping derives from it.
struct MappedPoint {
  double x, y, z, range;
  double azimuthDeg;    // from +x towards +y, [0, 360)
  double elevationDeg;  // above the horizontal
  std::size_t source;   // index in the cloud
  uint32_t beam = 0;    // rank from the top beam, 0 first
};

std::vector<MappedPoint> ToOurAxes(const SourceCloud& cloud, ImportReport& report) {
  std::vector<MappedPoint> points;
  points.reserve(cloud.Size());
  for (std::size_t i = 0; i < cloud.Size(); ++i) {
    MappedPoint p{};
    p.x = -static_cast<double>(cloud.y[i]);
    p.y = cloud.x[i];
    p.z = cloud.z[i];
    p.range = std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z);
    if (!(p.range > 0.0) || !std::isfinite(p.range) || !std::isfinite(cloud.intensity[i])) {
      ++report.invalid;
      continue;
    }
    p.azimuthDeg = Wrapped(std::atan2(p.y, p.x) / kDegToRad);
    p.elevationDeg = std::asin(std::clamp(p.z / p.range, -1.0, 1.0)) / kDegToRad;
    p.source = i;
    points.push_back(p);
  }
  return points;
}

// Beams from rings given per point: rings ranked by the mean elevation of their returns.
std::size_t RankRings(const std::vector<int32_t>& ringOfPoint, std::vector<MappedPoint>& points) {
  std::map<int32_t, std::pair<double, std::size_t>> rings;
  for (std::size_t i = 0; i < points.size(); ++i) {
    auto& ring = rings[ringOfPoint[i]];
    ring.first += points[i].elevationDeg;
    ++ring.second;
  }
  std::vector<std::pair<double, int32_t>> byElevation;
  for (const auto& [ring, sum] : rings) {
    byElevation.emplace_back(sum.first / sum.second, ring);
  }
  std::sort(byElevation.rbegin(), byElevation.rend());
  std::map<int32_t, uint32_t> rank;
  for (std::size_t r = 0; r < byElevation.size(); ++r) {
    rank[byElevation[r].second] = static_cast<uint32_t>(r);
  }
  for (std::size_t i = 0; i < points.size(); ++i) {
    points[i].beam = rank[ringOfPoint[i]];
  }
  return byElevation.size();
}

// The point from which the elevation changes most sharply from its predecessor, in [from, to).
std::size_t SharpestElevationStep(const std::vector<MappedPoint>& points, std::size_t from,
                                  std::size_t to) {
  std::size_t sharpest = from;
  double largest = -1.0;
  for (std::size_t j = std::max<std::size_t>(from, 1); j < to; ++j) {
    const double step = std::fabs(points[j].elevationDeg - points[j - 1].elevationDeg);
    if (step > largest) {
      largest = step;
      sharpest = j;
    }
  }
  return sharpest;
}

// Rings from the order of the points, for files that store a turn ring after ring, each in
// azimuth order (KITTI's .bin files do). Elevation alone cannot separate the beams of such
// sensors: their lasers sit at different heights, so a beam's elevation seen from the origin
// drifts with range across its neighbours'. A ring ends about a full turn after it started; the
// rings need not start at the same azimuth (each laser has its own azimuth offset), so the exact
// start of the next one is the sharpest elevation step near there, where one beam hands over to
// the next, and the turn is counted from it. Nothing is returned when the points are not in that
// order (too many steps backwards, or too few turns for a multi-beam sweep).
std::vector<int32_t> RingsFromScanOrder(const std::vector<MappedPoint>& points) {
  if (points.size() < 2) {
    return {};
  }
  std::vector<double> steps(points.size() - 1);
  std::size_t forward = 0;
  std::size_t backward = 0;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    steps[i] =
        Wrapped(points[i + 1].azimuthDeg - points[i].azimuthDeg + kHalfTurnDeg) - kHalfTurnDeg;
    forward += steps[i] > 0.0 ? 1 : 0;
    backward += steps[i] < 0.0 ? 1 : 0;
  }
  const double direction = forward >= backward ? 1.0 : -1.0;
  if (static_cast<double>(std::min(forward, backward)) >
      kScanOrderMaxBackShare * static_cast<double>(steps.size())) {
    return {};
  }
  std::vector<std::size_t> starts = {0};
  double progress = 0.0;
  for (std::size_t i = 1; i < points.size(); ++i) {
    progress += direction * steps[i - 1];
    if (progress < kFullTurnDeg) {
      continue;
    }
    const std::size_t ringPoints = i - starts.back();
    const auto reach = static_cast<std::size_t>(static_cast<double>(ringPoints) *
                                                kRingStartSearchDeg / kFullTurnDeg);
    const std::size_t from = std::max(starts.back() + 1, i > reach ? i - reach : 0);
    const std::size_t to = std::min(points.size(), i + reach + 1);
    starts.push_back(SharpestElevationStep(points, from, to));
    progress = 0.0;
    i = starts.back();
  }
  // A sliver after the last full turn is the last ring running on past its start.
  if (starts.size() > 1 && progress < kRingSliverDeg) {
    starts.pop_back();
  }
  if (starts.size() < static_cast<std::size_t>(kScanOrderMinRings)) {
    return {};
  }
  starts.push_back(points.size());
  std::vector<int32_t> rings(points.size(), 0);
  for (std::size_t r = 0; r + 1 < starts.size(); ++r) {
    std::fill(rings.begin() + static_cast<std::ptrdiff_t>(starts[r]),
              rings.begin() + static_cast<std::ptrdiff_t>(starts[r + 1]), static_cast<int32_t>(r));
  }
  return rings;
}

// Beams from the elevation angles alone.
std::size_t RankByElevation(std::vector<MappedPoint>& points) {
  std::vector<double> elevations(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    elevations[i] = points[i].elevationDeg;
  }
  const std::vector<double> boundaries = FindBeamBoundaries(elevations);
  const std::size_t beams = points.empty() ? 0 : boundaries.size() + 1;
  for (MappedPoint& p : points) {
    const std::size_t fromBottom = static_cast<std::size_t>(
        std::upper_bound(boundaries.begin(), boundaries.end(), p.elevationDeg) -
        boundaries.begin());
    p.beam = static_cast<uint32_t>(beams - 1 - fromBottom);
  }
  return beams;
}

// Beams from the ring field when the file has one, else from the points' order, else from
// their elevations.
std::size_t RankBeams(const SourceCloud& cloud, std::vector<MappedPoint>& points) {
  if (!cloud.ring.empty()) {
    std::vector<int32_t> rings(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      rings[i] = cloud.ring[points[i].source];
    }
    return RankRings(rings, points);
  }
  const std::vector<int32_t> rings = RingsFromScanOrder(points);
  return rings.empty() ? RankByElevation(points) : RankRings(rings, points);
}

// The most common angle between azimuth neighbours of one beam.
double ColumnStep(const std::vector<MappedPoint>& points, std::size_t beams) {
  std::vector<std::vector<double>> azimuths(beams);
  for (const MappedPoint& p : points) {
    azimuths[p.beam].push_back(p.azimuthDeg);
  }
  std::vector<uint32_t> votes(static_cast<std::size_t>(kLargestStepDeg / kStepBinDeg) + 1, 0);
  uint32_t total = 0;
  for (std::vector<double>& beam : azimuths) {
    std::sort(beam.begin(), beam.end());
    for (std::size_t i = 1; i < beam.size(); ++i) {
      const double step = beam[i] - beam[i - 1];
      if (step > kSmallestStepDeg && step < kLargestStepDeg) {
        ++votes[static_cast<std::size_t>(step / kStepBinDeg)];
        ++total;
      }
    }
  }
  if (total == 0) {
    return kDefaultColumnStepDeg;
  }
  const auto mode = std::max_element(votes.begin(), votes.end());
  return (static_cast<double>(mode - votes.begin()) + 0.5) * kStepBinDeg;
}

// Intensity on the 0..255 scale of our sensors; clouds whose intensities stay within 0..1 are
// reflectances and are scaled up.
double IntensityScale(const SourceCloud& cloud) {
  float largest = 0.0f;
  for (float v : cloud.intensity) {
    largest = std::isfinite(v) ? std::max(largest, v) : largest;
  }
  return largest > 0.0f && largest <= 1.0f ? kMaxIntensity : 1.0;
}

uint32_t TruthOf(const SourceCloud& cloud, std::size_t source, const ImportOptions& options) {
  if (cloud.label.empty()) {
    return EncodeTruth(options.unlabelledTruth);
  }
  const uint32_t datasetClass = cloud.label[source] & kClassMask;
  return EncodeTruth(TruthOfDatasetClass(datasetClass), datasetClass);
}

uint64_t Nanoseconds(double seconds) {
  return static_cast<uint64_t>(std::llround(seconds * 1e9));
}

// The measured fields of a return, the same in both mappings.
void WriteReturn(const SourceCloud& cloud, const MappedPoint& m, const ImportOptions& options,
                 double intensityScale, _ori_point& p) {
  p.x = m.x;
  p.y = m.y;
  p.z = m.z;
  p.distance = m.range;
  // No sensor reports a negative intensity; read as none, it keeps the pulse-width law defined.
  p.intensity = std::max(0.0, cloud.intensity[m.source] * intensityScale);
  // No pulse width was measured: it is derived from the reflectance with the simulator's law for
  // diffuse surfaces, so echo-strength rules see an imported return as a simulated surface of
  // the same reflectance at the same range.
  p.pulse_width = std::clamp(DiffusePulseWidth(p.intensity / kMaxIntensity, m.range),
                             kMinDiffusePulse, kMaxDiffusePulse);
  p.reserved_a = TruthOf(cloud, m.source, options);
}

// Sorts the returns of each cell (same key) by range and numbers them 0, 1, ... in that order.
template <typename Key>
std::vector<uint32_t> EchoOrder(std::vector<MappedPoint>& points, Key key) {
  std::sort(points.begin(), points.end(), [&key](const MappedPoint& a, const MappedPoint& b) {
    const auto ka = key(a);
    const auto kb = key(b);
    return ka < kb ||
           (ka == kb && (a.range < b.range || (a.range == b.range && a.source < b.source)));
  });
  std::vector<uint32_t> echo(points.size(), 0);
  for (std::size_t i = 1; i < points.size(); ++i) {
    echo[i] = key(points[i]) == key(points[i - 1]) ? echo[i - 1] + 1 : 0;
  }
  return echo;
}

std::vector<_ori_point> MapGeneric(const SourceCloud& cloud, std::vector<MappedPoint>& points,
                                   const ImportOptions& options, uint32_t frameIndex,
                                   ImportReport& report) {
  const double step = report.columnStepDeg;
  auto phaseDeg = [](const MappedPoint& p) { return Wrapped(kTurnStartDeg - p.azimuthDeg); };
  auto cell = [&](const MappedPoint& p) {
    return std::make_pair(static_cast<uint32_t>(phaseDeg(p) / step), p.beam);
  };
  const std::vector<uint32_t> echo = EchoOrder(points, cell);
  std::vector<_ori_point> frame(points.size());
  const double frameStart = frameIndex * options.framePeriodSec;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const MappedPoint& m = points[i];
    _ori_point& p = frame[i];
    std::memset(static_cast<void*>(&p), 0, sizeof(p));
    WriteReturn(cloud, m, options, report.intensityScale, p);
    p.channel = m.beam + 1;
    p.hor_angle = m.azimuthDeg;
    p.echo = echo[i] == 0 ? 0 : 1;
    const double time = cloud.time.empty() ? phaseDeg(m) / kFullTurnDeg * options.framePeriodSec
                                           : cloud.time[m.source];
    p.timestamp = Nanoseconds(frameStart + time);
  }
  if (!frame.empty()) {
    frame.back().mark = 1;
  }
  report.written = frame.size();
  return frame;
}

// Beam rank to Marlo128 channel index (0-based): up to 64 beams fill bank A; more interleave
// the banks as the sensor's own channels do; beyond 128 there is no channel.
int32_t Marlo128ChannelIndex(uint32_t beam, std::size_t beams) {
  if (beams <= kBankChannels) {
    return static_cast<int32_t>(beam);
  }
  if (beam >= 2 * kBankChannels) {
    return -1;
  }
  return static_cast<int32_t>(beam / 2 + kBankChannels * (beam % 2));
}

std::vector<_ori_point> MapMarlo128(const SourceCloud& cloud, std::vector<MappedPoint>& points,
                                    const ImportOptions& options, uint32_t frameIndex,
                                    ImportReport& report) {
  const SensorModel& model = *FindSensorModel("Marlo128");
  std::vector<_ori_point> frame(model.PointsPerFrame());
  std::memset(static_cast<void*>(frame.data()), 0, frame.size() * sizeof(_ori_point));
  // Every beam slot is present, as the sensor delivers it, returns or not.
  std::size_t at = 0;
  for (uint32_t slot = 0; slot < model.faces; ++slot) {
    for (uint32_t column = 0; column < model.ColumnsPerFace(); ++column) {
      const uint64_t stamp = Nanoseconds(model.ColumnTimeSec(frameIndex, slot, column));
      for (uint32_t c = 0; c < model.channels; ++c, ++at) {
        _ori_point& p = frame[at];
        p.channel = model.ChannelNumber(c);
        p.hor_angle = model.ColumnAngleDeg(column);
        p.mirror = model.Mirror(slot, c);
        p.echo = model.Echo(c);
        p.timestamp = stamp;
      }
    }
  }
  frame.back().mark = 1;
  const double firstEdge = model.startAngleDeg - model.turnColumns * model.columnStepDeg;
  auto column = [&](const MappedPoint& p) {
    return static_cast<int64_t>(std::floor((p.azimuthDeg - firstEdge) / model.columnStepDeg));
  };
  auto cell = [&](const MappedPoint& p) { return std::make_pair(column(p), p.beam); };
  const std::vector<uint32_t> echo = EchoOrder(points, cell);
  const std::size_t beams = report.beams;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const MappedPoint& m = points[i];
    const int64_t col = column(m);
    const int32_t channel = Marlo128ChannelIndex(m.beam, beams);
    // The first return of a direction goes to the reference face's sweep (slot 0), a second one
    // to the next face's (slot 1); the near-range faces of slot 2 stay empty.
    const uint32_t slot = echo[i];
    if (col < 0 || col >= static_cast<int64_t>(model.ColumnsPerFace()) || channel < 0 ||
        slot >= model.faces - 1) {
      ++report.outside;
      continue;
    }
    _ori_point& p =
        frame[slot * model.PointsPerFace() + static_cast<std::size_t>(col) * model.channels +
              static_cast<std::size_t>(channel)];
    WriteReturn(cloud, m, options, report.intensityScale, p);
    ++report.written;
  }
  return frame;
}

}  // namespace

std::vector<double> FindBeamBoundaries(const std::vector<double>& elevationsDeg,
                                       double minSeparationDeg) {
  if (elevationsDeg.empty()) {
    return {};
  }
  const auto [lowest, highest] = std::minmax_element(elevationsDeg.begin(), elevationsDeg.end());
  const double low = *lowest;
  const std::size_t bins = static_cast<std::size_t>((*highest - low) / kBeamBinDeg) + 5;
  std::vector<double> histogram(bins, 0.0);
  for (double e : elevationsDeg) {
    histogram[static_cast<std::size_t>((e - low) / kBeamBinDeg) + 2] += 1.0;
  }
  // Smoothed with weights 1 2 3 2 1, so that a beam whose returns straddle two bins makes one
  // peak.
  std::vector<double> smooth(bins, 0.0);
  const double weights[] = {1, 2, 3, 2, 1};
  for (std::size_t i = 2; i + 2 < bins; ++i) {
    for (int k = -2; k <= 2; ++k) {
      smooth[i] += weights[k + 2] * histogram[static_cast<std::size_t>(static_cast<int>(i) + k)];
    }
  }
  const std::size_t half = std::max<std::size_t>(
      1, static_cast<std::size_t>(std::lround(minSeparationDeg / kBeamBinDeg / 2)));
  std::vector<std::size_t> peaks;
  for (std::size_t i = 0; i < bins; ++i) {
    const std::size_t from = i >= half ? i - half : 0;
    const std::size_t to = std::min(bins, i + half + 1);
    const bool highest = smooth[i] > 0.0 &&
                         smooth[i] == *std::max_element(smooth.begin() + from, smooth.begin() + to);
    if (highest && (peaks.empty() || i - peaks.back() > half)) {
      peaks.push_back(i);
    }
  }
  std::vector<double> heights;
  for (std::size_t p : peaks) {
    heights.push_back(smooth[p]);
  }
  std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
  const double floor = kBeamFloorShare * heights[heights.size() / 2];
  peaks.erase(
      std::remove_if(peaks.begin(), peaks.end(), [&](std::size_t p) { return smooth[p] < floor; }),
      peaks.end());
  std::vector<double> boundaries;
  for (std::size_t k = 1; k < peaks.size(); ++k) {
    const auto emptiest =
        std::min_element(smooth.begin() + peaks[k - 1], smooth.begin() + peaks[k] + 1);
    const double bin = static_cast<double>(emptiest - smooth.begin()) - 2.0;
    boundaries.push_back(low + (bin + 0.5) * kBeamBinDeg);
  }
  return boundaries;
}

TruthKind TruthOfDatasetClass(uint32_t datasetClass) {
  switch (datasetClass) {
    case 0:
      return TruthKind::kUnlabelled;
    case 110:
      return TruthKind::kSnow;
    case 40:
    case 44:
    case 48:
    case 49:
    case 60:
    case 72:
    case 111:
      return TruthKind::kGround;
    default:
      return TruthKind::kReal;
  }
}

std::string DatasetClassName(uint32_t datasetClass) {
  static const std::map<uint32_t, const char*> kNames = {
      {0, "unlabelled"},
      {1, "outlier"},
      {10, "car"},
      {11, "bicycle"},
      {13, "bus"},
      {15, "motorcycle"},
      {16, "on-rails"},
      {18, "truck"},
      {20, "other-vehicle"},
      {30, "person"},
      {31, "bicyclist"},
      {32, "motorcyclist"},
      {40, "road"},
      {44, "parking"},
      {48, "sidewalk"},
      {49, "other-ground"},
      {50, "building"},
      {51, "fence"},
      {52, "other-structure"},
      {60, "lane-marking"},
      {70, "vegetation"},
      {71, "trunk"},
      {72, "terrain"},
      {80, "pole"},
      {81, "traffic-sign"},
      {99, "other-object"},
      {110, "falling snow"},
      {111, "snow on ground"},
      {252, "moving-car"},
      {253, "moving-bicyclist"},
      {254, "moving-person"},
      {255, "moving-motorcyclist"},
      {256, "moving-on-rails"},
      {257, "moving-bus"},
      {258, "moving-truck"},
      {259, "moving-other-vehicle"},
  };
  const auto it = kNames.find(datasetClass);
  return it != kNames.end() ? it->second : "class " + std::to_string(datasetClass);
}

SourceCloud ReadKittiBin(const std::string& binPath, const std::string& labelPath) {
  const std::string bytes = ReadBytes(binPath);
  if (bytes.size() % kKittiPointBytes != 0) {
    Fail(binPath, std::to_string(bytes.size()) +
                      " bytes are not a whole number of 16-byte points (x, y, z, intensity as "
                      "float32): the file is truncated or not a KITTI point file");
  }
  const std::size_t count = bytes.size() / kKittiPointBytes;
  SourceCloud cloud;
  cloud.x.resize(count);
  cloud.y.resize(count);
  cloud.z.resize(count);
  cloud.intensity.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    float v[4];
    std::memcpy(v, bytes.data() + i * kKittiPointBytes, sizeof(v));
    cloud.x[i] = v[0];
    cloud.y[i] = v[1];
    cloud.z[i] = v[2];
    cloud.intensity[i] = v[3];
  }
  if (!labelPath.empty()) {
    const std::string labels = ReadBytes(labelPath);
    if (labels.size() != count * sizeof(uint32_t)) {
      Fail(labelPath, std::to_string(labels.size()) + " bytes hold " +
                          std::to_string(labels.size() / sizeof(uint32_t)) +
                          (labels.size() % sizeof(uint32_t) == 0 ? "" : " and a part of one") +
                          " labels, but " + binPath + " has " + std::to_string(count) +
                          " points (one 4-byte label per point)");
    }
    cloud.label.resize(count);
    std::memcpy(cloud.label.data(), labels.data(), labels.size());
  }
  return cloud;
}

namespace {

struct PcdField {
  std::string name;
  std::size_t size = 0;
  char type = 'F';
  std::size_t count = 1;
  std::size_t offset = 0;   // bytes from the start of a binary point
  std::size_t element = 0;  // values before it in an ASCII point
};

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  return std::vector<std::string>(std::istream_iterator<std::string>(in),
                                  std::istream_iterator<std::string>());
}

std::vector<PcdField> PcdFields(const PcdHeader& header, const std::string& path) {
  const std::vector<std::string> names = Words(header.fields);
  const std::vector<std::string> sizes = Words(header.sizes);
  const std::vector<std::string> types = Words(header.types);
  const std::vector<std::string> counts = Words(header.counts);
  if (sizes.size() != names.size() || types.size() != names.size() ||
      counts.size() != names.size()) {
    Fail(path, "FIELDS, SIZE, TYPE and COUNT do not list the same number of fields");
  }
  std::vector<PcdField> fields;
  std::size_t offset = 0;
  std::size_t element = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    PcdField f;
    f.name = names[i];
    f.size = sizes[i] == "1" || sizes[i] == "2" || sizes[i] == "4" || sizes[i] == "8"
                 ? static_cast<std::size_t>(sizes[i][0] - '0')
                 : 0;
    f.type = types[i].size() == 1 ? types[i][0] : '?';
    f.count =
        counts[i].size() <= 6 && counts[i].find_first_not_of("0123456789") == std::string::npos
            ? std::stoul(counts[i])
            : 0;
    const bool known = (f.type == 'F' && (f.size == 4 || f.size == 8)) ||
                       ((f.type == 'U' || f.type == 'I') && f.size > 0);
    if (!known || f.count == 0) {
      Fail(path, "field " + f.name + " has an unsupported SIZE, TYPE or COUNT");
    }
    f.offset = offset;
    f.element = element;
    offset += f.size * f.count;
    element += f.count;
    fields.push_back(f);
  }
  return fields;
}

double DecodeValue(const char* at, const PcdField& f) {
  auto read = [at](auto value) {
    std::memcpy(&value, at, sizeof(value));
    return static_cast<double>(value);
  };
  if (f.type == 'F') {
    return f.size == 4 ? read(float{}) : read(double{});
  }
  if (f.type == 'U') {
    return f.size == 1   ? read(uint8_t{})
           : f.size == 2 ? read(uint16_t{})
           : f.size == 4 ? read(uint32_t{})
                         : read(uint64_t{});
  }
  return f.size == 1   ? read(int8_t{})
         : f.size == 2 ? read(int16_t{})
         : f.size == 4 ? read(int32_t{})
                       : read(int64_t{});
}

// The converter of a ring or label value: a whole number its integer type holds, or the file is
// refused (a float field may hold anything, and a cast of what does not fit is undefined).
template <typename Int>
auto WholeNumber(const std::string& path, const char* field) {
  return [&path, field](double v) {
    const bool fits = v >= static_cast<double>(std::numeric_limits<Int>::min()) &&
                      v <= static_cast<double>(std::numeric_limits<Int>::max());
    if (!fits || v != std::floor(v)) {
      std::ostringstream value;
      value << v;
      Fail(path, std::string("a ") + field + " value " + value.str() +
                     " is not a whole number within the field's range");
    }
    return static_cast<Int>(v);
  };
}

}  // namespace

SourceCloud ReadPcdCloud(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    Fail(path, "cannot open the file");
  }
  PcdHeader header;
  try {
    header = ReadPcdHeader(in, path);
  } catch (const RecordingError& error) {
    throw ImportError(error.what());
  }
  const std::vector<PcdField> fields = PcdFields(header, path);
  SourceCloud cloud;
  const std::size_t count = static_cast<std::size_t>(header.points);
  std::vector<std::pair<const PcdField*, std::function<void(std::size_t, double)>>> targets;
  auto column = [&](const char* name, auto& values, auto convert) {
    for (const PcdField& f : fields) {
      if (f.name == name) {
        values.resize(count);
        targets.emplace_back(
            &f, [&values, convert](std::size_t i, double v) { values[i] = convert(v); });
        return true;
      }
    }
    return false;
  };
  const auto asFloat = [](double v) { return static_cast<float>(v); };
  const bool complete = column("x", cloud.x, asFloat) && column("y", cloud.y, asFloat) &&
                        column("z", cloud.z, asFloat) &&
                        column("intensity", cloud.intensity, asFloat);
  if (!complete) {
    Fail(path, "needs the fields x, y, z and intensity (FIELDS " + header.fields + ")");
  }
  column("ring", cloud.ring, WholeNumber<int32_t>(path, "ring"));
  column("label", cloud.label, WholeNumber<uint32_t>(path, "label"));
  if (!column("time", cloud.time, [](double v) { return v; })) {
    column("t", cloud.time, [](double v) { return v * 1e-9; });
  }
  if (header.data == "binary") {
    const std::size_t pointBytes = fields.back().offset + fields.back().size * fields.back().count;
    in.seekg(0, std::ios::end);
    const uint64_t dataBytes = static_cast<uint64_t>(in.tellg()) - header.bytes;
    if (dataBytes != header.points * pointBytes) {
      Fail(path, "POINTS " + std::to_string(header.points) + " need " +
                     std::to_string(header.points * pointBytes) +
                     " bytes of data, the file holds " + std::to_string(dataBytes));
    }
    std::string data(static_cast<std::size_t>(dataBytes), '\0');
    in.seekg(static_cast<std::streamoff>(header.bytes));
    in.read(data.data(), static_cast<std::streamsize>(dataBytes));
    for (std::size_t i = 0; i < count; ++i) {
      for (const auto& [f, fill] : targets) {
        fill(i, DecodeValue(data.data() + i * pointBytes + f->offset, *f));
      }
    }
  } else if (header.data == "ascii") {
    std::vector<double> values(fields.back().element + fields.back().count);
    for (std::size_t i = 0; i < count; ++i) {
      for (double& v : values) {
        if (!(in >> v)) {
          Fail(path,
               "the data ends within point " + std::to_string(i) + " of " + std::to_string(count));
        }
      }
      for (const auto& [f, fill] : targets) {
        fill(i, values[f->element]);
      }
    }
  } else {
    Fail(path, "DATA " + header.data + " is not supported (ascii or binary)");
  }
  return cloud;
}

std::vector<_ori_point> MapFrame(const SourceCloud& cloud, const ImportOptions& options,
                                 uint32_t frameIndex, ImportReport* report) {
  ImportReport local;
  ImportReport& r = report != nullptr ? *report : local;
  r = ImportReport{};
  r.points = cloud.Size();
  std::vector<MappedPoint> points = ToOurAxes(cloud, r);
  r.beams = RankBeams(cloud, points);
  r.columnStepDeg = ColumnStep(points, r.beams);
  r.intensityScale = IntensityScale(cloud);
  return options.mapping == ImportMapping::kMarlo128
             ? MapMarlo128(cloud, points, options, frameIndex, r)
             : MapGeneric(cloud, points, options, frameIndex, r);
}

RecordingInfo ImportedRecordingInfo(const ImportOptions& options) {
  RecordingInfo info;
  const bool marlo = options.mapping == ImportMapping::kMarlo128;
  const LidarType type = marlo ? LIDAR_MARLO128 : LIDAR_KR360;
  info.model = LidarTypeToStr(type);
  info.lidarType = type;
  info.packetPoints = marlo ? FindSensorModel("Marlo128")->packetPoints : 0;
  info.scene.name = "imported";
  info.attributes["mapping"] = marlo ? "marlo128" : "generic";
  info.attributes[kTruthObjectAttribute] = kTruthObjectIsDatasetClass;
  return info;
}

}  // namespace sim
}  // namespace velmar
