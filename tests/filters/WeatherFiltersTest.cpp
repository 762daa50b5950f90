// The per-point and per-column weather filters: rain and fog, close-range noise; which models
// take which weather filter; and frames of awkward sizes, changing from call to call and full of
// odd values, through each of them: nothing may be read outside a frame (the sanitizer build
// checks that), and a filter may only remove points, never alter anything else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <random>

#include "filters/RainfogFilter.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;
using Indices = std::vector<std::size_t>;
using test::Ret;

struct FilterCase {
  int id;
  LidarType type;
  const char* params;
  bool removes;  // whether these frames give the filter anything to remove
};

void PrintTo(const FilterCase& c, std::ostream* os) {
  *os << "id " << c.id << " " << c.params;
}

Frame OddFrame(std::mt19937& random, std::size_t size) {
  const double odd_ranges[] = {std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity(), -1.0, 1e300};
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Frame frame(size, test::MakePoint());
  for (_ori_point& p : frame) {
    const uint32_t pick = random();
    p.distance = pick % 16 < 4 ? odd_ranges[pick % 4] : 12.0 * unit(random);
    p.x = unit(random);
    p.intensity = 150.0 * unit(random);
    p.pulse_width = 30.0 * unit(random);
    p.hor_angle = 60.0 * unit(random);
    p.channel = pick % 8 == 7 ? 0xFFFFFFF0u : random() % 70;
    p.mirror = random() % 3;
    p.echo = random() % 3;
    p.timestamp = random();
  }
  return frame;
}

// Counts the points of `before` whose range `after` has zeroed (with the position, for the
// filter that clears both) and expects every other byte unchanged.
std::size_t Removals(const Frame& before, const Frame& after, bool with_position) {
  EXPECT_EQ(before.size(), after.size());
  Frame expected = before;
  std::size_t removed = 0;
  for (std::size_t k = 0; k < expected.size() && k < after.size(); ++k) {
    if (after[k].distance == 0.0 && std::memcmp(&before[k].distance, &after[k].distance, 8)) {
      ++removed;
      expected[k].distance = 0.0;
      if (with_position) {
        expected[k].x = expected[k].y = expected[k].z = 0.0;
      }
    }
  }
  EXPECT_TRUE(test::SameBytes(expected, after));
  return removed;
}

class WeatherFiltersFramesTest : public ::testing::TestWithParam<FilterCase> {};

TEST_P(WeatherFiltersFramesTest, OddSizesOnlyLoseRanges) {
  const FilterCase& c = GetParam();
  auto filter = test::MakeAlgo(c.id, c.type, c.params);
  std::mt19937 random(12345);
  std::size_t removed = 0;
  for (int round = 0; round < 3; ++round) {
    std::vector<Frame> inputs;
    for (std::size_t size : {0, 1, 63, 64, 65, 127, 128, 129, 191, 255, 256, 257}) {
      for (int repeat = 0; repeat < 2; ++repeat) {
        inputs.push_back(OddFrame(random, size));
        Frame frame = inputs.back();
        filter->Process(frame);
        // The sunlight history hands back frame 5 from call 6 to 10, then the frame of 5 calls ago.
        const std::size_t call = inputs.size();
        const std::size_t source =
            c.id != 2 || call <= 5 ? call : std::max<std::size_t>(5, call - 5);
        removed += Removals(inputs[source - 1], frame, c.id == 3);
      }
    }
    filter->ClearCache();
  }
  EXPECT_EQ(removed > 0, c.removes) << removed;
}

INSTANTIATE_TEST_SUITE_P(
    AllFilters, WeatherFiltersFramesTest,
    ::testing::Values(
        FilterCase{2, LIDAR_MARLO256,
                   R"({"validDistance": 100, "filterWindowV": 3, "filterWindowH": 5})", true},
        FilterCase{3, LIDAR_MARLO256, "{}", true},
        FilterCase{3, LIDAR_MARLO256_SMALL_BLIND, "{}", true},
        FilterCase{13, LIDAR_QUILL_A4, R"({"rainfog_filter_range": 5})", true},
        FilterCase{15, LIDAR_ZEPHEL_B1, "{}", true}, FilterCase{20, LIDAR_QUILL_A4, "{}", true},
        FilterCase{20, LIDAR_QUILL_A4, R"({"filter_channel_range": -200})", false},
        FilterCase{20, LIDAR_QUILL_A4, R"({"filter_channel_range": 200})", false}));

