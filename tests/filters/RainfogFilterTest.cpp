#include "filters/RainfogFilter.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

TEST(RainfogFilter, BandsThresholdsAndPresets) {
  struct Case {
    const char* params;
    double distance;
    double pulse_width;
    bool kept;
  };
  const Case cases[] = {
      // Strength 1.8 lies between the near (1.56) and far (2.66) thresholds: the band decides.
      {"{}", 4.0, 3.0, true},
      {"{}", 4.0001, 3.0, false},
      {"{}", 4.0, 2.6, true},  // strength exactly 1.56
      {"{}", 4.0, 2.5, false},
      {"{}", 15.0, 1.0, true},
      {"{}", 14.999, 1.0, false},
      {R"({"small_blind_reflecttion": 9})", 1.0, 6.0, true},
      {R"({"small_blind_reflecttion": 9})", 1.0, 5.99, false},
      {R"({"small_blind_reflecttion": 9, "max_pulse_distance": 5})", 1.0, 5.0, true},
      {R"({"big_reflection": 9})", 10.0, 2.0, true},  // only the doubled "t" is read
      {R"({"big_reflecttion": 9})", 10.0, 2.0, false},
      // A far point of pulse width 12 is under the far limit of mode 4 (15), not of mode 3 (10).
      {R"({"rainfog_filter_range": 3})", 3.0, 12.0, true},
      {R"({"rainfog_filter_range": 4})", 3.0, 12.0, false},
      {R"({"rainfog_filter_range": 4.9})", 3.0, 12.0, false},
      {R"({"rainfog_filter_range": 5})", 2.5, 9.0, false},
      {R"({"rainfog_filter_range": 5})", 2.5, 10.0, true},
      // Strength 3.3: the preset's 3.0 wins over the configured 100 in mode 2 only.
      {R"({"rainfog_filter_range": 2, "big_reflecttion": 100})", 10.0, 2.2, true},
      {R"({"rainfog_filter_range": 6, "big_reflecttion": 100})", 10.0, 2.2, false},
  };
  for (const Case& c : cases) {
    auto filter = test::MakeAlgoAs<RainfogFilter>(13, LIDAR_QUILL_A4, c.params);
    std::vector<_ori_point> frame{test::MakePoint(c.distance)};
    frame[0].pulse_width = c.pulse_width;
    frame[0].x = 1.5;
    filter->Process(frame);
    EXPECT_EQ(frame[0].distance != 0.0, c.kept) << c.params << " " << c.distance;
    EXPECT_EQ(frame[0].x, 1.5);
  }
}

TEST(RainfogFilter, PresetValuesStayAndTheModeIsTruncated) {
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

TEST(RainfogFilter, SupportedModels) {
  auto filter = test::MakeAlgoAs<RainfogFilter>(13, LIDAR_QUILL_A4);
  for (const char* model : {"QuillA2", "ZephelB1", "QuillA4", "Orvik48", "ZephelB2/B3/MP"}) {
    EXPECT_TRUE(filter->IsSupported(model)) << model;
  }
  EXPECT_FALSE(filter->IsSupported("Orvik48Depth"));
  EXPECT_FALSE(filter->IsSupported("quilla4"));
}

}  // namespace
}  // namespace velmar
