#include "EvalReport.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <cstdio>

#include "Image.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

constexpr double kPercent = 100.0;

bool Active(const ClassCounts& counts) {
  return counts.removed + counts.flagged + counts.moved + counts.added + counts.lost > 0;
}

std::string StageTitle(const StageReport& stage) {
  return "id " + std::to_string(stage.id) + " " + stage.name;
}

void PrintRow(std::ostream& out, const std::string& label, uint64_t returns,
              const ClassCounts& counts) {
  char row[160];
  std::snprintf(
      row, sizeof(row), "  %-14s %10llu %9llu %9llu %9llu %9llu %8.2f%%\n", label.c_str(),
      static_cast<unsigned long long>(returns), static_cast<unsigned long long>(counts.removed),
      static_cast<unsigned long long>(counts.flagged),
      static_cast<unsigned long long>(counts.moved), static_cast<unsigned long long>(counts.added),
      Share(counts.removed, returns) * kPercent);
  out << row;
}

// Recall and wrong removals are shares of the recording's returns, so that the stages' figures
// add up to the pipeline's (minus what a later stage undoes).
void PrintSummary(std::ostream& out, const OutcomeTally& tally, const OutcomeTally& recorded) {
  char line[160];
  std::snprintf(line, sizeof(line),
                "  noise removal recall %.2f%%, real returns wrongly removed %.3f%%\n",
                Share(tally.Noise().removed, recorded.Noise().returns) * kPercent,
                Share(tally.Surface().removed, recorded.Surface().returns) * kPercent);
  out << line;
}

void PrintBlock(std::ostream& out, const std::string& title, const OutcomeTally& tally,
                const OutcomeTally& recorded, bool onlyActive) {
  out << '\n' << title << '\n';
  for (uint32_t k = 1; k < sim::kTruthKindCount; ++k) {
    sim::TruthKind kind = static_cast<sim::TruthKind>(k);
    uint64_t returns = recorded[kind].returns;
    if ((onlyActive && !Active(tally[kind])) || (!onlyActive && returns == 0)) {
      continue;
    }
    PrintRow(out, sim::TruthKindName(kind), returns, tally[kind]);
  }
  PrintSummary(out, tally, recorded);
}

void WriteCounts(rapidjson::PrettyWriter<rapidjson::StringBuffer>& writer,
                 const OutcomeTally& tally, const OutcomeTally& recorded) {
  writer.Key("by_class");
  writer.StartObject();
  for (uint32_t k = 1; k < sim::kTruthKindCount; ++k) {
    sim::TruthKind kind = static_cast<sim::TruthKind>(k);
    const ClassCounts& counts = tally[kind];
    if (recorded[kind].returns == 0 && !Active(counts)) {
      continue;
    }
    writer.Key(sim::TruthKindName(kind).c_str());
    writer.StartObject();
    writer.Key("returns");
    writer.Uint64(recorded[kind].returns);
    writer.Key("removed");
    writer.Uint64(counts.removed);
    writer.Key("flagged");
    writer.Uint64(counts.flagged);
    writer.Key("moved");
    writer.Uint64(counts.moved);
    writer.Key("added");
    writer.Uint64(counts.added);
    writer.EndObject();
  }
  writer.EndObject();
  writer.Key("noise_recall");
  writer.Double(Share(tally.Noise().removed, recorded.Noise().returns));
  writer.Key("real_removed_share");
  writer.Double(Share(tally.Surface().removed, recorded.Surface().returns));
}

constexpr double kCentimetres = 100.0;

void PrintDistortion(std::ostream& out, const DistortionReport& distortion) {
  if (!distortion.measured) {
    return;
  }
  char line[160];
  out << "\nresidual motion distortion of static returns (distance to where the true motion puts\n"
         "them at the end of their frame)\n";
  for (const auto& [label, figures] :
       {std::make_pair("before", &distortion.before), std::make_pair("after", &distortion.after)}) {
    std::snprintf(line, sizeof(line),
                  "  %-7s mean %7.2f cm, 95th percentile %7.2f cm (%llu returns)\n", label,
                  figures->mean * kCentimetres, figures->p95 * kCentimetres,
                  static_cast<unsigned long long>(figures->returns));
    out << line;
  }
  out << "  after, mean per frame (cm):";
  for (const DistortionFigures& frame : distortion.afterByFrame) {
    std::snprintf(line, sizeof(line), " %.2f", frame.mean * kCentimetres);
    out << line;
  }
  out << '\n';
}

void WriteDistortion(rapidjson::PrettyWriter<rapidjson::StringBuffer>& writer,
                     const DistortionReport& distortion) {
  auto figures = [&writer](const char* key, const DistortionFigures& f) {
    writer.Key(key);
    writer.StartObject();
    writer.Key("returns");
    writer.Uint64(f.returns);
    writer.Key("mean_m");
    writer.Double(f.mean);
    writer.Key("p95_m");
    writer.Double(f.p95);
    writer.EndObject();
  };
  writer.Key("distortion");
  writer.StartObject();
  figures("before", distortion.before);
  figures("after", distortion.after);
  writer.Key("after_mean_m_by_frame");
  writer.StartArray();
  for (const DistortionFigures& frame : distortion.afterByFrame) {
    writer.Double(frame.mean);
  }
  writer.EndArray();
  writer.EndObject();
}

