// Frames and packets from outside, structure-aware: the input's bytes pick a model, a
// configuration of any ids (unknown ones included) with parameters at odd values, then a run of
// frames whose sizes and fields take the values that break careless code (NaN, infinities, huge
// and negative ranges, channels and angles outside every table, empty and one-point frames,
// `mark` anywhere), with clears and reconfigurations in between. Nothing may crash, throw, or
// hand back a record the host never gave.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "sim/Random.h"
#include "velmar/lidar_algo.h"

namespace {

using velmar::_ori_point;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

const double kOddDoubles[] = {0.0,          -0.0,         1.0,    -1.0,  kNaN, kInf,   -kInf,
                              1e308,        -1e308,       1e-310, 0.5,   2.5,  29.999, 30.0,
                              150.0,        150.001,      180.0,  360.0, 40.0, -1e9,   1e9,
                              2147483648.0, 4294967296.0, 67.0,   1e-3};
const uint32_t kOddCounts[] = {
    0,   1,   2,   3,   47,  48,  63,  64,   65,   95,   96,          97,          127,        128,
    129, 191, 192, 193, 255, 256, 257, 1023, 1024, 1025, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};
const std::size_t kFrameSizes[] = {0,   1,   2,   3,   63,  64,  65,  95,  96,  97,
                                   127, 128, 129, 191, 192, 193, 256, 384, 512, 1000};
// Parameter values as JSON text: numbers at the edges, and the wrong type.
const char* const kParamValues[] = {
    "0",           "-1",     "1",        "0.5",     "2.5",     "3",     "6",      "10",
    "100",         "1024",   "1025",     "1048576", "1048577", "1e308", "-1e308", "4294967296",
    "-2147483649", "5e-324", "\"text\"", "null",    "[]",      "{}",    "true"};
const char* const kKeys[] = {"CloseRange_128_mindistance",
                             "CloseRange_128_minpulse",
                             "angle_threshold_filtered",
                             "angle_threshold_level_1",
                             "angle_threshold_level_2",
                             "big_reflecttion",
                             "candidate_filter_threshold",
                             "debug_using_echo",
                             "dis_redund_thred",
                             "dis_smallblind_thred",
                             "dist_threshold_filtered",
                             "dist_threshold_level_1",
                             "dist_threshold_level_2",
                             "distanceThreshold",
                             "distance_thred",
                             "filterWindowH",
                             "filterWindowV",
                             "filter_channel_range",
                             "filter_closest_distance",
                             "filter_distance_threshold",
                             "filter_farthest_distance",
                             "filter_ground_height",
                             "filter_ground_points_flag",
                             "filter_ground_points_threshold",
                             "filter_underground_points_flag",
                             "highRefThreshold",
                             "highreferror_128_distance",
                             "highreferror_128_pulse",
                             "intensityThreshold",
                             "jointabc_node1",
                             "jointabc_node2",
                             "jointabc_one_face",
                             "jointabc_two_face",
                             "leftReflectThreshold",
                             "max_pulse_distance",
                             "minThreshold",
                             "nearpoint",
                             "noisePulseWidthThreshold",
                             "nr_grids_coarse",
                             "nr_grids_fine",
                             "nr_inliers_min_threshold",
                             "nr_points_max",
                             "nr_ransac_iter_threshold",
                             "nr_samples_max_threshold",
                             "nr_samples_min_threshold",
                             "nr_smooth_iter",
                             "nr_z_comp_candis",
                             "nr_z_comp_fail_threshold",
                             "num_thred",
                             "num_thred_neigh",
                             "planefit_dist_threshold_far",
                             "planefit_dist_threshold_near",
                             "planefit_filter_threshold",
                             "planefit_orien_threshold",
                             "presencepoint",
                             "r_thred",
                             "rainfog_filter_range",
                             "reflectionThreshold",
                             "rightReflectThreshold",
                             "roi_near_rad",
                             "roi_region_rad_x",
                             "roi_region_rad_x_min",
                             "roi_region_rad_y",
                             "roi_region_rad_y_min",
                             "roi_region_rad_z",
                             "roi_region_rad_z_min",
                             "sample_region_z_lower",
                             "sample_region_z_upper",
                             "secondTransformMoveX",
                             "secondTransformRotateZ",
                             "separate_mirror_ABC_dist",
                             "separate_mirror_ABC_dist_marlo128",
                             "separate_mirror_ABC_dist_marlo128f",
                             "small_blind_distance",
                             "small_blind_reflecttion",
                             "speed",
                             "termi_inlier_percen_threshold",
                             "thresholdMultiple",
                             "transformMoveX",
                             "transformRotateX",
                             "transformRotateY",
                             "validDistance",
                             "valid_distance_range",
                             "x_forward_flag"};

constexpr uint32_t kModels = 22;
constexpr uint32_t kIds = 37;  // 0..36: the table and one beyond each end
constexpr uint32_t kMaxEntries = 6;
constexpr uint32_t kMaxParams = 6;
constexpr uint32_t kMaxFrames = 10;

// The input, read front to back; zeros once it is used up.
class Bytes {
 public:
  Bytes(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  uint8_t Next() { return at_ < size_ ? data_[at_++] : 0; }
  uint32_t Below(uint32_t limit) { return Next() % limit; }
  uint64_t Word() {
    uint64_t word = 0;
    for (int i = 0; i < 8; ++i) {
      word = word << 8 | Next();
    }
    return word;
  }
  template <typename T, std::size_t N>
  const T& Pick(const T (&table)[N]) {
    return table[Next() % N];
  }

 private:
  const uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

std::string Configuration(Bytes& in, velmar::LidarType model) {
  std::string text = R"({"version": "2.0.6", "algo_list": [)";
  const uint32_t entries = 1 + in.Below(kMaxEntries);
  for (uint32_t e = 0; e < entries; ++e) {
    const uint8_t flags = in.Next();
    text += e == 0 ? "{" : ",{";
    text += "\"id\": " + std::to_string(in.Below(kIds)) + ", \"name\": \"a\"";
    text += (flags & 1) != 0 ? ", \"enabled\": false" : ", \"enabled\": true";
    if ((flags & 2) != 0) {
      text += ", \"lidar_type\": [\"" + velmar::LidarTypeToStr(static_cast<int>(model)) + "\"]";
    }
    text += ", \"param\": {";
    const uint32_t params = in.Below(kMaxParams + 1);
    for (uint32_t k = 0; k < params; ++k) {
      text +=
          std::string(k == 0 ? "" : ", ") + "\"" + in.Pick(kKeys) + "\": " + in.Pick(kParamValues);
    }
    text += "}}";
  }
  return text + "]}";
}

// A field that is ordinary unless `odd` says otherwise.
double Value(velmar::sim::Rng& rng, bool odd, double low, double high) {
  if (odd && rng.Next() % 4 == 0) {
    return kOddDoubles[rng.Next() % std::size(kOddDoubles)];
  }
  return low + (high - low) * static_cast<double>(rng.Next() % 1000000) / 1e6;
}

uint32_t Count(velmar::sim::Rng& rng, bool odd, uint32_t ordinary) {
  if (odd && rng.Next() % 4 == 0) {
    return kOddCounts[rng.Next() % std::size(kOddCounts)];
  }
  return static_cast<uint32_t>(rng.Next() % ordinary);
}

std::vector<_ori_point> Frame(Bytes& in, velmar::sim::Rng& rng, uint64_t& stamp) {
  const std::size_t size = in.Pick(kFrameSizes);
  const uint8_t odd = in.Next();  // which fields take odd values in this frame
  std::vector<_ori_point> frame(size);
  double angle = Value(rng, false, 0.0, 180.0);
  for (_ori_point& p : frame) {
    angle += 0.167 * static_cast<double>(rng.Next() % 3);
    p.hor_angle = (odd & 1) != 0 ? Value(rng, true, 0.0, 180.0) : angle;
    p.distance = Value(rng, (odd & 2) != 0, 0.0, 120.0);
    p.channel = Count(rng, (odd & 4) != 0, 130);
    p.mirror = Count(rng, (odd & 8) != 0, 3);
    p.echo = Count(rng, (odd & 8) != 0, 2);
    p.x = Value(rng, (odd & 16) != 0, -80.0, 80.0);
    p.y = Value(rng, (odd & 16) != 0, -80.0, 80.0);
    p.z = Value(rng, (odd & 16) != 0, -4.0, 2.0);
    p.pulse_width = Value(rng, (odd & 32) != 0, 0.0, 60.0);
    p.intensity = Value(rng, (odd & 32) != 0, 0.0, 300.0);
    p.label = static_cast<int32_t>(Count(rng, (odd & 64) != 0, 4));
    p.aux_flag = static_cast<uint8_t>(rng.Next() % 2);
    p.mark = (odd & 128) != 0 && rng.Next() % 64 == 0 ? 1 : 0;
    p.timestamp = stamp++;
  }
  if (size != 0 && in.Next() % 2 == 0) {
    frame[in.Next() % size].mark = 1;
  }
  return frame;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  velmar::fuzz::SilenceLibraryOutput();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  const auto model = static_cast<velmar::LidarType>(in.Below(kModels));
  const std::string configuration = Configuration(in, model);
  std::unique_ptr<velmar::ILidarAlgo> pipeline = velmar::ILidarAlgo::Create(model, "");
  pipeline->UpdateAlgoParam(configuration);
  velmar::sim::Rng rng(in.Word());
  uint64_t stamp = 1;
  const uint32_t frames = 1 + in.Below(kMaxFrames);
  for (uint32_t f = 0; f < frames; ++f) {
    const uint8_t action = in.Next();
    if (action % 8 == 0) {
      pipeline->ClearCache();
    } else if (action % 8 == 1) {
      pipeline->UpdateAlgoParam(configuration);
    }
    std::vector<_ori_point> frame = Frame(in, rng, stamp);
    pipeline->Process(frame);
    velmar::fuzz::CheckFromHost(frame, 1, stamp);
  }
  return 0;
}
