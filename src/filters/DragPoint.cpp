#include "filters/DragPoint.h"

#include <cmath>

#include "framework/AlgoCommon.h"
#include "framework/about.h"

namespace velmar {
namespace {

// The thresholds have always been turned into cosines with this value; keeping it keeps the
// bands where they have been tuned.
constexpr double kTruncatedPi = 3.1415926;
constexpr std::size_t kBlocksPer192 = 4;
constexpr std::size_t kBlocksPer96Or128 = 2;

double ThresholdCosine(double degrees) {
  return std::cos(degrees / 180.0 * kTruncatedPi);
}

bool IsPacketSize(std::size_t n) {
  return n == kPacketPoints128 || n == kPacketPoints96 || n == kPacketPoints192;
}

}  // namespace

bool DragPoint::IsSupported(const std::string& lidarTypeName) {
  if (lidarTypeName == kZephelT) {
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

  if (older_packet.empty()) {
    older_packet.assign(points.begin(), points.end());
    return;
  }
  if (delayed_packet.empty()) {
    delayed_packet.assign(points.begin(), points.end());
    return;
  }
  // Hand back the delayed packet and keep the new one in its place. The buffers swap rather
  // than copy: the latest buffer is left holding the handed-back packet's unfiltered records,
  // which nothing reads before the next packet overwrites them.
  latest_packet.assign(points.begin(), points.end());
  points.assign(delayed_packet.begin(), delayed_packet.end());
  delayed_packet.swap(latest_packet);

  for (std::size_t block = 0; block < block_count; ++block) {
    FilterBlock(points, block, block_count, block_points);
  }
  // Only block 0 reads the older packet, so refreshing it once after all blocks is the same as
  // refreshing it after each.
  older_packet.assign(delayed_packet.begin(), delayed_packet.end());
}

void DragPoint::FilterBlock(std::vector<_ori_point>& packet, std::size_t block,
                            std::size_t block_count, std::size_t block_points) {
  const std::size_t previous_block = (block_count - 1 + block) % block_count;
  // Block 0's previous column lies in another packet; the others read the newest packet twice
  // over, which is how the filter has always graded them. The newest packet is the one now
  // delayed.
  const std::vector<_ori_point>& first_source = (block == 0) ? older_packet : delayed_packet;
  const std::vector<_ori_point>& second_source = delayed_packet;
  const std::size_t begin = block * block_points;

  // The layout follows the packet just given; a delayed packet of another size is filtered only
  // where it has points.
  for (std::size_t j = 0; j < block_points && begin + j < packet.size(); ++j) {
    _ori_point& point = packet[begin + j];
    const std::size_t beside = previous_block * block_points + j;
    if (JudgeAgainst(point, first_source, beside) || JudgeAgainst(point, second_source, beside)) {
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
  switch (Judge(point, source[neighbour_index])) {
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

// A removed neighbour (zero vector) or a point equal to its neighbour makes the cosine NaN, and a
// NaN fails every comparison: such a neighbour gives no verdict.
DragPoint::Verdict DragPoint::Judge(const _ori_point& point, const _ori_point& neighbour) const {
  const double dx = point.x - neighbour.x;
  const double dy = point.y - neighbour.y;
  const double dz = point.z - neighbour.z;
  const double dist = std::sqrt(dx * dx + dy * dy + dz * dz);
  const double ray_length =
      std::sqrt(neighbour.x * neighbour.x + neighbour.y * neighbour.y + neighbour.z * neighbour.z);
  const double dot = dx * neighbour.x + dy * neighbour.y + dz * neighbour.z;
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
