#include <gtest/gtest.h>

#include <cmath>

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

// With the one-packet delay, the third call answers with the second packet, filtered.
std::vector<_ori_point> FilterBetweenZeroPackets(DragPoint& drag, std::vector<_ori_point> middle) {
  std::vector<_ori_point> packet = Packet(middle.size(), 0);
  drag.Process(packet);
  drag.Process(middle);
  packet = Packet(middle.size(), 0);
  drag.Process(packet);
  return packet;
}

TEST(DragPoint, AnswersWithTheDelayedPacketAndKeepsItOverAClear) {
  auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_ZEPHEL_B1);
  const uint64_t answered[] = {1, 2, 2, 3, 5, 4, 6};  // cleared before the fifth call
  for (uint64_t tag = 1; tag <= 7; ++tag) {
    if (tag == 5) {
      drag->ClearCache();
    }
    std::vector<_ori_point> packet = Packet(96, tag);
    drag->Process(packet);
    EXPECT_EQ(packet[0].timestamp, answered[tag - 1]) << "call " << tag;
  }
  for (std::size_t odd_size : {0, 95, 127, 256}) {
    std::vector<_ori_point> packet = Packet(odd_size, 9);
    drag->Process(packet);
    EXPECT_TRUE(test::SameBytes(packet, Packet(odd_size, 9)));
    EXPECT_EQ(drag->older_packet[0].timestamp, 7u);
    EXPECT_EQ(drag->delayed_packet[0].timestamp, 7u);
  }
}

TEST(DragPoint, GradesByAngleBandAndStrictEdges) {
  auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_ZEPHEL_B1);
  struct Case {
    double degrees, step;
    bool removed;
    uint32_t level;
  };
  for (const Case& c : {Case{3, 1, true, 0}, Case{5, 1, false, 2}, Case{8, 1, false, 1},
                        Case{11, 1, false, 0}, Case{3, 2.5, false, 0}, Case{0, 2.0, false, 0}}) {
    const double radians = c.degrees * 3.14159265358979323846 / 180.0;
    std::vector<_ori_point> packet = Packet(96, 2);
    // Point 0 is judged against its fourth neighbour only: point 1 on the y axis.
    packet[0] = MakePointXYZ(c.step * std::sin(radians), 10.0 + c.step * std::cos(radians), 0.0);
    packet[1] = MakePointXYZ(0.0, 10.0, 0.0);
    const _ori_point out = FilterBetweenZeroPackets(*drag, packet)[0];
    EXPECT_EQ(out.y == 0.0, c.removed) << c.degrees << " deg " << c.step << " m";
    EXPECT_EQ(out.drag_level, c.level) << c.degrees << " deg " << c.step << " m";
  }
  // A step of (0.75, 1, 0) from the ray of (0, 2, 0) has a cosine of exactly 0.8.
  std::vector<_ori_point> packet = Packet(96, 2);
  packet[0] = MakePointXYZ(0.75, 3.0, 0.0);
  packet[1] = MakePointXYZ(0.0, 2.0, 0.0);
  drag->cos_filtered = 0.9;
  drag->cos_level_2 = 0.8;
  EXPECT_EQ(FilterBetweenZeroPackets(*drag, packet)[0].drag_level, 0u);
  drag->cos_filtered = 0.8;
  EXPECT_EQ(FilterBetweenZeroPackets(*drag, packet)[0].y, 3.0);
}

TEST(DragPoint, NeighboursFollowTheBlockLayoutAndThisPassRemovals) {
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

TEST(DragPoint, PacketsOfChangingSizeStayInBounds) {
  auto drag = test::MakeAlgoAs<DragPoint>(12, LIDAR_KR360);
  const std::size_t sizes[] = {96, 192, 128, 96, 192, 96};
  const std::size_t answered[] = {96, 192, 192, 128, 96, 192};
  for (std::size_t i = 0; i < 6; ++i) {
    std::vector<_ori_point> packet = test::MakeFrame(sizes[i]);
    drag->Process(packet);
    EXPECT_EQ(packet.size(), answered[i]);
  }
}

}  // namespace
}  // namespace velmar
