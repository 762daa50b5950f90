// Helpers shared by the library tests: point builders, algorithms configured from JSON text, and
// capture of the library's standard output.
#ifndef VELMAR_TESTS_TEST_SUPPORT_H
#define VELMAR_TESTS_TEST_SUPPORT_H

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/AlgoBase.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace test {

// A zeroed record with the given range; other fields are set by the caller.
_ori_point MakePoint(double distance = 0.0);
_ori_point MakePointXYZ(double x, double y, double z);
std::vector<_ori_point> MakeFrame(std::size_t count, double distance = 10.0);

// A return built field by field, e.g. Ret(5.0).Pulse(2.0).Channel(7). Its position and intensity
// are non-zero so that a cleared record shows.
struct Ret {
  explicit Ret(double distance);
  Ret& Pulse(double width) { return Set(p.pulse_width, width); }
  Ret& Channel(uint32_t channel) { return Set(p.channel, channel); }
  Ret& Angle(double degrees) { return Set(p.hor_angle, degrees); }
  Ret& Face(uint32_t mirror, uint32_t echo = 0) { return Set(p.mirror, mirror).Set(p.echo, echo); }
  Ret& Z(double z) { return Set(p.z, z); }
  operator _ori_point() const { return p; }

  template <typename T>
  Ret& Set(T& field, T value) {
    field = value;
    return *this;
  }
  _ori_point p;
};

// One return through a freshly configured algorithm, and whether it must be removed.
struct RuleCase {
  int id;
  LidarType type;
  const char* params;
  _ori_point point;
  bool removed;
};

// Runs every case alone. A removal zeroes the range only, or, with `clears_measures`, the position,
// intensity, range and pulse width; nothing else may change either way.
void ExpectRemovals(const std::vector<RuleCase>& cases, bool clears_measures = false);

// The range of every point of `frame`, in order.
std::vector<double> Ranges(const std::vector<_ori_point>& frame);

// Byte-wise equality of two frames, so that every field (reserved ones included) is compared.
bool SameBytes(const std::vector<_ori_point>& a, const std::vector<_ori_point>& b);

// Creates the algorithm of `id` through the id table, fills its parameters from the JSON object
// text `params` as the configuration reader does, and runs ParseParams. The library's output
// during that is returned in `output` when it is given.
std::shared_ptr<AlgoBase> MakeAlgo(int id, LidarType type, const std::string& params = "{}",
                                   std::string* output = nullptr);

template <typename T>
std::shared_ptr<T> MakeAlgoAs(int id, LidarType type, const std::string& params = "{}",
                              std::string* output = nullptr) {
  return std::dynamic_pointer_cast<T>(MakeAlgo(id, type, params, output));
}

// Runs `action` and returns what it wrote to standard output.
std::string CaptureOutput(const std::function<void()>& action);

// Writes `text` to a new temporary file and returns its path; removed at process exit.
std::string WriteTempFile(const std::string& text);

// A configuration of the library's own version with the given "algo_list" entries (JSON objects,
// comma-separated); `root_extra` adds root members and starts with a comma.
std::string ConfigJson(const std::string& entries, const std::string& root_extra = "");
// An enabled "algo_list" entry; `models` is the content of its "lidar_type" array.
std::string EntryJson(int id, const std::string& name, const std::string& params = "{}",
                      const std::string& models = "");
// A pipeline created from the configuration `json` through a file, as a host creates it; what the
// library printed meanwhile is returned in `output` when it is given.
std::unique_ptr<ILidarAlgo> CreatePipeline(LidarType type, const std::string& json,
                                           std::string* output = nullptr);

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_TEST_SUPPORT_H
