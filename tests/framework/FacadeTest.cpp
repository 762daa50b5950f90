// What a host sees of the library: model names and version strings, and a pipeline that serves
// callers of several threads one at a time.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "framework/LidarAlgo.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::CaptureOutput;
using test::MakeFrame;

TEST(FacadeTest, ModelNamesVersionAndDebugStrings) {
  EXPECT_EQ(LidarTypeToStr(0), "Orvik16");
  EXPECT_EQ(LidarTypeToStr(7), "QuillA3");
  EXPECT_EQ(LidarTypeToStr(15), "ZephelB2/B3/MP");
  EXPECT_EQ(LidarTypeToStr(17), "Marlo128");
  EXPECT_EQ(LidarTypeToStr(LIDAR_KR360), "KR360");
  for (int outside : {22, -1, 1 << 30}) {
    EXPECT_EQ(LidarTypeToStr(outside), "") << outside;
  }
  EXPECT_EQ(ILidarAlgo::VersionNumber(), "2.0.6");
  EXPECT_EQ(ILidarAlgo::DebugString(), "");
}

// Records how many calls of Process overlap, to show that the pipeline serialises its callers.
class OverlapProbe : public AlgoBase {
 public:
  OverlapProbe() : AlgoBase("probe", "", LIDAR_MARLO128) {}
  uint32_t Id() const override { return 1; }
  void Process(std::vector<_ori_point>& frame) override {
    const int now = ++inside;
    int seen = most.load();
    while (now > seen && !most.compare_exchange_weak(seen, now)) {
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    frame.front().label += 1;
    --inside;
  }
  bool IsSupported(const std::string&) override { return true; }
  void ParseParams() override {}
  void ClearCache() override { ++clears; }

  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::atomic<int> clears{0};
};

class ProbedPipeline : public LidarAlgo {
 public:
  explicit ProbedPipeline(std::shared_ptr<AlgoBase> probe) : LidarAlgo(LIDAR_MARLO128, "") {
    algos.push_back(std::move(probe));
  }
};

TEST(FacadeTest, ConcurrentCallersAreServedOneAtATime) {
  auto probe = std::make_shared<OverlapProbe>();
  std::unique_ptr<ProbedPipeline> pipeline;
  CaptureOutput([&] { pipeline = std::make_unique<ProbedPipeline>(probe); });
  constexpr int kCalls = 50;
  auto worker = [&] {
    std::vector<_ori_point> frame = MakeFrame(1);
    for (int i = 0; i < kCalls; ++i)
      pipeline->Process(frame);
    pipeline->ClearCache();
    EXPECT_EQ(frame.front().label, kCalls);
  };
  std::thread a(worker);
  std::thread b(worker);
  a.join();
  b.join();
  EXPECT_EQ(probe->most.load(), 1);
  EXPECT_EQ(probe->clears.load(), 2);
}

}  // namespace
}  // namespace velmar
