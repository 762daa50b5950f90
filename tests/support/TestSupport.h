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

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_TEST_SUPPORT_H
