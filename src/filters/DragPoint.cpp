#include "filters/DragPoint.h"

#include <cmath>
#include <limits>

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

// The angle thresholds are turned into cosines with this truncated pi on every supported model:
// deployed configurations were tuned with it, and the exact value would move the band edges.
constexpr double kTruncatedPi = 3.1415926;
constexpr std::size_t kBlocksPer192 = 4;
constexpr std::size_t kBlocksPer96Or128 = 2;

double ThresholdCosine(double degrees) {
  return std::cos(degrees / 180.0 * kTruncatedPi);
}

// The quick rejections are used only for thresholds in these ranges, where squares stay normal
// numbers; with a relative margin of a thousandth they cannot flip a verdict that the exact test
// would give, whatever the rounding of the exact test.
constexpr double kQuickMargin = 1e-3;
constexpr double kQuickMinDistance = 1e-6;
constexpr double kQuickMaxDistance = 1e6;
constexpr double kQuickMinCosine = 1e-3;
constexpr double kQuickMinScale = 1e-200;
constexpr double kQuickMaxScale = 1e200;

}  // namespace

bool DragPoint::IsSupported(const std::string& lidarTypeName) {
  if (lidarTypeName == kZephelT) {
    // Deliberately set here, the one place the pipeline names the model to the filter: Process
    // reads it to treat every ZephelT packet as a single column.
    single_block = true;
    return true;
  }
  return lidarTypeName == kZephelB1 || lidarTypeName == kZephelB2_B3_MP || lidarTypeName == kKR360;
}

void DragPoint::ParseParams() {
  ClearCache();
  ReadParam("angle_threshold_filtered", angle_threshold_filtered);
  ReadParam("dist_threshold_filtered", dist_threshold_filtered);
  ReadParam("angle_threshold_level_2", angle_threshold_level_2);
  ReadParam("dist_threshold_level_2", dist_threshold_level_2);
  ReadParam("angle_threshold_level_1", angle_threshold_level_1);
  ReadParam("dist_threshold_level_1", dist_threshold_level_1);
  cos_filtered = ThresholdCosine(angle_threshold_filtered);
  cos_level_2 = ThresholdCosine(angle_threshold_level_2);
  cos_level_1 = ThresholdCosine(angle_threshold_level_1);
}

// Only the older packet is forgotten: the delayed packet is still owed to the host and is handed
// back on the second call after a clear.
void DragPoint::ClearCache() {
  older_packet.clear();
  older_is_delayed_ = false;
}

void DragPoint::Process(std::vector<_ori_point>& points) {
  const std::size_t n = points.size();
  if (!IsPacketSize(n)) {
    return;
  }
  std::size_t block_count = (n == kPacketPoints192) ? kBlocksPer192 : kBlocksPer96Or128;
  if (single_block) {
    block_count = 1;
  }
  const std::size_t block_points = n / block_count;
  quick_reject_ = DeriveQuickReject();

  if (older_packet.empty() && !older_is_delayed_) {
    older_packet.assign(points.begin(), points.end());
    return;
  }
  if (delayed_packet.empty()) {
    delayed_packet.assign(points.begin(), points.end());
    return;
  }
  // Hand back the delayed packet and keep the new one in its place: the host's vector and the
  // delayed buffer trade storage, so no record is copied.
  points.swap(delayed_packet);

  for (std::size_t block = 0; block < block_count; ++block) {
    FilterBlock(points, block, block_count, block_points);
  }
  // Only block 0 reads the older packet, so refreshing it once after all blocks is the same as
  // refreshing it after each; it becomes the packet now delayed.
  older_is_delayed_ = true;
}

void DragPoint::FilterBlock(std::vector<_ori_point>& packet, std::size_t block,
                            std::size_t block_count, std::size_t block_points) {
  const std::size_t previous_block = (block_count - 1 + block) % block_count;
  // Block 0's previous column lies in another packet; the other blocks take both column sources
  // from the newest packet, on every model, so they are judged against it twice over (the
  // second pass can only decide where the first did not). The newest packet is the one now
  // delayed. An older packet equal to the delayed one before this call is the packet being
  // filtered: block 0 reads its last block, which this pass has not reached yet.
  const std::vector<_ori_point>* first_source = &delayed_packet;
  if (block == 0) {
    first_source = older_is_delayed_ ? &packet : &older_packet;
  }
  const std::vector<_ori_point>& second_source = delayed_packet;
  // The same record judged twice gives the same verdict, so a second source equal to the first
  // cannot decide where the first did not.
  const bool second_source_differs = first_source != &second_source;
  const std::size_t begin = block * block_points;

  // The layout follows the packet just given; a delayed packet of another size is filtered only
  // where it has points.
  for (std::size_t j = 0; j < block_points && begin + j < packet.size(); ++j) {
    _ori_point& point = packet[begin + j];
    const std::size_t beside = previous_block * block_points + j;
    if (JudgeAgainst(point, *first_source, beside) ||
        (second_source_differs && JudgeAgainst(point, second_source, beside))) {
      continue;
    }
    if (j > 0 && JudgeAgainst(point, packet, begin + j - 1)) {
      continue;
    }
    if (j + 1 < block_points) {
      JudgeAgainst(point, packet, begin + j + 1);
    }
  }
}