// Chart layout, in pixels.
constexpr int kPlotHeight = 360;
constexpr int kPlotMarginLeft = 50;
constexpr int kPlotMarginTop = 40;
constexpr int kPlotMarginBottom = 50;
constexpr int kGroupWidth = 100;
constexpr int kBarWidth = 28;
constexpr int kLabelChars = 15;
constexpr Color kWhite{255, 255, 255};
constexpr Color kInk{30, 30, 30};
constexpr Color kGrid{220, 220, 220};
constexpr Color kRecallColor{40, 160, 70};
constexpr Color kWrongColor{210, 50, 40};

void DrawBar(Image& image, int x, int baseline, int fullHeight, double share, Color color) {
  int height = static_cast<int>(share * fullHeight + 0.5);
  image.FillRect(x, baseline - height, kBarWidth, height, color);
  char label[16];
  std::snprintf(label, sizeof(label), "%.1f", share * kPercent);
  image.DrawText(x + (kBarWidth - TextWidth(label)) / 2, baseline - height - kLineAdvance, label,
                 kInk);
}

}  // namespace

void PrintEvalTable(const EvalReport& report, std::ostream& out) {
  out << "eval of " << report.config << " on " << report.recording << " (" << report.model << ", "
      << report.frames << " frames, fed as "
      << (report.packetPoints == 0 ? std::string("whole frames")
                                   : "packets of " + std::to_string(report.packetPoints))
      << ")\n";
  char header[160];
  std::snprintf(header, sizeof(header), "  %-14s %10s %9s %9s %9s %9s %9s\n", "class", "returns",
                "removed", "flagged", "moved", "added", "share");
  out << '\n' << header;
  for (const StageReport& stage : report.stages) {
    PrintBlock(out, StageTitle(stage), stage.tally, report.pipeline, true);
  }
  PrintBlock(out, "whole pipeline", report.pipeline, report.pipeline, false);
  PrintDistortion(out, report.distortion);
  out.flush();
}

std::string EvalJson(const EvalReport& report) {
  rapidjson::StringBuffer buffer;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("model");
  writer.String(report.model.c_str());
  writer.Key("config");
  writer.String(report.config.c_str());
  writer.Key("recording");
  writer.String(report.recording.c_str());
  writer.Key("frames");
  writer.Uint(report.frames);
  writer.Key("packet_points");
  writer.Uint(report.packetPoints);
  writer.Key("algorithms");
  writer.StartArray();
  for (const StageReport& stage : report.stages) {
    writer.StartObject();
    writer.Key("id");
    writer.Uint(stage.id);
    writer.Key("name");
    writer.String(stage.name.c_str());
    WriteCounts(writer, stage.tally, report.pipeline);
    writer.EndObject();
  }
  writer.EndArray();
  writer.Key("pipeline");
  writer.StartObject();
  WriteCounts(writer, report.pipeline, report.pipeline);
  writer.EndObject();
  if (report.distortion.measured) {
    WriteDistortion(writer, report.distortion);
  }
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

bool PlotEval(const EvalReport& report, const std::string& path) {
  std::vector<std::pair<std::string, const OutcomeTally*>> groups;
  for (const StageReport& stage : report.stages) {
    groups.emplace_back(StageTitle(stage), &stage.tally);
  }
  groups.emplace_back("pipeline", &report.pipeline);
  int width = kPlotMarginLeft + static_cast<int>(groups.size()) * kGroupWidth + kGroupWidth / 2;
  Image image(width, kPlotHeight, kWhite);
  int baseline = kPlotHeight - kPlotMarginBottom;
  int fullHeight = baseline - kPlotMarginTop;
  for (int tick = 0; tick <= 100; tick += 25) {
    int y = baseline - fullHeight * tick / 100;
    image.FillRect(kPlotMarginLeft, y, width - kPlotMarginLeft, 1, kGrid);
    image.DrawText(4, y - kGlyphHeight / 2, std::to_string(tick) + "%", kInk);
  }
  image.FillRect(kPlotMarginLeft, 8, 10, 10, kRecallColor);
  image.DrawText(kPlotMarginLeft + 14, 10, "noise removed", kInk);
  image.FillRect(kPlotMarginLeft + 120, 8, 10, 10, kWrongColor);
  image.DrawText(kPlotMarginLeft + 134, 10, "real returns removed", kInk);
  const OutcomeTally& recorded = report.pipeline;
  for (std::size_t g = 0; g < groups.size(); ++g) {
    int x = kPlotMarginLeft + static_cast<int>(g) * kGroupWidth + 16;
    const OutcomeTally& tally = *groups[g].second;
    DrawBar(image, x, baseline, fullHeight, Share(tally.Noise().removed, recorded.Noise().returns),
            kRecallColor);
    DrawBar(image, x + kBarWidth + 6, baseline, fullHeight,
            Share(tally.Surface().removed, recorded.Surface().returns), kWrongColor);
    std::string label = groups[g].first.substr(0, kLabelChars);
    image.DrawText(x - 10, baseline + 8 + static_cast<int>(g % 2) * kLineAdvance * 2, label, kInk);
  }
  return image.WritePng(path);
}

}  // namespace tools
}  // namespace velmar
