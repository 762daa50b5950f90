// The crosstalk and high-reflectivity filters (ids 8, 14, 17, 29, 30) on hand-built sweeps: a
// strong return with its leaks, walls of normal echo and signs beside it, the edges of every
// window and threshold, packets that cut smears and columns apart, and malformed input.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "filters/ColumnLayout.h"
#include "filters/StrongReturnFilter.h"
#include "framework/AlgoCommon.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

constexpr double kRange = 20.0;

// A sweep of empty beams (every field but channel and angle zero), addressed by column and by
// the channel's place in elevation.
struct Sweep {
  Sweep(LidarType type, uint32_t columns) : layout(*ColumnLayout::Of(type)) {
    for (uint32_t c = 0; c < columns; ++c) {
      for (uint32_t i = 0; i < layout.columnPoints; ++i) {
        _ori_point p = test::MakePoint(0.0);
        p.channel = layout.firstChannel + i;
        p.hor_angle = 60.0 + c * layout.columnStepDeg;
        points.push_back(p);
      }
    }
  }
  _ori_point& At(uint32_t column, int32_t rank) {
    return points[column * layout.columnPoints + layout.indexOfRank[rank]];
  }
  // A return at `column`, `rank`.
  Sweep& Put(uint32_t column, int32_t rank, double distance, double pulse, double intensity,
             double z = 0.0) {
    _ori_point& p = At(column, rank);
    p.distance = distance;
    p.pulse_width = pulse;
    p.intensity = intensity;
    p.z = z;
    return *this;
  }
  Sweep& Sign(uint32_t column, int32_t rank) { return Put(column, rank, kRange, 48.0, 255.0); }
  Sweep& Leak(uint32_t column, int32_t rank, double offset = 0.2) {
    return Put(column, rank, kRange + offset, 5.0, 10.0);
  }
  bool Kept(uint32_t column, int32_t rank) { return At(column, rank).distance > 0.0; }

  const ColumnLayout& layout;
  std::vector<_ori_point> points;
};

// Every packet of `sweep` through a fresh filter, put back together from what comes back (the
// first calls' own packets, handed back again later, are skipped; empty packets push out the
// rest).
std::vector<_ori_point> InPackets(int id, LidarType type, const std::vector<_ori_point>& frame,
                                  std::size_t packet, const std::string& params = "{}") {
  auto filter = test::MakeAlgoAs<StrongReturnFilter>(id, type, params);
  const std::size_t delay = filter->DelayPackets();
  std::vector<_ori_point> out;
  for (std::size_t begin = 0, call = 0; begin < frame.size() + delay * packet;
       begin += packet, ++call) {
    std::vector<_ori_point> unit(packet, test::MakePoint(0.0));
    if (begin < frame.size()) {
      unit.assign(frame.begin() + begin, frame.begin() + begin + packet);
    }
    filter->Process(unit);
    if (call >= delay) {
      out.insert(out.end(), unit.begin(), unit.end());
    }
  }
  out.resize(frame.size());
  return out;
}

std::vector<_ori_point> AsFrame(int id, LidarType type, std::vector<_ori_point> frame,
                                const std::string& params = "{}") {
  test::MakeAlgo(id, type, params)->Process(frame);
  return frame;
}

