// Helpers shared by the tool tests: temporary folders and simulated frames.
#ifndef VELMAR_TESTS_TOOLS_TOOLS_TEST_SUPPORT_H
#define VELMAR_TESTS_TOOLS_TOOLS_TEST_SUPPORT_H

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "sim/Simulator.h"

namespace velmar {
namespace test {

// A fresh folder under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& Path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline bool SameFrameBytes(const std::vector<_ori_point>& a, const std::vector<_ori_point>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(_ori_point)) == 0);
}

sim::SimulationSettings Settings(const std::string& model, const std::string& scene = "city",
                                 uint64_t seed = 1);
std::vector<_ori_point> Generate(const sim::SimulationSettings& settings, uint32_t index = 0);

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_TOOLS_TOOLS_TEST_SUPPORT_H
