// velmar-algo import: frames of other sensors (KITTI .bin with SemanticKITTI .label, PCD) into a
// recording of ours.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <memory>

#include "CommandSupport.h"
#include "Commands.h"
#include "sim/Import.h"
#include "sim/Recording.h"

namespace velmar {
namespace tools {
namespace {

struct ImportCommandOptions {
  std::string mapping = "generic";
  std::string assume = "unlabelled";
  std::vector<std::string> inputs;
  std::vector<std::string> labels;
  std::string output;
};

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

sim::SourceCloud ReadSource(const std::string& path, const std::string& label) {
  if (EndsWith(path, ".pcd")) {
    if (!label.empty()) {
      throw CommandError(label + ": PCD inputs carry their labels in a \"label\" field");
    }
    return sim::ReadPcdCloud(path);
  }
  return sim::ReadKittiBin(path, label);
}

void PrintFrame(std::size_t index, const std::string& path, const sim::ImportReport& r) {
  char line[256];
  std::snprintf(line, sizeof(line),
                "frame %zu  %s: %zu points, %zu returns written, %zu beams, column step %.3f deg, "
                "intensity x %g, %zu invalid, %zu outside the mapping\n",
                index, path.c_str(), r.points, r.written, r.beams, r.columnStepDeg,
                r.intensityScale, r.invalid, r.outside);
  std::cout << line;
}

void Import(const ImportCommandOptions& options) {
  if (!options.labels.empty() && options.labels.size() != options.inputs.size()) {
    throw CommandError("give one --label per input (" + std::to_string(options.inputs.size()) +
                       " inputs, " + std::to_string(options.labels.size()) + " labels)");
  }
  sim::ImportOptions mapping;
  mapping.mapping =
      options.mapping == "marlo128" ? sim::ImportMapping::kMarlo128 : sim::ImportMapping::kGeneric;
  mapping.unlabelledTruth =
      options.assume == "real" ? sim::TruthKind::kReal : sim::TruthKind::kUnlabelled;
  sim::RecordingInfo info = sim::ImportedRecordingInfo(mapping);
  std::string sources;
  for (const std::string& input : options.inputs) {
    sources += (sources.empty() ? "" : " ") + input;
  }
  info.attributes["sources"] = sources;
  info.attributes["unlabelled_points_are"] = options.assume;
  // Written beside the destination and moved into place at the end: a bad input anywhere
  // leaves nothing behind.
  sim::StagedFolder staged(options.output);
  sim::RecordingWriter writer(staged.Path(), info);
  for (std::size_t i = 0; i < options.inputs.size(); ++i) {
    const sim::SourceCloud cloud =
        ReadSource(options.inputs[i], options.labels.empty() ? "" : options.labels[i]);
    sim::ImportReport report;
    writer.WriteFrame(sim::MapFrame(cloud, mapping, static_cast<uint32_t>(i), &report));
    PrintFrame(i, options.inputs[i], report);
  }
  writer.Close();
  staged.Commit();
  std::cout << "wrote " << options.inputs.size() << " frames of " << info.model << " to "
            << options.output << std::endl;
}

}  // namespace

void AddImportCommand(CLI::App& app) {
  auto options = std::make_shared<ImportCommandOptions>();
  CLI::App* command = app.add_subcommand(
      "import", "Turn frames of other sensors (KITTI .bin + .label, PCD) into a recording");
  command
      ->add_option("--mapping", options->mapping,
                   "generic (any spinning sensor, model KR360) or marlo128 (the Marlo128 frame "
                   "layout, for its own algorithms)")
      ->check(CLI::IsMember({"generic", "marlo128"}))
      ->capture_default_str();
  command->add_option("--label", options->labels, "SemanticKITTI .label file, one per input");
  command
      ->add_option("--assume", options->assume,
                   "truth of points without a label file: unlabelled (left out of every score) "
                   "or real (frames known to hold no noise)")
      ->check(CLI::IsMember({"unlabelled", "real"}))
      ->capture_default_str();
  command->add_option("INPUT", options->inputs, "frames in order: .bin (KITTI) or .pcd files")
      ->required();
  command->add_option("-o,--output", options->output, "recording folder to write")->required();
  command->callback([options] { RunGuarded("import", [&options] { Import(*options); }); });
}

}  // namespace tools
}  // namespace velmar