bool DragPoint::JudgeAgainst(_ori_point& point, const std::vector<_ori_point>& source,
                             std::size_t neighbour_index) const {
  // Packets of different sizes in a row leave the other buffers shorter than this one.
  if (neighbour_index >= source.size()) {
    return false;
  }
  // A single-column packet read in place of its older copy offers each point itself: a zero
  // step, which never gives a verdict.
  const _ori_point& neighbour = source[neighbour_index];
  if (&neighbour == &point) {
    return false;
  }
  switch (Judge(point, neighbour)) {
    case Verdict::kRemove:
      ClearMeasures(point);
      return true;
    case Verdict::kLevel2:
      point.drag_level = 2;
      return true;
    case Verdict::kLevel1:
      point.drag_level = 1;
      return true;
    case Verdict::kNone:
      break;
  }
  return false;
}

DragPoint::QuickReject DragPoint::DeriveQuickReject() const {
  QuickReject quick{std::numeric_limits<double>::infinity(), 0.0};
  // A NaN threshold fails its rule for every neighbour, so it does not widen the bounds.
  const double longest =
      std::fmax(dist_threshold_filtered, std::fmax(dist_threshold_level_2, dist_threshold_level_1));
  if (longest >= kQuickMinDistance && longest <= kQuickMaxDistance) {
    quick.far_step_squared = longest * longest * (1.0 + kQuickMargin);
  }
  const double flattest = std::fmin(cos_filtered, std::fmin(cos_level_2, cos_level_1));
  if (flattest >= kQuickMinCosine && flattest <= 1.0) {
    quick.flat_cosine_squared = flattest * flattest * (1.0 - kQuickMargin);
  }
  return quick;
}

// A point equal to its neighbour makes the cosine 0/0: the NaN fails every comparison, so such a
// neighbour gives no verdict.
DragPoint::Verdict DragPoint::Judge(const _ori_point& point, const _ori_point& neighbour) const {
  // A neighbour without a return (or removed) sits at the origin: its ray has no direction, so
  // the cosine is 0/0 and no verdict is possible. Most beams that see the sky are such neighbours.
  if (neighbour.x == 0.0 && neighbour.y == 0.0 && neighbour.z == 0.0) {
    return Verdict::kNone;
  }
  const double dx = point.x - neighbour.x;
  const double dy = point.y - neighbour.y;
  const double dz = point.z - neighbour.z;
  const double step_squared = dx * dx + dy * dy + dz * dz;
  const double ray_squared =
      neighbour.x * neighbour.x + neighbour.y * neighbour.y + neighbour.z * neighbour.z;
  const double dot = dx * neighbour.x + dy * neighbour.y + dz * neighbour.z;
  // Most neighbours are too far, or off the line of sight by far more than any band: settle
  // those before the square roots and the division. The squares compared are the ones the exact
  // test takes its roots of, and a NaN anywhere falls through to it.
  if (step_squared > quick_reject_.far_step_squared) {
    return Verdict::kNone;
  }
  const double scale = ray_squared * step_squared;
  if (scale >= kQuickMinScale && scale <= kQuickMaxScale &&
      dot * dot < quick_reject_.flat_cosine_squared * scale) {
    return Verdict::kNone;
  }
  const double dist = std::sqrt(step_squared);
  const double ray_length = std::sqrt(ray_squared);
  const double c = std::fabs(dot) / (ray_length * dist);

  if (c > cos_filtered && dist < dist_threshold_filtered) {
    return Verdict::kRemove;
  }
  if (cos_filtered > c && c > cos_level_2 && dist < dist_threshold_level_2) {
    return Verdict::kLevel2;
  }
  if (cos_level_2 > c && c > cos_level_1 && dist < dist_threshold_level_1) {
    return Verdict::kLevel1;
  }
  return Verdict::kNone;
}

}  // namespace velmar
