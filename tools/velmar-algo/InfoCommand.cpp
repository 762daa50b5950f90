// velmar-algo info: what a recording holds, from its metadata and from its frames.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>

#include "CommandSupport.h"
#include "Commands.h"
#include "Outcome.h"
#include "sim/Settings.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

struct FrameCounts {
  uint64_t points = 0;
  uint64_t returns = 0;
  uint64_t marked = 0;
  std::array<uint64_t, sim::kTruthKindCount> byClass{};
};

FrameCounts CountFrame(const std::vector<_ori_point>& frame) {
  FrameCounts counts;
  counts.points = frame.size();
  for (const _ori_point& point : frame) {
    counts.marked += point.mark != 0 ? 1 : 0;
    if (IsReturn(point)) {
      ++counts.returns;
      ++counts.byClass[static_cast<std::size_t>(sim::TruthKindOf(point))];
    }
  }
  return counts;
}

void PrintMetadata(const sim::RecordingInfo& info, std::ostream& out) {
  out << "model            " << info.model << " (type " << info.lidarType << ")\n"
      << "frames           " << info.frames << '\n'
      << "packet points    " << info.packetPoints << '\n'
      << "scene            " << info.scene.name << ", ego speed " << info.scene.egoSpeed
      << " m/s, ground slope " << info.scene.groundSlope << '\n'
      << "seed             " << info.seed << '\n'
      << "noise            ";
  bool any = false;
  for (const sim::NoiseKindInfo& kind : sim::NoiseKinds()) {
    if (info.noise[kind.kind] > 0.0) {
      out << (any ? ", " : "") << kind.name << ' ' << info.noise[kind.kind];
      any = true;
    }
  }
  out << (any ? "" : "none") << '\n';
  for (const auto& attribute : info.attributes) {
    out << attribute.first
        << std::string(attribute.first.size() < 17 ? 17 - attribute.first.size() : 1, ' ')
        << attribute.second << '\n';
  }
}

// Only the classes that occur anywhere in the recording get a column.
void PrintFrameTable(const std::vector<FrameCounts>& frames, std::ostream& out) {
  std::array<bool, sim::kTruthKindCount> present{};
  for (const FrameCounts& counts : frames) {
    for (uint32_t k = 1; k < sim::kTruthKindCount; ++k) {
      present[k] = present[k] || counts.byClass[k] > 0;
    }
  }
  char cell[96];
  out << "\n frame    points   returns  marks";
  for (uint32_t k = 1; k < sim::kTruthKindCount; ++k) {
    if (present[k]) {
      std::snprintf(cell, sizeof(cell), " %12s",
                    sim::TruthKindName(static_cast<sim::TruthKind>(k)).c_str());
      out << cell;
    }
  }
  out << '\n';
  for (std::size_t f = 0; f < frames.size(); ++f) {
    const FrameCounts& counts = frames[f];
    std::snprintf(cell, sizeof(cell), "%6zu %9llu %9llu %6llu", f,
                  static_cast<unsigned long long>(counts.points),
                  static_cast<unsigned long long>(counts.returns),
                  static_cast<unsigned long long>(counts.marked));
    out << cell;
    for (uint32_t k = 1; k < sim::kTruthKindCount; ++k) {
      if (present[k]) {
        std::snprintf(cell, sizeof(cell), " %12llu",
                      static_cast<unsigned long long>(counts.byClass[k]));
        out << cell;
      }
    }
    out << '\n';
  }
  out.flush();
}

void Info(const std::string& folder) {
  std::unique_ptr<sim::RecordingReader> reader = OpenRecording(folder);
  std::vector<FrameCounts> frames;
  std::vector<_ori_point> frame;
  while (reader->NextFrame(frame)) {
    frames.push_back(CountFrame(frame));
  }
  PrintMetadata(reader->Info(), std::cout);
  PrintFrameTable(frames, std::cout);
}

}  // namespace

void AddInfoCommand(CLI::App& app) {
  auto folder = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("info", "Print a recording's metadata and per-frame counts");
  command->add_option("IN", *folder, "recording folder")->required();
  command->callback([folder] { RunGuarded("info", [&folder] { Info(*folder); }); });
}

}  // namespace tools
}  // namespace velmar
