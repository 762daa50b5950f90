#include "filters/RainfogFilter.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::Ret;

TEST(RainfogFilterTest, BandsThresholdsAndPresets) {
  const LidarType q = LIDAR_QUILL_A4;
  test::ExpectRemovals({
      // Strength 1.8 lies between the near (1.56) and far (2.66) thresholds: the band decides.
      {13, q, "{}", Ret(4.0).Pulse(3.0), false},
      {13, q, "{}", Ret(4.0001).Pulse(3.0), true},
      {13, q, "{}", Ret(4.0).Pulse(2.6), false},  // strength exactly 1.56
      {13, q, "{}", Ret(4.0).Pulse(2.5), true},
      {13, q, "{}", Ret(15.0).Pulse(1.0), false},
      {13, q, "{}", Ret(14.999).Pulse(1.0), true},
      {13, q, R"({"small_blind_reflecttion": 9})", Ret(1.0).Pulse(6.0), false},
      {13, q, R"({"small_blind_reflecttion": 9})", Ret(1.0).Pulse(5.99), true},
      {13, q, R"({"small_blind_reflecttion": 9, "max_pulse_distance": 5})", Ret(1.0).Pulse(5.0),
       false},
      {13, q, R"({"big_reflection": 9})", Ret(10.0).Pulse(2.0),
       false},  // only the doubled "t" is read
      {13, q, R"({"big_reflecttion": 9})", Ret(10.0).Pulse(2.0), true},
      // A far point of pulse width 12 is under the far limit of mode 4 (15), not of mode 3 (10).
      {13, q, R"({"rainfog_filter_range": 3})", Ret(3.0).Pulse(12.0), false},
      {13, q, R"({"rainfog_filter_range": 3})", Ret(3.0).Pulse(10.0), false},  // limit exclusive
      {13, q, R"({"rainfog_filter_range": 4})", Ret(3.0).Pulse(12.0), true},
      {13, q, R"({"rainfog_filter_range": 4.9})", Ret(3.0).Pulse(12.0), true},
      {13, q, R"({"rainfog_filter_range": 5})", Ret(2.5).Pulse(9.0), true},
      {13, q, R"({"rainfog_filter_range": 5})", Ret(2.5).Pulse(10.0), false},
      // Strength 3.3: the preset's 3.0 wins over the configured 100 in mode 2 only.
      {13, q, R"({"rainfog_filter_range": 2, "big_reflecttion": 100})", Ret(10.0).Pulse(2.2),
       false},
      {13, q, R"({"rainfog_filter_range": 6, "big_reflecttion": 100})", Ret(10.0).Pulse(2.2), true},
  });
}

TEST(RainfogFilterTest, PresetValuesStayAndTheModeIsTruncated) {
  auto filter = test::MakeAlgoAs<RainfogFilter>(
      13, LIDAR_QUILL_A4,
      R"({"rainfog_filter_range": 2.9, "big_reflecttion": 100, "max_pulse_distance": 50})");
  EXPECT_EQ(filter->rainfog_filter_range, 2);
  EXPECT_EQ(filter->big_reflection, 100.0);
  std::vector<_ori_point> empty;
  filter->Process(empty);
  EXPECT_EQ(filter->big_reflection, 3.0);
  EXPECT_EQ(filter->valid_distance_range, 30.0);
  EXPECT_EQ(filter->max_pulse_distance, 50.0);
}

}  // namespace
}  // namespace velmar