TEST(StrongReturnFilters, ServeTheirModelsWithBoundedParameters) {
  const std::vector<std::pair<int, std::vector<std::string>>> models = {
      {8, {"ZephelB1", "ZephelB2/B3/MP", "ZephelB2-64", "QuillA4", "ZephelT"}},
      {14, {"ZephelB1", "ZephelB2/B3/MP", "ZephelB2-64", "QuillA4"}},
      {17, {"ZephelB1", "ZephelB2/B3/MP", "ZephelB2-64", "QuillA4", "ZephelT"}},
      {29, {"Marlo128", "Marlo128H", "Marlo128F"}},
      {30, {"Orvik48", "Orvik48Depth"}}};
  for (const auto& [id, names] : models) {
    auto filter = test::MakeAlgo(id, LIDAR_ORVIK16);
    int supported = 0;
    for (int type = 0; type <= static_cast<int>(LIDAR_KR360); ++type) {
      supported += filter->IsSupported(LidarTypeToStr(type));
    }
    EXPECT_EQ(supported, static_cast<int>(names.size())) << id;
    for (const std::string& name : names) {
      EXPECT_TRUE(filter->IsSupported(name)) << id << " " << name;
    }
  }
  std::string out;
  auto crosstalk = test::MakeAlgoAs<StrongReturnFilter>(
      8, LIDAR_QUILL_A4,
      R"({"strongPulseWidth": -1, "echoRatio": 1.5, "intensityRatio": 0.5, "rangeTolerance": 11,
          "channelReach": 17, "crosstalkNoDeleteHeigh": 1e9, "columnReach": 99})",
      &out);
  EXPECT_EQ(out,
            "[algo]:CrosstalkFilter strongPulseWidth is not in the correct range!\n"
            "[algo]:CrosstalkFilter echoRatio is not in the correct range!\n"
            "[algo]:CrosstalkFilter rangeTolerance is not in the correct range!\n"
            "[algo]:CrosstalkFilter channelReach is not in the correct range!\n"
            "[algo]:CrosstalkFilter crosstalkNoDeleteHeigh is not in the correct range!\n");
  EXPECT_EQ(crosstalk->strongPulseWidth, 28.0);
  EXPECT_EQ(crosstalk->echoRatio, 0.3);
  EXPECT_EQ(crosstalk->intensityRatio, 0.5);
  EXPECT_EQ(crosstalk->channelReach, 5);
  auto halo = test::MakeAlgoAs<StrongReturnFilter>(29, LIDAR_MARLO128,
                                                   R"({"columnReach": 4.9, "channelReach": "2"})");
  EXPECT_EQ(halo->columnReach, 4);
  EXPECT_EQ(halo->channelReach, 3);
  test::MakeAlgo(17, LIDAR_ZEPHEL_T, R"({"columnReach": -0.5})", &out);
  EXPECT_EQ(out, "[algo]:CrosstalkFilter2 columnReach is not in the correct range!\n");
  // How late packets come back follows the window and how many columns a packet carries.
  const std::pair<int, LidarType> delays[] = {{8, LIDAR_ZEPHEL_T},  {14, LIDAR_QUILL_A4},
                                              {17, LIDAR_QUILL_A4}, {17, LIDAR_ZEPHEL_T},
                                              {29, LIDAR_MARLO128}, {30, LIDAR_ORVIK48}};
  const uint32_t expected[] = {0, 0, 1, 2, 3, 2};
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(
        test::MakeAlgoAs<StrongReturnFilter>(delays[i].first, delays[i].second)->DelayPackets(),
        expected[i])
        << delays[i].first;
  }
}

TEST(CrosstalkFilter, RemovesTheSmearInItsColumnButNotWallsSignsOrOverheadLeaks) {
  Sweep s(LIDAR_ZEPHEL_B2_B3_MP, 2);
  s.Sign(0, 20).Sign(0, 21);  // the sign's own returns stay, whatever their neighbours
  for (int32_t rank : {14, 15, 19, 22, 26, 27}) {
    s.Leak(0, rank);
  }
  s.Put(0, 16, kRange, 20.0, 150.0);              // a wall of normal echo at the same range
  s.Put(0, 17, kRange + 0.5, 5.0, 10.0);          // at the edge of the range tolerance
  s.Put(0, 18, kRange - 0.51, 5.0, 10.0);         // just beyond it
  s.Put(0, 23, kRange, 48.0 * 0.3 + 1e-9, 10.0);  // echo just above its share
  s.Put(0, 24, kRange, 5.0, 255.0 * 0.2 + 1e-9);  // intensity just above its share
  s.Put(0, 25, kRange + 0.2, 5.0, 10.0, 2.5);     // above crosstalkNoDeleteHeigh
  s.Leak(1, 20);                                  // another column
  const std::vector<_ori_point> frame = s.points;
  s.points = AsFrame(8, LIDAR_ZEPHEL_B2_B3_MP, frame, R"({"crosstalkNoDeleteHeigh": 2})");
  // The sign reaches five channels up (15) and down (26): 14 and 27 are outside.
  const bool kept[] = {true, false, true, false, true, false, false, true, true, true, false, true};
  const int32_t ranks[] = {14, 15, 16, 17, 18, 19, 22, 23, 24, 25, 26, 27};
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(s.Kept(0, ranks[i]), kept[i]) << "rank " << ranks[i];
  }
  EXPECT_TRUE(s.Kept(0, 20) && s.Kept(0, 21) && s.Kept(1, 20));
  // Nothing but the range of a removed leak changes.
  _ori_point leak = frame[15];
  leak.distance = 0.0;
  EXPECT_TRUE(test::SameBytes({s.points[15]}, {leak}));
}

