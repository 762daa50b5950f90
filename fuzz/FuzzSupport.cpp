#include "FuzzSupport.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>

#include "sim/SensorModel.h"
#include "sim/Simulator.h"

namespace velmar {
namespace fuzz {
void SilenceLibraryOutput() {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::abort();
  }
  std::cerr.rdbuf(nullptr);
}

std::string InMemoryFile(const uint8_t* data, std::size_t size) {
  static int fd = -1;
  if (fd < 0) {
    fd = memfd_create("velmar-fuzz", 0);
    if (fd < 0) {
      std::abort();
    }
  }
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  return "/proc/self/fd/" + std::to_string(fd);
}

const std::string& TempFolder() {
  static const std::string folder = [] {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/velmar-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      std::abort();
    }
    return pattern;
  }();
  return folder;
}

void WriteFile(const std::string& path, const uint8_t* begin, const uint8_t* end) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(begin), end - begin);
  if (!out) {
    std::abort();
  }
}

namespace {

constexpr double kColumnStep = 0.167;
constexpr double kFirstAngle = 20.0;
constexpr std::size_t kPlainPacketPoints = 128;
constexpr uint32_t kPlainColumns = 24;
constexpr uint32_t kPlainChannels = 64;
constexpr std::size_t kPacketStride = 8;
constexpr uint32_t kDriveFrames = 2;
constexpr uint32_t kPlainFrames = 12;
constexpr double kSweepEndAngle = 150.0;

// Frame `index` of a plain sweep: a wall whose middle columns move towards the sensor from one
// frame to the next, so that the motion algorithms, which need a dozen revolutions of history,
// see static and moving returns.
std::vector<_ori_point> PlainSweep(uint32_t index) {
  std::vector<_ori_point> frame;
  for (uint32_t face = 0; face < 3; ++face) {
    for (uint32_t column = 0; column < kPlainColumns; ++column) {
      const bool moving = column >= kPlainColumns / 3 && column < kPlainColumns / 2;
      for (uint32_t channel = 1; channel <= kPlainChannels; ++channel) {
        _ori_point p{};
        p.channel = channel;
        p.mirror = face;
        p.echo = channel % 2;
        p.hor_angle = kFirstAngle + 145.0 * column / kPlainColumns + kColumnStep * face;
        p.distance = 1.0 + (channel * 7 + column * 3) % 60 - (moving ? 0.4 * index : 0.0);
        p.x = p.distance * 0.5;
        p.y = p.distance * 0.8;
        p.z = -1.8 + 0.01 * channel;
        p.intensity = 20.0 + channel;
        p.pulse_width = 2.0 + channel % 50;
        frame.push_back(p);
      }
    }
  }
  frame.back().mark = 1;
  return frame;
}

std::vector<std::vector<_ori_point>> MakeDrive(LidarType model) {
  std::vector<std::vector<_ori_point>> frames;
  std::size_t packet_points = kPlainPacketPoints;
  const std::string name = LidarTypeToStr(static_cast<int>(model));
  const auto& models = sim::SensorModels();
  const bool simulated = std::any_of(models.begin(), models.end(),
                                     [&name](const sim::SensorModel& m) { return m.name == name; });
  if (simulated) {
    sim::SimulationSettings settings;
    settings.model = name;
    settings.frames = kDriveFrames;
    sim::Simulator simulator(settings);
    packet_points = simulator.Model().packetPoints;
    std::vector<_ori_point> frame;
    while (simulator.NextFrame(frame)) {
      frames.push_back(frame);
    }
  }
  for (uint32_t index = 0; index < kPlainFrames; ++index) {
    frames.push_back(PlainSweep(index));
  }
  std::vector<std::vector<_ori_point>> packets;
  uint64_t stamp = 1;
  for (const std::vector<_ori_point>& frame : frames) {
    const std::size_t count = (frame.size() + packet_points - 1) / packet_points;
    for (std::size_t k = 0; k < count; ++k) {
      // Packets past the end of a face's sweep are always kept: ground detection fits there.
      const bool sweep_end = frame[k * packet_points].hor_angle > kSweepEndAngle;
      if (k % kPacketStride != 0 && k + 1 != count && !sweep_end) {
        continue;
      }
      const std::size_t end = std::min(frame.size(), (k + 1) * packet_points);
      packets.emplace_back(frame.begin() + static_cast<std::ptrdiff_t>(k * packet_points),
                           frame.begin() + static_cast<std::ptrdiff_t>(end));
      for (_ori_point& p : packets.back()) {
        p.timestamp = stamp++;
      }
    }
  }
  return packets;
}

}  // namespace

const std::vector<std::vector<_ori_point>>& DrivePackets(LidarType model) {
  static std::map<LidarType, std::vector<std::vector<_ori_point>>> drives;
  auto it = drives.find(model);
  if (it == drives.end()) {
    it = drives.emplace(model, MakeDrive(model)).first;
  }
  return it->second;
}

void CheckFromHost(const std::vector<_ori_point>& frame, uint64_t first_stamp, uint64_t end_stamp) {
  for (const _ori_point& p : frame) {
    if (p.timestamp < first_stamp || p.timestamp >= end_stamp) {
      std::abort();
    }
  }
}

}  // namespace fuzz
}  // namespace velmar
