#include "filters/HighRef128.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::MakeFrame;
using test::SameBytes;

void Set(std::vector<_ori_point>& frame, std::size_t index, double distance, double pulse = 0) {
  frame[index].distance = distance;
  frame[index].pulse_width = pulse;
}

// A strong return at `strong` and a ghost 67 m behind it at `partner`.
void AddGhost(std::vector<_ori_point>& frame, std::size_t strong, std::size_t partner) {
  Set(frame, strong, 10.0, 41.0);
  Set(frame, partner, 77.0);
}

TEST(HighRef128Test, PartnersThresholdsAndToleranceInOnePass) {
  auto algo = MakeAlgoAs<HighRef128>(24, LIDAR_MARLO128);
  std::vector<_ori_point> frame = MakeFrame(96, 10.0);
  AddGhost(frame, 1, 17);  // +16: removed
  AddGhost(frame, 2, 18);  // tolerance is exclusive on both sides
  Set(frame, 18, 75.0);
  AddGhost(frame, 3, 19);
  Set(frame, 19, 79.0);
  AddGhost(frame, 5, 21);  // 68.999999999 narrows to 69.0f: kept
  Set(frame, 21, 10.0 + 69.0 - 1e-9);
  AddGhost(frame, 6, 22);  // 65.00001 is just inside
  Set(frame, 22, 75.00001);
  AddGhost(frame, 7, 23);  // pulse 40 is not above the threshold
  Set(frame, 7, 10.0, 40.0);
  AddGhost(frame, 0, 16);            // position 0 has no partner
  AddGhost(frame, 24, 12);           // -12: removed
  AddGhost(frame, 32 + 4, 32 + 20);  // removes 52, which then looks 67 m nearer than 40
  Set(frame, 32 + 20, 77.0, 41.0);
  Set(frame, 32 + 8, 67.0);
  std::vector<_ori_point> expected = frame;
  for (std::size_t removed : {17, 22, 12, 52, 40}) {
    expected[removed].distance = 0.0;
  }
  algo->Process(frame);
  EXPECT_TRUE(SameBytes(frame, expected));
  for (std::size_t i = 0; i < frame.size(); ++i) {
    EXPECT_EQ(frame[i].distance, expected[i].distance) << "index " << i;
  }
}

TEST(HighRef128Test, ParametersAreTruncatedAndNarrowed) {
  auto algo = MakeAlgoAs<HighRef128>(
      24, LIDAR_MARLO128, R"({"highreferror_128_pulse": 30.9, "highreferror_128_distance": 0.1})");
  EXPECT_EQ(algo->pulse_threshold, 30);
  EXPECT_EQ(algo->ghost_distance, 0.1f);
  std::vector<_ori_point> frame = MakeFrame(128, 10.0);
  Set(frame, 1, 10.0, 30.5);  // strong only because 30.9 was truncated
  algo->Process(frame);
  EXPECT_EQ(frame[17].distance, 0.0);
}

TEST(HighRef128Test, GroupCountIsCarriedToFramesOfOtherSizes) {
  auto algo = MakeAlgoAs<HighRef128>(24, LIDAR_MARLO128);
  std::vector<_ori_point> frame = MakeFrame(1000, 10.0);
  AddGhost(frame, 1, 17);
  std::vector<_ori_point> before = frame;
  algo->Process(frame);  // no packet of a known size yet
  EXPECT_TRUE(SameBytes(frame, before));

  std::vector<_ori_point> packet = MakeFrame(128, 10.0);
  algo->Process(packet);
  algo->ClearCache();
  EXPECT_EQ(algo->group_count, 4u);
  frame = MakeFrame(1000, 10.0);
  AddGhost(frame, 96 + 1, 96 + 17);
  AddGhost(frame, 128 + 1, 128 + 17);
  algo->Process(frame);
  EXPECT_EQ(frame[96 + 17].distance, 0.0);
  EXPECT_EQ(frame[128 + 17].distance, 77.0);

  for (std::size_t size : {0u, 1u, 31u, 33u, 97u, 127u}) {
    frame = MakeFrame(size, 10.0);
    if (size > 17) {
      AddGhost(frame, 1, 17);
    }
    before = frame;
    algo->Process(frame);
    EXPECT_TRUE(SameBytes(frame, before)) << size;
  }
  packet = MakeFrame(96, 10.0);
  algo->Process(packet);
  frame = MakeFrame(100, 10.0);
  AddGhost(frame, 64 + 1, 64 + 17);
  algo->Process(frame);
  EXPECT_EQ(frame[64 + 17].distance, 0.0);
}

}  // namespace
}  // namespace velmar
