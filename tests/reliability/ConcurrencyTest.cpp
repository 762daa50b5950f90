// Several host threads on one pipeline and on pipelines of their own: frames, clears and
// reconfigurations interleave in any order. `make test-tsan` runs these under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "sim/Simulator.h"
#include "support/TestSupport.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

constexpr int kRounds = 4;
constexpr std::size_t kPacketPoints = 128;

std::string ReadConfig(const char* file) {
  std::ifstream in(std::string(VELMAR_CONFIG_DIR) + "/" + file);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<_ori_point> SimulatedFrame() {
  sim::SimulationSettings settings;
  settings.model = "ZephelB2/B3/MP";
  settings.frames = 1;
  sim::Simulator simulator(settings);
  std::vector<_ori_point> frame;
  simulator.NextFrame(frame);
  return frame;
}

// Feeds a frame packet by packet; the packets keep their size whatever the configuration.
void FeedPackets(ILidarAlgo& pipeline, const std::vector<_ori_point>& frame, std::size_t stride) {
  for (std::size_t start = 0; start + kPacketPoints <= frame.size(); start += stride) {
    std::vector<_ori_point> packet(
        frame.begin() + static_cast<std::ptrdiff_t>(start),
        frame.begin() + static_cast<std::ptrdiff_t>(start + kPacketPoints));
    pipeline.Process(packet);
    EXPECT_EQ(packet.size(), kPacketPoints);
  }
}

TEST(Concurrency, HostThreadsShareOnePipelineAndRunTheirOwn) {
  const std::vector<_ori_point> frame = SimulatedFrame();
  const std::string configs[] = {ReadConfig("zephelb2.json"), ReadConfig("demo.json"),
                                 R"({"version": "2.0.6", "enabled": false})"};
  std::unique_ptr<ILidarAlgo> shared;
  std::vector<std::unique_ptr<ILidarAlgo>> own(2);
  test::CaptureOutput([&] {
    shared = ILidarAlgo::Create(LIDAR_ZEPHEL_B2_B3_MP, "");
    for (auto& pipeline : own) {
      pipeline = ILidarAlgo::Create(LIDAR_ZEPHEL_B2_B3_MP, "");
    }
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
      threads.emplace_back([&, t] {
        for (int round = 0; round < kRounds; ++round) {
          FeedPackets(*shared, frame, 37 * kPacketPoints + t * kPacketPoints);
        }
      });
    }
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        shared->ClearCache();
        std::this_thread::yield();
      }
    });
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        accepted += shared->UpdateAlgoParam(configs[round % 3]) ? 1 : 0;
      }
    });
    for (std::size_t p = 0; p < own.size(); ++p) {
      threads.emplace_back([&, p] {
        for (int round = 0; round < kRounds; ++round) {
          own[p]->UpdateAlgoParam(configs[(round + p) % 2]);
          FeedPackets(*own[p], frame, 53 * kPacketPoints);
          own[p]->ClearCache();
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(accepted.load(), kRounds);
  });
}

}  // namespace
}  // namespace velmar
