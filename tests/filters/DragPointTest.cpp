#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>

#include "filters/DragPoint.h"
#include "framework/about.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakePointXYZ;

std::vector<_ori_point> Packet(std::size_t n, uint64_t tag) {
  std::vector<_ori_point> packet = test::MakeFrame(n, 0.0);
  for (_ori_point& p : packet) {
    p.timestamp = tag;
  }
  return packet;
}

// The verdict on point 0 against its only neighbour, point 1, of a packet filtered between two
// empty ones (the third call answers with it): 3 removed, 2 or 1 its level, 0 none.
uint32_t Verdict(DragPoint& drag, const _ori_point& point, const _ori_point& neighbour) {
  std::vector<_ori_point> packet = Packet(96, 0);
  drag.Process(packet);
  packet[0] = point;
  packet[1] = neighbour;
  drag.Process(packet);
  packet = Packet(96, 0);
  drag.Process(packet);
  const _ori_point& out = packet[0];
  return out.x == 0.0 && out.y == 0.0 && out.z == 0.0 ? 3 : out.drag_level;
}

// A point `step` away from `neighbour`, at `radians` from its line of sight, turned aside
// horizontally.
_ori_point Beside(const _ori_point& neighbour, double radians, double step) {
  const double n = std::hypot(neighbour.x, neighbour.y, neighbour.z);  // no overflow
  const double ux = neighbour.x / n, uy = neighbour.y / n, uz = neighbour.z / n;
  const double side = std::hypot(ux, uy);  // a unit vector across the sight line
  const double vx = -uy / side, vy = ux / side;
  return MakePointXYZ(neighbour.x + step * (std::cos(radians) * ux + std::sin(radians) * vx),
                      neighbour.y + step * (std::cos(radians) * uy + std::sin(radians) * vy),
                      neighbour.z + step * std::cos(radians) * uz);
}

constexpr double kPi = 3.14159265358979323846;

// Packets of changing size stay in bounds: each answer is the previous packet, whatever its size.
TEST(DragPointTest, AnswersWithTheDelayedPacketAndKeepsItOverAClear) {
  auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_ZEPHEL_B1);
  const std::size_t sizes[] = {96, 192, 128, 96, 192, 128, 96};
  const uint64_t answered[] = {1, 2, 2, 3, 5, 4, 6};  // cleared before the fifth call
  for (uint64_t tag = 1; tag <= 7; ++tag) {
    if (tag == 5) {
      drag->ClearCache();
    }
    std::vector<_ori_point> packet = Packet(sizes[tag - 1], tag);
    drag->Process(packet);
    EXPECT_EQ(packet[0].timestamp, answered[tag - 1]) << "call " << tag;
    EXPECT_EQ(packet.size(), sizes[answered[tag - 1] - 1]) << "call " << tag;
  }
  for (std::size_t odd_size : {0, 95, 127, 256}) {
    std::vector<_ori_point> packet = Packet(odd_size, 9);
    drag->Process(packet);
    EXPECT_TRUE(test::SameBytes(packet, Packet(odd_size, 9)));
    EXPECT_EQ(drag->OlderPacket()[0].timestamp, 7u);
    EXPECT_EQ(drag->delayed_packet[0].timestamp, 7u);
  }
}

// A neighbour 1 m away under 4 degrees removes, at 5 grades 2, at 8 grades 1; at 11 degrees, or
// 2 m away or more, nothing. A cosine exactly at a band edge gives no verdict for that band.
TEST(DragPointTest, GradesByAngleBandAndStrictEdges) {
  auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_ZEPHEL_B1);
  const _ori_point on_y = MakePointXYZ(0.0, 10.0, 0.0);
  const std::tuple<double, double, uint32_t> cases[] = {{3, 1, 3},  {5, 1, 2},   {8, 1, 1},
                                                        {11, 1, 0}, {3, 2.5, 0}, {0, 2.0, 0}};
  for (const auto& [degrees, step, verdict] : cases) {
    EXPECT_EQ(Verdict(*drag, Beside(on_y, degrees * kPi / 180.0, step), on_y), verdict)
        << degrees << " deg " << step << " m";
  }
  // A step of (0.75, 1, 0) from the ray of (0, 2, 0) has a cosine of exactly 0.8.
  drag->cos_filtered = 0.9;
  drag->cos_level_2 = 0.8;
  EXPECT_EQ(Verdict(*drag, MakePointXYZ(0.75, 3.0, 0.0), MakePointXYZ(0.0, 2.0, 0.0)), 0u);
  drag->cos_filtered = 0.8;
  EXPECT_EQ(Verdict(*drag, MakePointXYZ(0.75, 3.0, 0.0), MakePointXYZ(0.0, 2.0, 0.0)), 0u);
}

