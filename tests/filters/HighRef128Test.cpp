#include "filters/HighRef128.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeFrame;
using test::SameBytes;
using Frame = std::vector<_ori_point>;

void Set(Frame& frame, std::size_t index, double distance, double pulse = 0.0) {
  frame[index].distance = distance;
  frame[index].pulse_width = pulse;
}

// A strong return at `strong` and, 67 m behind it, its ghost at `partner`.
void AddGhost(Frame& frame, std::size_t strong, std::size_t partner) {
  Set(frame, strong, 10.0, 41.0);
  Set(frame, partner, 77.0);
}

TEST(HighRef128Test, PartnersThresholdsAndToleranceInOnePass) {
  auto algo = test::MakeAlgoAs<HighRef128>(24, LIDAR_MARLO128);
  Frame frame = MakeFrame(96, 10.0);
  AddGhost(frame, 1, 17);   // +16
  AddGhost(frame, 24, 12);  // -12
  AddGhost(frame, 0, 16);   // position 0 has no partner
  AddGhost(frame, 7, 23);
  Set(frame, 7, 10.0, 40.0);  // not above the threshold
  AddGhost(frame, 2, 18);
  Set(frame, 18, 75.0);  // the tolerance is exclusive on both sides
  AddGhost(frame, 5, 21);
  Set(frame, 21, 79.0 - 1e-9);  // the gap narrows to 69.0f
  AddGhost(frame, 6, 22);
  Set(frame, 22, 75.00001);
  AddGhost(frame, 32 + 4, 32 + 20);  // removes 52, which then looks 67 m nearer than 40
  Set(frame, 32 + 20, 77.0, 41.0);
  Set(frame, 32 + 8, 67.0);
  Frame expected = frame;
  for (std::size_t removed : {17, 12, 22, 52, 40}) {
    expected[removed].distance = 0.0;
  }
  algo->Process(frame);
  EXPECT_TRUE(SameBytes(frame, expected));

  algo = test::MakeAlgoAs<HighRef128>(
      24, LIDAR_MARLO128, R"({"highreferror_128_pulse": 30.9, "highreferror_128_distance": 0.5})");
  frame = MakeFrame(128, 10.0);
  Set(frame, 97, 10.0, 30.5);  // strong only because 30.9 is truncated
  Set(frame, 113, 10.5);
  algo->Process(frame);
  EXPECT_EQ(frame[113].distance, 0.0);
}

TEST(HighRef128Test, GroupCountIsCarriedToFramesOfOtherSizes) {
  auto algo = test::MakeAlgoAs<HighRef128>(24, LIDAR_MARLO128);
  Frame frame = MakeFrame(1000, 10.0);
  AddGhost(frame, 1, 17);
  algo->Process(frame);  // no packet of a known size yet
  EXPECT_EQ(frame[17].distance, 77.0);

  Frame packet = MakeFrame(128, 10.0);
  algo->Process(packet);
  algo->ClearCache();
  AddGhost(frame, 96 + 1, 96 + 17);
  AddGhost(frame, 128 + 1, 128 + 17);
  algo->Process(frame);
  EXPECT_EQ(frame[96 + 17].distance, 0.0);
  EXPECT_EQ(frame[128 + 17].distance, 77.0);

  for (std::size_t size : {0u, 1u, 31u, 127u}) {  // too short for four groups
    frame = MakeFrame(size, 77.0);
    if (size > 1) {
      Set(frame, 1, 10.0, 41.0);
    }
    const Frame before = frame;
    algo->Process(frame);
    EXPECT_TRUE(SameBytes(frame, before)) << size;
  }
}

}  // namespace
}  // namespace velmar