TEST(HighrefFilter, RemovesDimGhostsTwoChannelsAwayOnly) {
  Sweep s(LIDAR_QUILL_A4, 2);
  s.Sign(0, 30);
  s.Put(0, 28, kRange + 0.9, 30.0, 12.0);  // a ghost: near range, dim, any pulse below the sign's
  s.Put(0, 32, kRange - 1.0, 20.0, 20.4);  // the edges: 1 m, 8 % of the intensity
  s.Put(0, 29, kRange, 20.0, 12.0);        // one channel away
  s.Put(0, 27, kRange, 20.0, 12.0);        // three channels away
  s.Put(1, 28, kRange + 0.9, 30.0, 25.0);  // a second sign's dark-grey neighbour stays
  s.Sign(1, 30);
  s.points = AsFrame(14, LIDAR_QUILL_A4, s.points);
  EXPECT_FALSE(s.Kept(0, 28) || s.Kept(0, 32));
  EXPECT_TRUE(s.Kept(0, 29) && s.Kept(0, 27) && s.Kept(1, 28));
}

TEST(CrosstalkFilter2, HandsBackPacketsLateAndJudgesSmearsAcrossTheirBoundaries) {
  // Six columns of 64 in packets of two columns: the sign in column 2 opens packet 2, so its
  // smear runs back into packet 1 and forward within packet 2.
  Sweep s(LIDAR_ZEPHEL_B2_B3_MP, 6);
  s.Sign(2, 10).Leak(0, 10).Leak(1, 10).Leak(3, 10).Leak(4, 10, 0.3).Leak(5, 10).Leak(3, 11);
  s.Sign(2, 40).Put(1, 40, kRange, 20.0, 150.0).Put(3, 40, kRange, 20.0, 150.0);  // a wall
  s.points.back().mark = 1;
  const std::vector<_ori_point> judged = InPackets(17, LIDAR_ZEPHEL_B2_B3_MP, s.points, 128);
  EXPECT_TRUE(test::SameBytes(judged, AsFrame(17, LIDAR_ZEPHEL_B2_B3_MP, s.points)));
  s.points = judged;
  const bool kept[] = {false, false, true, false, false, true};  // column 2 is the sign
  for (uint32_t c = 0; c < 6; ++c) {
    EXPECT_EQ(s.Kept(c, 10), kept[c] || c == 2) << "column " << c;
  }
  EXPECT_TRUE(s.Kept(3, 11) && s.Kept(1, 40) && s.Kept(3, 40));
  EXPECT_EQ(s.points.back().mark, 1);  // the mark leaves with its packet

  // The first call answers with its own packet, unchanged; each later one with the packet given
  // before; a clear forgets what is held.
  auto filter = test::MakeAlgo(17, LIDAR_ZEPHEL_B2_B3_MP);
  const uint64_t answered[] = {1, 1, 2, 4, 4, 5};  // cleared before the fourth call
  for (uint64_t tag = 1; tag <= 6; ++tag) {
    if (tag == 4) {
      filter->ClearCache();
    }
    std::vector<_ori_point> packet(128, test::MakePoint(1.0));
    packet.reserve(tag == 5 ? 4096 : 128);  // a host's vector never loses capacity
    const std::size_t capacity = packet.capacity();
    packet[0].timestamp = tag;
    filter->Process(packet);
    EXPECT_EQ(packet[0].timestamp, answered[tag - 1]) << "call " << tag;
    EXPECT_EQ(packet.size(), 128u);
    EXPECT_GE(packet.capacity(), capacity);
  }
}

