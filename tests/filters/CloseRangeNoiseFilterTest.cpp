#include <gtest/gtest.h>

#include <functional>

#include "support/TestSupport.h"

namespace velmar {
namespace {

using Frame = std::vector<_ori_point>;
using Indices = std::vector<std::size_t>;

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
    std::function<void(Frame&)> change;
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
