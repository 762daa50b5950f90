// velmar-algo roi: writes a road-boundary map of the region a recording's ground returns cover,
// as a start for a map a user then edits.
#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "CommandSupport.h"
#include "Commands.h"
#include "GroundRegion.h"
#include "framework/DataFile.h"

namespace velmar {
namespace tools {
namespace {

struct RoiOptions {
  std::string input;
  std::string output;
  double cell = 0.5;
  double extent = 60.0;
  int close = 2;
  double tolerance = 0.5;
};

void WriteRoi(const RoiOptions& options) {
  std::unique_ptr<sim::RecordingReader> reader = OpenRecording(options.input);
  GroundRegion region(options.cell, options.extent);
  std::vector<_ori_point> frame;
  while (reader->NextFrame(frame)) {
    region.AddFrame(frame);
  }
  if (region.GroundReturns() == 0) {
    throw CommandError(options.input + ": no return is labelled ground within " +
                       std::to_string(options.extent) + " m");
  }
  const std::vector<MapRing> rings = region.Rings(options.close, options.tolerance);
  std::size_t points = 0;
  for (const MapRing& ring : rings) {
    points += ring.points.size();
  }
  std::ostringstream comment;
  comment << "the ground of " << options.input << " (" << region.GroundReturns()
          << " returns), cells of " << options.cell << " m, gaps of " << options.close
          << " cells closed, simplified to " << options.tolerance << " m";
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  file << RoadMap::Write(rings, comment.str());
  file.close();
  if (!file) {
    throw CommandError(options.output + ": cannot write the map");
  }
  std::cout << "wrote " << options.output << ": " << rings.size() << " rings, " << points
            << " points" << std::endl;
}

}  // namespace

RoadMap ReadRoadMap(const std::string& path) {
  std::string text;
  if (ReadDataFile(path, text) != DataFileStatus::kRead) {
    throw CommandError(path + ": cannot read the map (a regular file of at most 64 MiB)");
  }
  RoadMap map;
  std::string problem;
  if (!map.Parse(text, problem)) {
    throw CommandError(path + ": " + problem);
  }
  return map;
}

void AddRoiCommand(CLI::App& app) {
  auto options = std::make_shared<RoiOptions>();
  CLI::App* cmd = app.add_subcommand(
      "roi", "Write a road-boundary map of the region a recording's ground returns cover");
  cmd->add_option("IN", options->input, "recording folder")->required();
  cmd->add_option("-o,--output", options->output, "map file to write")->required();
  cmd->add_option("--cell", options->cell, "cell size, metres")
      ->check(CLI::Range(0.05, 10.0))
      ->capture_default_str();
  cmd->add_option("--extent", options->extent, "half-width of the mapped square, metres")
      ->check(CLI::Range(1.0, 500.0))
      ->capture_default_str();
  cmd->add_option("--close", options->close, "gaps up to this many cells are closed")
      ->check(CLI::Range(0, 20))
      ->capture_default_str();
  cmd->add_option("--tolerance", options->tolerance, "simplification tolerance, metres")
      ->check(CLI::Range(0.0, 100.0))
      ->capture_default_str();
  cmd->callback([options] { RunGuarded("roi", [&options] { WriteRoi(*options); }); });
}

}  // namespace tools
}  // namespace velmar
