// The pipeline as a host sees it.
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
using test::SameBytes;

const char* const kUnderground =
    "{\"version\": \"2.0.6\", \"algo_list\": [{\"id\": 5, \"enabled\": true, \"name\": \"under\","
    " \"param\": {\"filter_ground_height\": 1.0}}]}";

std::vector<_ori_point> FrameWithDepths(std::initializer_list<double> depths) {
  std::vector<_ori_point> frame;
  for (double z : depths) {
    _ori_point p = test::MakePointXYZ(1.0, 2.0, z);
    p.distance = 5.0;
    frame.push_back(p);
  }
  return frame;
}

TEST(Facade, CreateWithoutAConfigurationPassesFramesUnchanged) {
  for (const std::string& path : {std::string(), std::string("/nonexistent.json")}) {
    std::unique_ptr<ILidarAlgo> pipeline;
    const std::string printed =
        CaptureOutput([&] { pipeline = ILidarAlgo::Create(LIDAR_MARLO128, path); });
    EXPECT_EQ(printed, path.empty() ? "[algo]: algo json file is empty!\n"
                                    : "[algo]: open json file /nonexistent.json failed!\n");
    ASSERT_NE(pipeline, nullptr);
    std::vector<_ori_point> frame = FrameWithDepths({-5.0, 0.0, 3.0});
    const std::vector<_ori_point> original = frame;
    pipeline->Process(frame);
    EXPECT_TRUE(SameBytes(frame, original));
  }
}

TEST(Facade, UpdateAlgoParam) {
  std::unique_ptr<ILidarAlgo> pipeline;
  CaptureOutput([&] { pipeline = ILidarAlgo::Create(LIDAR_MARLO128, ""); });
  bool result = true;
  EXPECT_EQ(CaptureOutput([&] { result = pipeline->UpdateAlgoParam(""); }),
            "[algo]: algo json string is empty!\n");
  EXPECT_FALSE(result);

  EXPECT_EQ(CaptureOutput([&] { result = pipeline->UpdateAlgoParam(kUnderground); }),
            "[algo]: under is added!\n");
  EXPECT_TRUE(result);
  auto removedCount = [&] {
    std::vector<_ori_point> frame = FrameWithDepths({-2.0, -0.5, -1.5});
    pipeline->Process(frame);
    int removed = 0;
    for (const _ori_point& p : frame)
      removed += p.distance == 0.0;
    return removed;
  };
  EXPECT_EQ(removedCount(), 2);

  // A refused text and a disabled table both keep the running algorithms.
  CaptureOutput([&] { result = pipeline->UpdateAlgoParam("{\"version\": \"1.0\"}"); });
  EXPECT_FALSE(result);
  EXPECT_EQ(removedCount(), 2);
  CaptureOutput(
      [&] { result = pipeline->UpdateAlgoParam("{\"version\": \"2.0.6\", \"enabled\": false}"); });
  EXPECT_TRUE(result);
  EXPECT_EQ(removedCount(), 2);

  // An accepted text replaces everything, here with nothing.
  CaptureOutput([&] { result = pipeline->UpdateAlgoParam("{\"version\": \"2.0.6\"}"); });
  EXPECT_TRUE(result);
  EXPECT_EQ(removedCount(), 0);
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

TEST(Facade, ConcurrentCallersAreServedOneAtATime) {
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