// The verdict of one neighbour, computed the plain way: square roots and division every time.
uint32_t PlainVerdict(const DragPoint& drag, const _ori_point& p, const _ori_point& n) {
  const double dx = p.x - n.x, dy = p.y - n.y, dz = p.z - n.z;
  const double dist = std::sqrt(dx * dx + dy * dy + dz * dz);
  const double ray = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
  const double c = std::fabs(dx * n.x + dy * n.y + dz * n.z) / (ray * dist);
  if (c > drag.cos_filtered && dist < drag.dist_threshold_filtered)
    return 3;
  if (drag.cos_filtered > c && c > drag.cos_level_2 && dist < drag.dist_threshold_level_2)
    return 2;
  if (drag.cos_level_2 > c && c > drag.cos_level_1 && dist < drag.dist_threshold_level_1)
    return 1;
  return 0;
}

// Neighbours are settled early from squared lengths where no verdict is possible; that must never
// change a verdict, least of all next to the band edges and at extreme scales.
TEST(DragPointTest, VerdictsMatchThePlainComputationEverywhere) {
  auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_ZEPHEL_B1);
  std::mt19937_64 random(12);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double band_edges[] = {4.0, 7.0, 10.0};
  int decided = 0;
  for (int i = 0; i < 6000; ++i) {
    if (i == 4000) {  // thresholds far from the defaults, one of them meaningless
      drag->dist_threshold_level_1 = std::nan("");
      drag->dist_threshold_level_2 = 1e-3;
      drag->cos_level_1 = 0.002;
    }
    // A step from the neighbour at an angle near a band edge (or anywhere), of a length near a
    // distance threshold (or anywhere), at ranges from millimetres to astronomical.
    const double edge = band_edges[i % 3] * kPi / 180.0;
    const double angle =
        (i % 4 == 0) ? unit(random) * kPi : edge * (1.0 + (unit(random) - 0.5) * 1e-6);
    const double step = (i % 5 == 0) ? std::pow(10.0, unit(random) * 8 - 4)
                                     : 2.0 * (1.0 + (unit(random) - 0.5) * 1e-6);
    const double range =
        std::pow(10.0, unit(random) * (i % 7 == 0 ? 400 : 8) - (i % 7 == 0 ? 200 : 4));
    _ori_point neighbour = MakePointXYZ(0.3 * range, range, -0.1 * range);
    const _ori_point point = Beside(neighbour, angle, step);
    // Every eleventh neighbour has no return: it sits at the origin, signed zeros included.
    if (i % 11 == 0) {
      neighbour = MakePointXYZ(0.0, -0.0, 0.0);
    }
    const uint32_t expected = PlainVerdict(*drag, point, neighbour);
    ASSERT_EQ(Verdict(*drag, point, neighbour), expected)
        << "case " << i << " angle " << angle << " step " << step << " range " << range;
    decided += expected != 0;
  }
  EXPECT_GT(decided, 1000);  // the cases do reach every band
}

TEST(DragPointTest, NeighboursFollowTheBlockLayoutAndThisPassRemovals) {
  for (bool single_block : {false, true}) {
    auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_ZEPHEL_T);
    drag->IsSupported(single_block ? kZephelT : kZephelB1);
    std::vector<_ori_point> older = Packet(96, 1), middle = Packet(96, 2), latest = Packet(96, 3);
    older[5] = MakePointXYZ(0.0, 10.0, 0.0);
    middle[5] = MakePointXYZ(0.0, 10.5, 0.0);
    latest[6] = MakePointXYZ(0.0, 30.0, 0.0);  // block 0 of the next packet feeds block 1
    middle[54] = MakePointXYZ(0.0, 30.5, 0.0);
    middle[1] = MakePointXYZ(0.0, 20.0, 0.0);   // removed against point 2,
    middle[2] = MakePointXYZ(0.0, 20.5, 0.0);   // which then has no third neighbour
    middle[47] = MakePointXYZ(0.0, 40.5, 0.0);  // a block end, or next to point 48 in one block
    middle[48] = MakePointXYZ(0.0, 40.0, 0.0);
    drag->Process(older);
    drag->Process(middle);
    drag->Process(latest);
    EXPECT_EQ(latest[5].y == 0.0, single_block);
    EXPECT_EQ(latest[54].y == 0.0, !single_block);
    EXPECT_EQ(latest[1].y, 0.0);
    EXPECT_EQ(latest[2].y, 20.5);
    EXPECT_EQ(latest[47].y == 0.0, single_block);
  }
}

}  // namespace
}  // namespace velmar
