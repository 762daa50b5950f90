// Public interface of libalgo: the point record shared with the host, the sensor model list and
// the pipeline facade. This is the only header a host program includes.
#ifndef VELMAR_LIDAR_ALGO_H
#define VELMAR_LIDAR_ALGO_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define VELMAR_API __attribute__((visibility("default")))
#else
#define VELMAR_API
#endif

namespace velmar {

// One lidar return. The host and the library share this record byte for byte, so its layout is
// fixed: the offsets are pinned below and must never change.
struct _ori_point {
  double x;             // metres
  double y;             // metres, the forward axis
  double z;             // metres
  double intensity;     // reflectance of the return
  double distance;      // range in metres; 0 marks a removed point
  uint32_t channel;     // laser channel (row)
  uint32_t reserved_a;  // carried untouched
  double hor_angle;     // horizontal angle, degrees
  double pulse_width;   // echo pulse width
  int32_t label;        // class label / diagnostic value
  uint32_t mirror;      // mirror face, 0..2
  uint32_t echo;        // echo index, 0 or 1
  uint32_t drag_level;  // 2 or 1 when the drag filter grades the point
  uint8_t reserved_b[32];
  double motion_flag;  // 1.0 when the moving point filter flags the return
  uint8_t reserved_c[8];
  uint8_t mark;      // non-zero on the point that closes a frame
  uint8_t aux_flag;  // second flag byte
  uint8_t reserved_d[6];
  int32_t aux_index;
  uint32_t aux_value;
  uint64_t timestamp;  // host-defined; copied with the point
};

static_assert(sizeof(_ori_point) == 152, "_ori_point is a binary interface");
static_assert(offsetof(_ori_point, x) == 0, "layout");
static_assert(offsetof(_ori_point, y) == 8, "layout");
static_assert(offsetof(_ori_point, z) == 16, "layout");
static_assert(offsetof(_ori_point, intensity) == 24, "layout");
static_assert(offsetof(_ori_point, distance) == 32, "layout");
static_assert(offsetof(_ori_point, channel) == 40, "layout");
static_assert(offsetof(_ori_point, reserved_a) == 44, "layout");
static_assert(offsetof(_ori_point, hor_angle) == 48, "layout");
static_assert(offsetof(_ori_point, pulse_width) == 56, "layout");
static_assert(offsetof(_ori_point, label) == 64, "layout");
static_assert(offsetof(_ori_point, mirror) == 68, "layout");
static_assert(offsetof(_ori_point, echo) == 72, "layout");
static_assert(offsetof(_ori_point, drag_level) == 76, "layout");
static_assert(offsetof(_ori_point, reserved_b) == 80, "layout");
static_assert(offsetof(_ori_point, motion_flag) == 112, "layout");
static_assert(offsetof(_ori_point, reserved_c) == 120, "layout");
static_assert(offsetof(_ori_point, mark) == 128, "layout");
static_assert(offsetof(_ori_point, aux_flag) == 129, "layout");
static_assert(offsetof(_ori_point, reserved_d) == 130, "layout");
static_assert(offsetof(_ori_point, aux_index) == 136, "layout");
static_assert(offsetof(_ori_point, aux_value) == 140, "layout");
static_assert(offsetof(_ori_point, timestamp) == 144, "layout");

// Sensor models. The numbering is part of the host interface.
enum LidarType : uint32_t {
  LIDAR_ORVIK16 = 0,
  LIDAR_ORVIK32 = 1,
  LIDAR_MARLO192 = 2,
  LIDAR_BRISEL = 3,
  LIDAR_QUILL_A1 = 4,
  LIDAR_QUILL_A2 = 5,
  LIDAR_MARLO_MINI = 6,
  LIDAR_QUILL_A3 = 7,
  LIDAR_QUILL_A4 = 8,
  LIDAR_ORVIK48 = 9,
  LIDAR_ORVIK48_DEPTH = 10,
  LIDAR_MARLO256 = 11,
  LIDAR_MARLO256_DEPTH = 12,
  LIDAR_ZEPHEL_B1 = 13,
  LIDAR_MARLO256_SMALL_BLIND = 14,
  LIDAR_ZEPHEL_B2_B3_MP = 15,
  LIDAR_MARLO128H = 16,
  LIDAR_MARLO128 = 17,
  LIDAR_MARLO128F = 18,
  LIDAR_ZEPHEL_B2_64 = 19,
  LIDAR_ZEPHEL_T = 20,
  LIDAR_KR360 = 21,
};

// Text name of a model ("Marlo128", ...); empty for a value outside the table.
VELMAR_API std::string LidarTypeToStr(int type);

// A pipeline of algorithms for one sensor model, assembled from a JSON configuration.
//
// Bad input never makes a call throw or crash: a malformed, oversized or out-of-range
// configuration is reported on standard output and by UpdateAlgoParam's result, and frames of any
// size and content are processed. Only two exceptions ever leave the library, and neither is
// caused by input: std::bad_alloc when the machine's memory is exhausted, and std::system_error
// when the pipeline's mutex cannot be locked. Even then the pipeline stays usable, as each
// operation states.
//
// A configuration is refused when it has more than 256 enabled "algo_list" entries, or when its
// algorithms and those of the running configuration together would need more than 1 GiB (both
// exist while the new one is built); docs/reliability.md describes the estimate.
class VELMAR_API ILidarAlgo {
 public:
  // Never fails on a bad configuration: it then yields a pipeline that leaves frames unchanged,
  // after printing why on standard output. Throws only as described above.
  static std::unique_ptr<ILidarAlgo> Create(LidarType type, const std::string& configPath);

  // Runs every configured algorithm over the frame, in place, in ascending order of id. Should
  // std::bad_alloc or std::system_error propagate, the frame holds the changes made so far, every
  // record in it is still a point the host handed in (possibly corrected or removed), and the
  // pipeline processes the next frame normally.
  virtual void Process(std::vector<_ori_point>& frame) = 0;
  // Replaces the whole configuration from JSON text of the file's format. False, with the
  // running algorithms kept, for text that does not parse, a version other than this library's
  // or a configuration over the limits above. The new algorithms are built beside the running
  // ones and swapped in whole: should std::bad_alloc or std::system_error propagate, the running
  // configuration is untouched.
  virtual bool UpdateAlgoParam(const std::string& json) = 0;
  // Forgets every algorithm's state carried between frames.
  virtual void ClearCache() = 0;
  virtual ~ILidarAlgo() = default;

  static std::string VersionNumber();
  static std::string DebugString();
};

}  // namespace velmar

#endif  // VELMAR_LIDAR_ALGO_H
