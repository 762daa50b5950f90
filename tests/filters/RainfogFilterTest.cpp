#include "filters/RainfogFilter.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::MakeAlgoAs;
using test::MakePoint;

_ori_point Return(double distance, double pulse_width) {
  _ori_point p = MakePoint(distance);
  p.pulse_width = pulse_width;
  return p;
}

// Runs the filter over one point and reports whether it survived.
bool Keeps(RainfogFilter& filter, double distance, double pulse_width) {
  std::vector<_ori_point> frame{Return(distance, pulse_width)};
  filter.Process(frame);
  return frame[0].distance != 0.0;
}

std::shared_ptr<RainfogFilter> MakeFilter(const std::string& params = "{}") {
  return MakeAlgoAs<RainfogFilter>(13, LIDAR_QUILL_A4, params);
}

TEST(RainfogFilter, ReadsTheDoubledTKeysAndTruncatesTheMode) {
  auto filter = MakeFilter(
      R"({"big_reflection": 7, "big_reflecttion": 1.5, "small_blind_reflecttion": 0.5,
          "valid_distance_range": 20, "small_blind_distance": 3, "max_pulse_distance": 50,
          "rainfog_filter_range": -2.9})");
  EXPECT_EQ(filter->big_reflection, 1.5);
  EXPECT_EQ(filter->small_blind_reflection, 0.5);
  EXPECT_EQ(filter->valid_distance_range, 20.0);
  EXPECT_EQ(filter->small_blind_distance, 3.0);
  EXPECT_EQ(filter->max_pulse_distance, 50.0);
  EXPECT_EQ(filter->rainfog_filter_range, -2);

  EXPECT_EQ(MakeFilter(R"({"rainfog_filter_range": 2.9})")->rainfog_filter_range, 2);
  auto defaults = MakeFilter();
  EXPECT_EQ(defaults->big_reflection, 2.66);
  EXPECT_EQ(defaults->rainfog_filter_range, -1);
}

TEST(RainfogFilter, BandEdges) {
  auto filter = MakeFilter();
  // Strength 1.8 lies between the near (1.56) and far (2.66) thresholds, so the band decides.
  EXPECT_TRUE(Keeps(*filter, 4.0, 3.0));      // exactly at the blind distance: near band
  EXPECT_FALSE(Keeps(*filter, 4.0001, 3.0));  // just beyond: far band
  // The far band ends before the valid range.
  EXPECT_FALSE(Keeps(*filter, 14.999, 1.0));
  EXPECT_TRUE(Keeps(*filter, 15.0, 1.0));
  // Strength exactly at a threshold is kept: 1.56 = 2.6 * 0.15 * 4.
  EXPECT_TRUE(Keeps(*filter, 4.0, 2.6));
  EXPECT_FALSE(Keeps(*filter, 4.0, 2.5));
}

TEST(RainfogFilter, PulseLimits) {
  auto filter = MakeFilter(R"({"max_pulse_distance": 5, "small_blind_reflecttion": 100})");
  EXPECT_TRUE(Keeps(*filter, 1.0, 5.0));  // the near limit 6 alone would remove it
  EXPECT_FALSE(Keeps(*filter, 1.0, 4.99));

  auto wide = MakeFilter(R"({"small_blind_reflecttion": 100, "big_reflecttion": 100})");
  EXPECT_TRUE(Keeps(*wide, 1.0, 6.0));
  EXPECT_FALSE(Keeps(*wide, 1.0, 5.99));
  EXPECT_TRUE(Keeps(*wide, 10.0, 10.0));
  EXPECT_FALSE(Keeps(*wide, 10.0, 9.99));
}

TEST(RainfogFilter, PresetsOverrideConfiguredValuesAndPersist) {
  auto filter = MakeFilter(R"({"rainfog_filter_range": 2, "big_reflecttion": 100,
                               "valid_distance_range": 5, "max_pulse_distance": 50})");
  // Strength 3.3 would go under the configured 100 but not under the preset's 3.0.
  EXPECT_TRUE(Keeps(*filter, 10.0, 2.2));
  EXPECT_FALSE(Keeps(*filter, 10.0, 1.9));
  EXPECT_EQ(filter->big_reflection, 3.0);
  EXPECT_EQ(filter->small_blind_reflection, 2.98);
  EXPECT_EQ(filter->valid_distance_range, 30.0);
  EXPECT_EQ(filter->small_blind_distance, 2.5);
  EXPECT_EQ(filter->max_pulse_distance, 50.0);  // no preset touches it
}

TEST(RainfogFilter, PresetFarPulseLimits) {
  // Strength 5.4 at 3 m is under 8.9; only the far pulse limit differs between modes 3 and 4.
  EXPECT_TRUE(Keeps(*MakeFilter(R"({"rainfog_filter_range": 3})"), 3.0, 12.0));
  EXPECT_FALSE(Keeps(*MakeFilter(R"({"rainfog_filter_range": 4})"), 3.0, 12.0));
  auto heavy = MakeFilter(R"({"rainfog_filter_range": 5})");
  EXPECT_FALSE(Keeps(*heavy, 3.0, 20.0));  // 9.0 under 10.0, pulse under 25
  EXPECT_FALSE(Keeps(*heavy, 2.5, 9.0));   // near band: 3.375 under 5.0, pulse under 10
  EXPECT_TRUE(Keeps(*heavy, 2.5, 10.0));
}

TEST(RainfogFilter, ModesOutsideThePresetsKeepTheConfiguration) {
  auto filter = MakeFilter(R"({"rainfog_filter_range": 6, "big_reflecttion": 100})");
  EXPECT_FALSE(Keeps(*filter, 10.0, 2.2));
  EXPECT_TRUE(Keeps(*filter, 10.0, 10.0));  // far pulse limit stays 10
  EXPECT_EQ(filter->big_reflection, 100.0);
  EXPECT_EQ(filter->valid_distance_range, 15.0);
}

TEST(RainfogFilter, ZeroesOnlyTheRange) {
  auto filter = MakeFilter();
  _ori_point p = Return(1.0, 1.0);
  p.x = 1.5;
  p.intensity = 7.0;
  p.timestamp = 99;
  std::vector<_ori_point> frame{p, MakePoint(0.0)};
  frame[1].pulse_width = 1.0;
  filter->Process(frame);
  EXPECT_EQ(frame[0].distance, 0.0);
  EXPECT_EQ(frame[0].x, 1.5);
  EXPECT_EQ(frame[0].intensity, 7.0);
  EXPECT_EQ(frame[0].timestamp, 99u);
  EXPECT_EQ(frame[1].distance, 0.0);
}

TEST(RainfogFilter, SupportedModels) {
  auto filter = MakeFilter();
  for (const char* model : {"QuillA2", "ZephelB1", "QuillA4", "Orvik48", "ZephelB2/B3/MP"}) {
    EXPECT_TRUE(filter->IsSupported(model)) << model;
  }
  for (const char* model : {"QuillA1", "Orvik48Depth", "ZephelB2-64", "Marlo128", "quilla4", ""}) {
    EXPECT_FALSE(filter->IsSupported(model)) << model;
  }
}

}  // namespace
}  // namespace velmar