TEST(HighrefFilter128, RemovesTheHaloOfASignAcrossInterleavedBanks) {
  Sweep s(LIDAR_MARLO128, 9);
  s.Sign(4, 40).Sign(4, 41);
  s.Leak(1, 40).Leak(7, 41).Leak(4, 37).Leak(4, 44).Leak(2, 43);      // 3 columns, 3 channels away
  s.Leak(0, 40).Leak(8, 41).Leak(4, 36).Leak(4, 45);                  // one step further
  s.Put(3, 42, kRange, 20.0, 150.0).Put(5, 39, kRange, 20.0, 150.0);  // a wall of normal echo
  s.points = InPackets(29, LIDAR_MARLO128, s.points, 128);
  EXPECT_FALSE(s.Kept(1, 40) || s.Kept(7, 41) || s.Kept(4, 37) || s.Kept(4, 44) || s.Kept(2, 43));
  EXPECT_TRUE(s.Kept(0, 40) && s.Kept(8, 41) && s.Kept(4, 36) && s.Kept(4, 45));
  EXPECT_TRUE(s.Kept(4, 40) && s.Kept(4, 41) && s.Kept(3, 42) && s.Kept(5, 39));
}

TEST(HighrefFilterOVP48, PacketsThatCutColumnsGiveTheWholeFrameResult) {
  // 48-channel columns in packets of 128 points: columns 2 and 5 straddle packet boundaries.
  Sweep s(LIDAR_ORVIK48, 8);
  s.Sign(2, 30).Sign(5, 2);
  for (uint32_t c = 0; c < 8; ++c) {
    for (int32_t rank : {0, 1, 3, 29, 31}) {
      s.Leak(c, rank);
    }
  }
  s.Put(1, 30, kRange, 20.0, 150.0).Put(4, 2, kRange, 20.0, 150.0);  // a wall of normal echo
  const std::vector<_ori_point> whole = AsFrame(30, LIDAR_ORVIK48, s.points);
  EXPECT_TRUE(test::SameBytes(InPackets(30, LIDAR_ORVIK48, s.points, 128), whole));
  s.points = whole;
  EXPECT_FALSE(s.Kept(0, 29) || s.Kept(5, 31) || s.Kept(2, 3) || s.Kept(7, 1));
  EXPECT_TRUE(s.Kept(2, 0) && s.Kept(6, 29) && s.Kept(5, 0) && s.Kept(1, 0));
  EXPECT_TRUE(s.Kept(1, 30) && s.Kept(4, 2) && s.Kept(2, 30) && s.Kept(5, 2));
}

// Channels outside the table, NaN angles, infinite ranges and frames of any size: nothing is read
// outside the frame (the sanitizer build checks) and a frame judged in place changes only the
// ranges it zeroes.
TEST(StrongReturnFilters, MalformedFramesNeverReachOutsideThemselves) {
  for (int id : {8, 14, 17, 29, 30}) {
    for (LidarType type : {LIDAR_QUILL_A4, LIDAR_ZEPHEL_T, LIDAR_MARLO128F, LIDAR_ORVIK48_DEPTH}) {
      auto filter = test::MakeAlgo(id, type, R"({"channelReach": 16, "columnReach": 4})");
      for (std::size_t size : {0, 1, 95, 96, 97, 128, 192, 1000}) {
        std::vector<_ori_point> frame(size, test::MakePoint(kRange));
        for (std::size_t i = 0; i < size; ++i) {
          frame[i].pulse_width = i % 3 == 0 ? 50.0 : 1.0;
          frame[i].intensity = i % 3 == 0 ? 255.0 : 1.0;
          frame[i].channel = i + 1 == size ? 0xFFFFFFFFu : static_cast<uint32_t>(i * 7919 % 200);
          frame[i].hor_angle = i % 7 == 0 ? std::nan("") : static_cast<double>(i % 5) * 0.167;
          frame[i].distance = i % 11 == 0 ? std::numeric_limits<double>::infinity() : kRange;
        }
        const std::vector<_ori_point> given = frame;
        filter->Process(frame);
        if (IsPacketSize(size)) {
          continue;  // a packet may be handed back late
        }
        for (std::size_t i = 0; i < size; ++i) {
          _ori_point restored = frame[i];
          restored.distance = given[i].distance;
          EXPECT_TRUE(test::SameBytes({restored}, {given[i]})) << id << " point " << i;
        }
      }
    }
  }
}

