#include "FuzzSupport.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace velmar {
namespace fuzz {
namespace {

constexpr double kColumnStep = 0.167;
constexpr double kFirstAngle = 20.0;

}  // namespace

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

std::vector<_ori_point> OrdinaryFrame(uint32_t columns, uint32_t channels) {
  std::vector<_ori_point> frame;
  uint64_t stamp = 1;
  for (uint32_t face = 0; face < 3; ++face) {
    for (uint32_t column = 0; column < columns; ++column) {
      for (uint32_t channel = 1; channel <= channels; ++channel) {
        _ori_point p{};
        p.channel = channel;
        p.mirror = face;
        p.echo = channel % 2;
        p.hor_angle = kFirstAngle + 145.0 * column / columns + kColumnStep * face;
        p.distance = 1.0 + (channel * 7 + column * 3) % 60;
        p.x = p.distance * 0.5;
        p.y = p.distance * 0.8;
        p.z = -1.8 + 0.01 * channel;
        p.intensity = 20.0 + channel;
        p.pulse_width = 2.0 + channel % 50;
        p.timestamp = stamp++;
        frame.push_back(p);
      }
    }
  }
  frame.back().mark = 1;
  return frame;
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
