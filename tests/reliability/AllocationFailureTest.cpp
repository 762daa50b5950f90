// Memory exhaustion at every allocation of Create, UpdateAlgoParam and Process, for every default
// configuration, on a simulated drive fed packet by packet. Only std::bad_alloc may leave the
// library; after it the running pipeline is intact (an update) or the packet holds only points
// the host gave, and the pipeline goes on with the next packet (processing).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "FailingAllocator.h"
#include "framework/LidarAlgo.h"
#include "sim/Simulator.h"
#include "support/TestSupport.h"
#include "velmar/lidar_algo.h"

namespace velmar {
namespace {

using alloctest::FailureScope;
using Packet = std::vector<_ori_point>;

struct DefaultConfig {
  const char* file;
  LidarType model;
  const char* drive;  // the simulated model whose drive feeds it
};

// demo.json is for a ZephelB1, which the simulator does not model; a ZephelB2 drive feeds it.
// imported.json runs on any model.
const DefaultConfig kDefaultConfigs[] = {
    {"marlo128.json", LIDAR_MARLO128, "Marlo128"},
    {"zephelt.json", LIDAR_ZEPHEL_T, "ZephelT"},
    {"zephelb2.json", LIDAR_ZEPHEL_B2_B3_MP, "ZephelB2/B3/MP"},
    {"quilla4.json", LIDAR_QUILL_A4, "QuillA4"},
    {"orvik48.json", LIDAR_ORVIK48, "Orvik48"},
    {"demo.json", LIDAR_ZEPHEL_B1, "ZephelB2/B3/MP"},
    {"imported.json", LIDAR_KR360, "Orvik16"},  // any model: the smallest drive
};

// Of every frame, one packet in this many is fed, and always those past the end of a face's sweep
// and the one that closes the frame: the stream still crosses faces, revolutions, frame ends and
// ground fits, at a fraction of the cost per sweep step.
constexpr std::size_t kPacketStride = 24;
constexpr uint32_t kFrames = 2;
constexpr double kSweepEndAngle = 150.0;
constexpr std::size_t kPacketRoom = 4096;

std::string ConfigPath(const char* file) {
  return std::string(VELMAR_CONFIG_DIR) + "/" + file;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every record carries a unique timestamp, so a record in an output names the input it came from.
std::vector<Packet> Drive(const char* model) {
  sim::SimulationSettings settings;
  settings.model = model;
  settings.frames = kFrames;
  sim::Simulator simulator(settings);
  const std::size_t packet_points = simulator.Model().packetPoints;
  std::vector<Packet> packets;
  Packet frame;
  uint64_t stamp = 1;
  while (simulator.NextFrame(frame)) {
    const std::size_t count = (frame.size() + packet_points - 1) / packet_points;
    for (std::size_t k = 0; k < count; ++k) {
      // Packets past the end of a face's sweep are always kept: ground detection fits there.
      const bool sweep_end = frame[k * packet_points].hor_angle > kSweepEndAngle;
      if (k % kPacketStride != 0 && k + 1 != count && !sweep_end) {
        continue;
      }
      const auto first = frame.begin() + static_cast<std::ptrdiff_t>(k * packet_points);
      const auto last = frame.begin() + static_cast<std::ptrdiff_t>(
                                            std::min(frame.size(), (k + 1) * packet_points));
      packets.emplace_back(first, last);
      for (_ori_point& p : packets.back()) {
        p.timestamp = stamp++;
      }
    }
  }
  return packets;
}

// The host's records by timestamp, with what no algorithm may change in them.
class HostRecords {
 public:
  void Add(const Packet& packet) {
    for (const _ori_point& p : packet) {
      given_[p.timestamp] = p;
    }
  }

  // Whether every record is one the host gave, possibly corrected or removed.
  bool AllFromHost(const Packet& packet) const {
    return std::all_of(packet.begin(), packet.end(), [this](const _ori_point& p) {
      const auto it = given_.find(p.timestamp);
      if (it == given_.end()) {
        return false;
      }
      const _ori_point& q = it->second;
      return p.channel == q.channel && p.reserved_a == q.reserved_a && p.mirror == q.mirror &&
             p.echo == q.echo &&
             std::memcmp(p.reserved_b, q.reserved_b, sizeof(p.reserved_b)) == 0 &&
             std::memcmp(p.reserved_d, q.reserved_d, sizeof(p.reserved_d)) == 0 &&
             p.aux_value == q.aux_value;
    });
  }

 private:
  std::map<uint64_t, _ori_point> given_;
};

std::unique_ptr<ILidarAlgo> Create(const DefaultConfig& config) {
  std::unique_ptr<ILidarAlgo> pipeline;
  test::CaptureOutput(
      [&] { pipeline = ILidarAlgo::Create(config.model, ConfigPath(config.file)); });
  return pipeline;
}

// Feeds packets [first, last) and returns what comes back, concatenated.
Packet Feed(ILidarAlgo& pipeline, const std::vector<Packet>& packets, std::size_t first,
            std::size_t last) {
  Packet out;
  test::CaptureOutput([&] {
    for (std::size_t i = first; i < last; ++i) {
      Packet packet = packets[i];
      pipeline.Process(packet);
      out.insert(out.end(), packet.begin(), packet.end());
    }
  });
  return out;
}

class AllocationFailure : public testing::TestWithParam<DefaultConfig> {
 protected:
  void SetUp() override { packets_ = Drive(GetParam().drive); }

  std::vector<Packet> packets_;
};

TEST(AllocationFailureConfigs, EveryDefaultConfigurationIsSwept) {
  std::set<std::string> swept;
  for (const DefaultConfig& config : kDefaultConfigs) {
    swept.insert(config.file);
  }
  for (const auto& file : std::filesystem::directory_iterator(VELMAR_CONFIG_DIR)) {
    if (file.path().extension() == ".json") {
      EXPECT_EQ(swept.count(file.path().filename().string()), 1u) << file.path();
    }
  }
}

TEST_P(AllocationFailure, CreateThrowsOnlyBadAllocAndLeaksNothing) {
  const DefaultConfig& config = GetParam();
  for (uint64_t n = 1;; ++n) {
    const std::string path = ConfigPath(config.file);
    std::unique_ptr<ILidarAlgo> pipeline;
    bool threw = false;
    bool failed = false;
    test::CaptureOutput([&] {
      FailureScope scope(n);
      try {
        pipeline = ILidarAlgo::Create(config.model, path);
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      failed = alloctest::Failed();
    });
    if (!failed) {
      break;
    }
    EXPECT_EQ(threw, pipeline == nullptr) << "allocation " << n;
  }
}

// The update fails at each of its allocations in turn, on one running pipeline halfway through
// the drive. After each failure that pipeline keeps its algorithms and their state: fed the
// next packet, it answers exactly as a twin that was never asked to change.
TEST_P(AllocationFailure, AFailedUpdateKeepsTheRunningPipelineAndItsState) {
  const DefaultConfig& config = GetParam();
  const std::string text = ReadFile(ConfigPath(config.file));
  const std::size_t half = packets_.size() / 2;
  std::unique_ptr<ILidarAlgo> twin = Create(config);
  std::unique_ptr<ILidarAlgo> pipeline = Create(config);
  Feed(*twin, packets_, 0, half);
  Feed(*pipeline, packets_, 0, half);
  const auto running = static_cast<LidarAlgo&>(*pipeline).Algorithms();
  for (uint64_t n = 1;; ++n) {
    bool accepted = false;
    bool failed = false;
    test::CaptureOutput([&] {
      FailureScope scope(n);
      try {
        accepted = pipeline->UpdateAlgoParam(text);
      } catch (const std::bad_alloc&) {
      }
      failed = alloctest::Failed();
    });
    if (!failed) {
      EXPECT_TRUE(accepted);
      break;
    }
    ASSERT_EQ(static_cast<LidarAlgo&>(*pipeline).Algorithms(), running) << "allocation " << n;
    const std::size_t next = half + n % (packets_.size() - half);
    ASSERT_TRUE(test::SameBytes(Feed(*pipeline, packets_, next, next + 1),
                                Feed(*twin, packets_, next, next + 1)))
        << "allocation " << n;
  }
}

// Processing fails at each allocation the drive makes, in turn. The packet then holds only
// records the host gave, and every later packet is processed without error.
TEST_P(AllocationFailure, AFailedPacketLeavesValidPointsAndAWorkingPipeline) {
  HostRecords host;
  for (const Packet& packet : packets_) {
    host.Add(packet);
  }
  for (uint64_t n = 1;; ++n) {
    std::unique_ptr<ILidarAlgo> pipeline = Create(GetParam());
    std::size_t failed_at = packets_.size();
    // Room enough that copying a packet in costs the test no allocation of its own.
    Packet packet;
    packet.reserve(kPacketRoom);
    test::CaptureOutput([&] {
      FailureScope scope(n);
      for (std::size_t i = 0; i < packets_.size() && failed_at == packets_.size(); ++i) {
        packet = packets_[i];
        try {
          pipeline->Process(packet);
        } catch (const std::bad_alloc&) {
          failed_at = i;
        }
      }
    });
    if (failed_at == packets_.size()) {
      break;
    }
    ASSERT_TRUE(host.AllFromHost(packet)) << "allocation " << n;
    Packet rest;
    ASSERT_NO_THROW(rest = Feed(*pipeline, packets_, failed_at + 1, packets_.size()));
    ASSERT_TRUE(host.AllFromHost(rest)) << "allocation " << n;
  }
}

INSTANTIATE_TEST_SUITE_P(DefaultConfigs, AllocationFailure, testing::ValuesIn(kDefaultConfigs),
                         [](const testing::TestParamInfo<DefaultConfig>& info) {
                           std::string name = info.param.file;
                           return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace velmar