// Which models accept which weather filter, through the assembly of one configuration.
TEST(WeatherPipelineTest, EachModelGetsItsFilters) {
  using test::EntryJson;
  const std::string config = test::ConfigJson(
      EntryJson(20, "close") + "," + EntryJson(15, "sun3") + "," +
      EntryJson(13, "rain", R"({"rainfog_filter_range": 1})") + "," + EntryJson(3, "sun2") + "," +
      EntryJson(2, "sun", R"({"validDistance": 10, "filterWindowV": 3, "filterWindowH": 5})"));
  const auto added = [&](LidarType type) {
    std::string output;
    test::CreatePipeline(type, config, &output);
    return output;
  };
  const std::string close_and_rain = "[algo]: close is added!\n[algo]: rain is added!\n";
  EXPECT_EQ(added(LIDAR_ZEPHEL_B1), "[algo]: sun3 is added!\n[algo]: rain is added!\n");
  EXPECT_EQ(added(LIDAR_MARLO256), "[algo]: sun2 is added!\n[algo]: sun is added!\n");
  EXPECT_EQ(added(LIDAR_MARLO128H), "[algo]: sun is added!\n");
  EXPECT_EQ(added(LIDAR_QUILL_A4), close_and_rain);
  EXPECT_EQ(added(LIDAR_ZEPHEL_B2_B3_MP), close_and_rain);
  EXPECT_EQ(added(LIDAR_QUILL_A2), "[algo]: rain is added!\n");
  EXPECT_EQ(added(LIDAR_ORVIK48), "[algo]: rain is added!\n");
  EXPECT_EQ(added(LIDAR_ORVIK48_DEPTH), "");  // a name that only begins like a supported one
}

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

// Two columns of 64 points in channel order, all at 20 m past the start angle, with the points of
// `ranges` moved nearer or farther and any other `change`; the indices the filter deletes.
Indices Deleted(const char* params, const std::vector<std::pair<std::size_t, double>>& ranges,
                const std::function<void(Frame&)>& change) {
  Frame frame = test::MakeFrame(128, 20.0);
  for (std::size_t k = 0; k < frame.size(); ++k) {
    frame[k].channel = static_cast<uint32_t>(k % 64);
    frame[k].hor_angle = 30.0;
  }
  for (const auto& [index, distance] : ranges) {
    frame[index].distance = distance;
  }
  if (change) {
    change(frame);
  }
  test::MakeAlgo(20, LIDAR_QUILL_A4, params)->Process(frame);
  Indices deleted;
  for (std::size_t k = 0; k < frame.size(); ++k) {
    if (frame[k].distance == 0.0) {
      deleted.push_back(k);
    }
  }
  return deleted;
}

TEST(CloseRangeNoiseFilterTest, MarkersDeleteFarEdgePointsOfTheirColumn) {
  const Indices low{0, 1, 2, 3, 4, 5};
  const Indices high{58, 59, 60, 61, 62, 63};
  const Indices both_low{0, 1, 2, 3, 4, 5, 64, 65, 66, 67, 68, 69};
  // After the first high marker of a column acts (42: 4.8 m behind is too little) its walk stops:
  // the later markers 50 and 55 are not reached, while column 1 is still examined.
  std::vector<std::pair<std::size_t, double>> stop{{42, 1.0}, {50, 0.5}, {114, 0.5}, {55, 1.0}};
  for (std::size_t k : high) {
    stop.insert(stop.end(), {{k, 5.8}, {64 + k, 5.8}});
  }
  struct Case {
    const char* what;
    const char* params;
    std::vector<std::pair<std::size_t, double>> ranges;
    Indices deleted;
    std::function<void(Frame&)> change = nullptr;
  };
  const Case cases[] = {
      {"both columns", "{}", {{7, 1.0}, {71, 1.0}}, both_low},
      {"start angle 0", "{}", {{7, 1.0}, {71, 1.0}}, {}, [](Frame& f) { f[0].hor_angle = 29.9; }},
      {"start angle 64", "{}", {{7, 1.0}, {71, 1.0}}, {}, [](Frame& f) { f[64].hor_angle = 29.9; }},
      {"127 points", "{}", {{7, 1.0}, {71, 1.0}}, {}, [](Frame& f) { f.pop_back(); }},
      {"marker at 2", "{}", {{10, 2.0}}, low},
      {"marker at 0.3", "{}", {{10, 0.3}}, low},
      {"marker beyond 2", "{}", {{10, 2.0001}}, {}},
      {"marker under 0.3", "{}", {{10, 0.2999}}, {}},
      {"exactly 5 m behind", "{}", {{10, 1.0}, {0, 6.0}, {1, 6.0001}}, {1, 2, 3, 4, 5}},
      // 6 lies in the guarded range, 24..41 mid-column, 58 = 64 - range is not below it.
      {"channel 6", "{}", {{6, 1.0}}, {}},
      {"channel 7", "{}", {{7, 1.0}}, low},
      {"channel 23", "{}", {{23, 1.0}}, low},
      {"channel 24", "{}", {{24, 1.0}}, {}},
      {"channel 41", "{}", {{41, 1.0}}, {}},
      {"channel 42", "{}", {{42, 1.0}}, high},
      {"channel 57", "{}", {{57, 1.0}}, high},
      {"channel 58", "{}", {{58, 1.0}}, {}},
      // A fractional range: channel 3 is above 2.5 but not at least 3.5; 61 starts the edge.
      {"channel 3 of 2.5", R"({"filter_channel_range": 2.5})", {{3, 1.0}}, {}},
      {"range 2.5",
       R"({"filter_channel_range": 2.5})",
       {{4, 1.0}, {124, 1.0}},
       {0, 1, 2, 125, 126, 127}},
      {"walk stops",
       "{}",
       stop,
       {122, 123, 124, 125, 126, 127},
       [](Frame& f) { f[55].channel = 10; }},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Deleted(c.params, c.ranges, c.change), c.deleted) << c.what;
  }
}

}  // namespace
}  // namespace velmar
