// velmar-algo calibrate: derives a reflectance calibration table from a recording (see
// Calibration.h for the method), or takes a given one, and reports how much the channels disagree
// on the intensity of one surface before and after the library's ReflectCalib applies it, when
// the recording carries object truth.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "Calibration.h"
#include "CommandSupport.h"
#include "Commands.h"
#include "framework/LidarAlgo.h"
#include "geometry/ReflectCalib.h"

namespace velmar {
namespace tools {
namespace {

struct CalibrateOptions {
  std::string input;
  std::string output;
  std::string table;
  double voxel = 0.5;
  std::size_t minPatches = 30;
};

// A configuration holding ReflectCalib alone, naming `table` by its absolute path.
std::string CalibConfig(const std::string& table) {
  const std::string path = std::filesystem::absolute(table).string();
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
  w.StartObject();
  w.Key("version");
  w.String(ILidarAlgo::VersionNumber().c_str());
  w.Key("algo_list");
  w.StartArray();
  w.StartObject();
  w.Key("id");
  w.Int(11);
  w.Key("enabled");
  w.Bool(true);
  w.Key("name");
  w.String("ReflectCalib");
  w.Key("desc");
  w.String("");
  w.Key("lidar_type");
  w.StartArray();
  w.EndArray();
  w.Key("param");
  w.StartObject();
  w.Key("calib_file");
  w.String(path.c_str());
  w.EndObject();
  w.EndObject();
  w.EndArray();
  w.EndObject();
  return buffer.GetString();
}

void WriteTable(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) {
    throw CommandError(path + ": cannot write the table");
  }
}

std::string Derive(sim::RecordingReader& reader, const CalibrateOptions& options) {
  CalibrationSolver solver(options.voxel);
  std::vector<_ori_point> frame;
  reader.Rewind();
  while (reader.NextFrame(frame)) {
    solver.AddFrame(frame);
  }
  const std::map<uint32_t, ChannelFit> fits = solver.Solve(options.minPatches);
  const std::vector<CalibCurve> curves = CalibrationSolver::Curves(fits);
  std::size_t written = 0;
  for (const CalibCurve& curve : curves) {
    written += curve.knots != 0 ? 1 : 0;
  }
  if (written == 0) {
    throw CommandError(options.input + ": no channel shares enough surface patches to calibrate");
  }
  std::ostringstream comment;
  comment << "derived by velmar-algo calibrate from " << options.input << "\n"
          << written << " channels fitted on " << solver.SharedPatches()
          << " surface patches shared by two channels or more (voxel " << options.voxel << " m)";
  WriteTable(options.output, CalibTable::Write(curves, comment.str()));
  std::cout << "wrote " << options.output << ": " << written << " channels calibrated from "
            << solver.SharedPatches() << " shared surface patches" << std::endl;
  return options.output;
}

void PrintSpread(const char* when, const ChannelSpread::Summary& s) {
  char line[200];
  std::snprintf(line, sizeof(line),
                "%-18s mean %6.2f  median %6.2f  worst %6.2f  (mean %.2f %% of 255, %zu objects)",
                when, s.meanSpread, s.medianSpread, s.worstSpread, 100.0 * s.meanSpread / 255.0,
                s.objects);
  std::cout << line << std::endl;
}

// Channel spread per object before and after the library applies the table.
void Measure(sim::RecordingReader& reader, const std::string& table) {
  LidarAlgo pipeline(static_cast<LidarType>(reader.Info().lidarType), "");
  if (!pipeline.UpdateAlgoParam(CalibConfig(table)) || pipeline.Algorithms().empty()) {
    throw CommandError(table + ": the library did not take the table (see its message above)");
  }
  const auto* calib = dynamic_cast<const ReflectCalib*>(pipeline.Algorithms().front().get());
  if (calib == nullptr || !calib->TableLoaded()) {
    throw CommandError(table + ": the library refused the table (see its message above)");
  }
  ChannelSpread before, after;
  std::vector<_ori_point> raw, frame;
  reader.Rewind();
  while (reader.NextFrame(raw)) {
    before.AddFrame(raw, raw);
    frame = raw;
    pipeline.Process(frame);
    after.AddFrame(raw, frame);
  }
  const ChannelSpread::Summary recorded = before.Summarise();
  if (recorded.objects == 0) {
    std::cout << "no object truth in the recording: channel spread not measured" << std::endl;
    return;
  }
  std::cout << "intensity spread across channels per object (standard deviation of the channels'"
               " mean intensities):"
            << std::endl;
  PrintSpread("before", recorded);
  PrintSpread("after ReflectCalib", after.Summarise());
}

void Calibrate(const CalibrateOptions& options) {
  if (options.table.empty() == options.output.empty()) {
    throw CommandError("give either -o TABLE (derive a table) or --table TABLE (check one)");
  }
  std::unique_ptr<sim::RecordingReader> reader = OpenRecording(options.input);
  const std::string table = options.table.empty() ? Derive(*reader, options) : options.table;
  Measure(*reader, table);
}

}  // namespace

void AddCalibrateCommand(CLI::App& app) {
  auto options = std::make_shared<CalibrateOptions>();
  CLI::App* cmd = app.add_subcommand(
      "calibrate", "Derive a reflectance calibration table from a recording, or check one");
  cmd->add_option("IN", options->input, "recording folder")->required();
  cmd->add_option("-o,--output", options->output, "table file to write");
  cmd->add_option("--table", options->table, "check this table instead of deriving one");
  cmd->add_option("--voxel", options->voxel, "edge of the surface patches, metres")
      ->check(CLI::Range(0.05, 5.0))
      ->capture_default_str();
  cmd->add_option("--min-patches", options->minPatches,
                  "shared patches a channel needs to be calibrated")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  cmd->callback([options] { RunGuarded("calibrate", [&options] { Calibrate(*options); }); });
}

}  // namespace tools
}  // namespace velmar
