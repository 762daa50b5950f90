// velmar-algo render: one frame seen from above and as a range image (angle by channel),
// coloured by what the pipeline did to each return, or by truth class without a pipeline.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <memory>

#include "CommandSupport.h"
#include "Commands.h"
#include "FrameFeeder.h"
#include "Image.h"
#include "Outcome.h"
#include "Pipeline.h"
#include "sim/Truth.h"

namespace velmar {
namespace tools {
namespace {

constexpr int kMinSide = 64;
constexpr int kMaxSide = 8192;
constexpr int kTitleHeight = 24;
constexpr int kLegendHeight = 28;
constexpr int kPanelGap = 8;
constexpr double kAngleResolution = 1000.0;  // distinct columns are told apart to 0.001 degree
constexpr Color kBackground{18, 20, 26};
constexpr Color kText{235, 235, 235};
constexpr Color kPanelBorder{70, 74, 84};
constexpr Color kRegionFill{34, 44, 62};
constexpr Color kRegionEdge{90, 130, 200};

struct RenderOptions {
  std::string input;
  std::string config;
  std::string output;
  uint32_t frame = 0;
  uint32_t packet = 0;
  int width = 1600;
  int height = 800;
  double range = 60.0;
  std::string roi;  // a road-boundary map to shade on the bird's-eye view
};

// One drawable return: where it was recorded and its colour, drawn in order of `layer`.
struct Dot {
  const _ori_point* point;
  Color color;
  int layer;
};

struct LegendEntry {
  std::string label;
  Color color;
};

Color OutcomeColor(PointOutcome outcome) {
  switch (outcome) {
    case PointOutcome::kRealKept:
      return Color{150, 155, 165};
    case PointOutcome::kNoiseRemoved:
      return Color{60, 200, 90};
    case PointOutcome::kRealRemoved:
      return Color{235, 50, 45};
    case PointOutcome::kNoiseKept:
      return Color{250, 170, 30};
  }
  return kText;
}

// Rarer, more telling outcomes are drawn over the common ones.
int OutcomeLayer(PointOutcome outcome) {
  switch (outcome) {
    case PointOutcome::kRealKept:
      return 0;
    case PointOutcome::kNoiseRemoved:
      return 1;
    case PointOutcome::kNoiseKept:
      return 2;
    case PointOutcome::kRealRemoved:
      return 3;
  }
  return 0;
}

Color TruthColor(sim::TruthKind kind) {
  static const Color kColors[sim::kTruthKindCount] = {
      {60, 60, 60},    {150, 160, 175}, {150, 115, 70},  {70, 130, 255},  {200, 200, 220},
      {250, 230, 40},  {230, 60, 220},  {255, 140, 0},   {160, 90, 255},  {0, 220, 220},
      {240, 40, 40},   {255, 90, 150},  {255, 180, 200}, {255, 255, 160}, {235, 245, 255},
      {110, 110, 110}, {40, 200, 90},   {140, 200, 40}};
  return kColors[static_cast<std::size_t>(kind)];
}

std::vector<LegendEntry> OutcomeLegend() {
  return {{"real kept", OutcomeColor(PointOutcome::kRealKept)},
          {"noise removed", OutcomeColor(PointOutcome::kNoiseRemoved)},
          {"real removed", OutcomeColor(PointOutcome::kRealRemoved)},
          {"noise kept", OutcomeColor(PointOutcome::kNoiseKept)}};
}

std::vector<Dot> DotsByTruth(const std::vector<_ori_point>& frame,
                             std::vector<LegendEntry>& legend) {
  std::vector<Dot> dots;
  std::vector<bool> present(sim::kTruthKindCount, false);
  for (const _ori_point& point : frame) {
    if (!IsReturn(point)) {
      continue;
    }
    sim::TruthKind kind = sim::TruthKindOf(point);
    present[static_cast<std::size_t>(kind)] = true;
    dots.push_back(Dot{&point, TruthColor(kind), sim::IsSurfaceTruth(kind) ? 0 : 1});
  }
  for (uint32_t k = 0; k < sim::kTruthKindCount; ++k) {
    if (present[k]) {
      legend.push_back(LegendEntry{sim::TruthKindName(static_cast<sim::TruthKind>(k)),
                                   TruthColor(static_cast<sim::TruthKind>(k))});
    }
  }
  return dots;
}

std::vector<Dot> DotsByOutcome(const FedFrame& frame) {
  std::vector<int64_t> representative = Representatives(
      frame.input.size(), frame.output, [&frame](std::size_t j) { return frame.origin[j]; });
  std::vector<Dot> dots;
  for (std::size_t i = 0; i < frame.input.size(); ++i) {
    const _ori_point& point = frame.input[i];
    if (!IsReturn(point)) {
      continue;
    }
    bool removed = representative[i] == kNoOrigin ||
                   !IsReturn(frame.output[static_cast<std::size_t>(representative[i])]);
    PointOutcome outcome = OutcomeOf(sim::TruthKindOf(point), removed);
    dots.push_back(Dot{&point, OutcomeColor(outcome), OutcomeLayer(outcome)});
  }
  return dots;
}

struct Panel {
  int x, y, width, height;
};

void DrawFrameOf(Image& image, const Panel& panel, const std::string& title) {
  image.FillRect(panel.x, panel.y, panel.width, 1, kPanelBorder);
  image.FillRect(panel.x, panel.y + panel.height - 1, panel.width, 1, kPanelBorder);
  image.FillRect(panel.x, panel.y, 1, panel.height, kPanelBorder);
  image.FillRect(panel.x + panel.width - 1, panel.y, 1, panel.height, kPanelBorder);
  image.DrawText(panel.x + 6, panel.y + 6, title, kText);
}

// From above: x to the right, y (forward) up. The view spans +/- range across and up to range
// ahead; behind the sensor only as far as returns go, since most models look forward only.
// The region of a road-boundary map under the dots: shaded inside, its boundary drawn where a
// pixel inside has a neighbour outside.
void ShadeRegion(Image& image, const Panel& panel, const RoadMap& map, int centreX, int sensorY,
                 double scale) {
  const auto inside = [&](int px, int py) {
    return map.Contains((px - centreX) / scale, (sensorY - py) / scale);
  };
  std::vector<uint8_t> row(static_cast<std::size_t>(panel.width) + 2), above(row.size()),
      below(row.size());
  const auto fill = [&](std::vector<uint8_t>& line, int py) {
    for (int i = 0; i < static_cast<int>(line.size()); ++i) {
      line[static_cast<std::size_t>(i)] = inside(panel.x + i - 1, py) ? 1 : 0;
    }
  };
  fill(above, panel.y);
  fill(row, panel.y + 1);
  for (int py = panel.y + 1; py < panel.y + panel.height - 1; ++py) {
    fill(below, py + 1);
    for (int i = 1; i + 1 < static_cast<int>(row.size()) - 1; ++i) {
      const auto at = static_cast<std::size_t>(i);
      if (row[at] == 0) {
        continue;
      }
      const bool edge = !row[at - 1] || !row[at + 1] || !above[at] || !below[at];
      image.Set(panel.x + i - 1, py, edge ? kRegionEdge : kRegionFill);
    }
    above.swap(row);
    row.swap(below);
  }
}

void DrawBirdsEye(Image& image, const Panel& panel, const std::vector<Dot>& dots, double range,
                  const RoadMap* region) {
  DrawFrameOf(image, panel, "bird's-eye, +/-" + std::to_string(static_cast<int>(range)) + " m");
  double back = 0.0;
  for (const Dot& dot : dots) {
    if (std::fabs(dot.point->x) < range && dot.point->y < back && dot.point->y > -range) {
      back = dot.point->y;
    }
  }
  double scale = std::min(panel.width / (2.0 * range), panel.height / (range - back));
  int centreX = panel.x + panel.width / 2;
  int sensorY = panel.y + static_cast<int>((panel.height + (range + back) * scale) / 2.0);
  int dotSize = panel.height >= 600 ? 2 : 1;
  if (region != nullptr) {
    ShadeRegion(image, panel, *region, centreX, sensorY, scale);
  }
  for (const Dot& dot : dots) {
    if (!(std::fabs(dot.point->x) < range && dot.point->y < range && dot.point->y > back - 1.0)) {
      continue;  // also skips NaN coordinates
    }
    double px = centreX + dot.point->x * scale;
    double py = sensorY - dot.point->y * scale;
    image.FillRect(static_cast<int>(px), static_cast<int>(py), dotSize, dotSize, dot.color);
  }
  image.FillRect(centreX - 2, sensorY - 2, 5, 5, kText);
}

// Angle by channel: columns left to right as the mirror sweeps, channel 0 at the top. Each
// distinct angle gets one column and each channel one row, spread over the panel edge to edge.
void DrawRangeImage(Image& image, const Panel& panel, const std::vector<Dot>& dots) {
  DrawFrameOf(image, panel, "range image: angle x channel");
  std::vector<long long> columns;
  uint32_t minChannel = std::numeric_limits<uint32_t>::max();
  uint32_t maxChannel = 0;
  for (const Dot& dot : dots) {
    if (std::isfinite(dot.point->hor_angle)) {
      columns.push_back(std::llround(dot.point->hor_angle * kAngleResolution));
      minChannel = std::min(minChannel, dot.point->channel);
      maxChannel = std::max(maxChannel, dot.point->channel);
    }
  }
  if (columns.empty()) {
    return;
  }
  std::sort(columns.begin(), columns.end());
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
  int left = panel.x + 1;
  int width = panel.width - 2;
  int top = panel.y + kLineAdvance * 2;
  int height = panel.height - kLineAdvance * 2 - 1;
  double columnCount = static_cast<double>(columns.size());
  double rowCount = static_cast<double>(maxChannel - minChannel) + 1.0;
  for (const Dot& dot : dots) {
    if (!std::isfinite(dot.point->hor_angle)) {
      continue;
    }
    long long key = std::llround(dot.point->hor_angle * kAngleResolution);
    double column = static_cast<double>(std::lower_bound(columns.begin(), columns.end(), key) -
                                        columns.begin());
    double row = static_cast<double>(dot.point->channel - minChannel);
    int x0 = left + static_cast<int>(column * width / columnCount);
    int x1 = left + static_cast<int>((column + 1.0) * width / columnCount);
    int y0 = top + static_cast<int>(row * height / rowCount);
    int y1 = top + static_cast<int>((row + 1.0) * height / rowCount);
    image.FillRect(x0, y0, std::max(x1 - x0, 1), std::max(y1 - y0, 1), dot.color);
  }
}

void DrawLegend(Image& image, const std::vector<LegendEntry>& legend) {
  int x = kPanelGap;
  int y = image.Height() - kLegendHeight + 8;
  for (const LegendEntry& entry : legend) {
    image.FillRect(x, y, 10, 10, entry.color);
    image.DrawText(x + 14, y + 2, entry.label, kText);
    x += 14 + TextWidth(entry.label) + 16;
  }
}

FedFrame ProcessedFrame(sim::RecordingReader& reader, const RenderOptions& options) {
  LidarType model = ParseModel(reader.Info().model);
  std::unique_ptr<ILidarAlgo> pipeline = OpenPipeline(model, options.config);
  FedFrame wanted;
  // Every frame up to the wanted one goes through, so that algorithms with history see the
  // drive as they would live.
  FeedRecording(
      reader, [&pipeline](std::vector<_ori_point>& unit) { pipeline->Process(unit); },
      options.packet, options.frame + 1,
      [&](FedFrame& frame) {
        if (frame.index == options.frame) {
          wanted = std::move(frame);
        }
      },
      "render");
  return wanted;
}

void Render(const RenderOptions& options) {
  std::unique_ptr<sim::RecordingReader> reader = OpenRecording(options.input);
  if (options.frame >= reader->FrameCount()) {
    throw CommandError("frame " + std::to_string(options.frame) + " is out of range (" +
                       options.input + " has " + std::to_string(reader->FrameCount()) + " frames)");
  }
  std::vector<Dot> dots;
  std::vector<LegendEntry> legend;
  FedFrame processed;
  std::vector<_ori_point> recorded;
  if (options.config.empty()) {
    reader->ReadFrame(options.frame, recorded);
    dots = DotsByTruth(recorded, legend);
  } else {
    processed = ProcessedFrame(*reader, options);
    dots = DotsByOutcome(processed);
    legend = OutcomeLegend();
  }
  std::stable_sort(dots.begin(), dots.end(),
                   [](const Dot& a, const Dot& b) { return a.layer < b.layer; });

  RoadMap region;
  if (!options.roi.empty()) {
    region = ReadRoadMap(options.roi);
  }
  Image image(options.width, options.height, kBackground);
  std::string title = options.input + "  frame " + std::to_string(options.frame) +
                      (options.config.empty() ? "  (truth classes)" : "  " + options.config);
  image.DrawText(kPanelGap, 8, title, kText);
  int panelHeight = options.height - kTitleHeight - kLegendHeight;
  int panelWidth = (options.width - 3 * kPanelGap) / 2;
  DrawBirdsEye(image, Panel{kPanelGap, kTitleHeight, panelWidth, panelHeight}, dots, options.range,
               options.roi.empty() ? nullptr : &region);
  DrawRangeImage(image, Panel{2 * kPanelGap + panelWidth, kTitleHeight, panelWidth, panelHeight},
                 dots);
  DrawLegend(image, legend);
  if (!image.WritePng(options.output)) {
    throw CommandError(options.output + ": cannot write picture");
  }
  std::cout << "wrote " << options.output << " (" << options.width << "x" << options.height << ")"
            << std::endl;
}

}  // namespace

void AddRenderCommand(CLI::App& app) {
  auto options = std::make_shared<RenderOptions>();
  CLI::App* command = app.add_subcommand(
      "render", "Draw one frame from above and as a range image, coloured by outcome");
  command->add_option("IN", options->input, "recording folder")->required();
  command->add_option("--frame", options->frame, "frame index, from 0")->required();
  command->add_option("--config", options->config,
                      "colour by what this pipeline does (else by truth class)");
  command->add_option("-o,--output", options->output, "PNG file to write")->required();
  command->add_option("--width", options->width, "picture width in pixels")
      ->check(CLI::Range(kMinSide, kMaxSide));
  command->add_option("--height", options->height, "picture height in pixels")
      ->check(CLI::Range(kMinSide, kMaxSide));
  command->add_option("--range", options->range, "half-width of the bird's-eye view, metres")
      ->check(CLI::Range(1.0, 1000.0));
  command->add_option("--roi", options->roi, "shade the region of this road-boundary map");
  command->add_option("--packet", options->packet, "feed packets of N points")
      ->check(CLI::PositiveNumber);
  command->callback([options] { RunGuarded("render", [&options] { Render(*options); }); });
}

}  // namespace tools
}  // namespace velmar