// After the drag filter (12) the stream repeats a packet at the start: judged twice, it keeps
// every real return and loses every leak.
TEST(StrongReturnFilters, FollowTheDragFiltersRepeatedPacket) {
  Sweep s(LIDAR_ZEPHEL_B2_B3_MP, 8);
  s.Sign(2, 10).Leak(1, 10).Leak(3, 10).Sign(4, 40).Leak(4, 38).Leak(4, 42).Leak(5, 40);
  for (uint32_t c = 0; c < 8; ++c) {
    s.Put(c, 60, 8.0, 20.0, 100.0);  // ground in every column
  }
  const std::string config = test::WriteTempFile(R"({"version": "2.0.6", "algo_list": [
      {"id": 12, "enabled": true, "name": "drag", "desc": "", "lidar_type": [], "param": {}},
      {"id": 14, "enabled": true, "name": "ghost", "desc": "", "lidar_type": [], "param": {}},
      {"id": 17, "enabled": true, "name": "xt2", "desc": "", "lidar_type": [], "param": {}}]})");
  std::unique_ptr<ILidarAlgo> pipeline;
  test::CaptureOutput([&] { pipeline = ILidarAlgo::Create(LIDAR_ZEPHEL_B2_B3_MP, config); });
  std::vector<std::vector<_ori_point>> last(4);
  for (std::size_t call = 0; call < 7; ++call) {
    std::vector<_ori_point> packet(128, test::MakePoint(0.0));
    if (call < 4) {
      packet.assign(s.points.begin() + call * 128, s.points.begin() + (call + 1) * 128);
    }
    pipeline->Process(packet);
    if (packet[0].hor_angle >= 60.0) {  // not one of the empty packets pushed in at the end
      last[static_cast<std::size_t>((packet[0].hor_angle - 60.0) / 0.334 + 0.5)] = packet;
    }
  }
  for (std::size_t p = 0; p < 4; ++p) {
    std::copy(last[p].begin(), last[p].end(), s.points.begin() + p * 128);
  }
  EXPECT_FALSE(s.Kept(1, 10) || s.Kept(3, 10) || s.Kept(4, 38) || s.Kept(4, 42) || s.Kept(5, 40));
  for (uint32_t c = 0; c < 8; ++c) {
    EXPECT_TRUE(s.Kept(c, 60)) << c;
  }
  EXPECT_TRUE(s.Kept(2, 10) && s.Kept(4, 40));
}

TEST(StrongReturnFilters, DebugLabelsStrongReturnsAndRemovedLeaks) {
  Sweep s(LIDAR_ZEPHEL_T, 1);
  s.Sign(0, 50).Leak(0, 51).Put(0, 52, kRange, 20.0, 150.0);
  s.points = AsFrame(8, LIDAR_ZEPHEL_T, s.points, R"({"debug_using_echo": 4})");
  EXPECT_EQ(s.At(0, 50).label, 5);
  EXPECT_EQ(s.At(0, 51).label, 4);
  EXPECT_EQ(s.At(0, 52).label, 0);
}

}  // namespace
}  // namespace velmar
