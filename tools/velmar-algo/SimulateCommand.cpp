// velmar-algo simulate: generates frames of a sensor model in a scene, with the chosen noise,
// and writes them as a recording.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "sim/Simulator.h"

namespace velmar {
namespace tools {
namespace {

struct SimulateOptions {
  sim::SimulationSettings settings;
  std::string output;
};

std::string Catalogue() {
  std::ostringstream text;
  text << "\nModels:\n";
  for (const sim::SensorModel& m : sim::SensorModels()) {
    text << "  " << m.name << ": " << m.channels << " channels, " << m.faces << " faces x "
         << m.ColumnsPerFace() << " columns, packets of " << m.packetPoints << " points, "
         << m.PointsPerFrame() << " points per frame\n";
  }
  text << "Scenes:\n";
  for (const sim::SceneInfo& s : sim::SceneNames()) {
    text << "  " << s.name << ": " << s.description << "\n";
  }
  text << "Noise kinds (each --<kind> RATE, RATE in [0, 1], default 0):\n";
  for (const sim::NoiseKindInfo& n : sim::NoiseKinds()) {
    text << "  " << n.name << ": " << n.description << "\n";
  }
  return text.str();
}

void RunSimulate(const SimulateOptions& options) {
  sim::WriteSimulatedRecording(options.settings, options.output);
  const sim::SensorModel& model = *sim::FindSensorModel(options.settings.model);
  std::cout << "wrote " << options.settings.frames << " frames of " << model.name << " ("
            << model.PointsPerFrame() << " points each) to " << options.output << std::endl;
}

}  // namespace

void AddSimulateCommand(CLI::App& app) {
  auto options = std::make_shared<SimulateOptions>();
  CLI::App* cmd = app.add_subcommand("simulate", "Write a simulated recording with ground truth");
  cmd->footer(Catalogue());

  std::vector<std::string> models;
  for (const sim::SensorModel& m : sim::SensorModels()) {
    models.push_back(m.name);
  }
  std::vector<std::string> scenes;
  for (const sim::SceneInfo& s : sim::SceneNames()) {
    scenes.push_back(s.name);
  }
  sim::SimulationSettings& s = options->settings;
  cmd->add_option("--model", s.model, "Sensor model")
      ->check(CLI::IsMember(models))
      ->capture_default_str();
  cmd->add_option("--scene", s.scene.name, "Scene")
      ->check(CLI::IsMember(scenes))
      ->capture_default_str();
  cmd->add_option("--frames", s.frames, "Number of frames")->capture_default_str();
  cmd->add_option("--seed", s.seed, "Random seed")->capture_default_str();
  cmd->add_option("--ego-speed", s.scene.egoSpeed, "Sensor speed along the forward axis, m/s")
      ->capture_default_str();
  cmd->add_option("--yaw-rate", s.scene.yawRate,
                  "Turn rate of the sensor, degrees per second, positive to the left")
      ->capture_default_str();
  cmd->add_option("--slope", s.scene.groundSlope, "Rise of the road per metre forward")
      ->capture_default_str();
  cmd->add_flag("--furniture", s.scene.furniture,
                "City: add street-light poles, sign posts and overhead wires");
  cmd->add_option("--unit-seed", s.unit.seed,
                  "Seed of the unit's channel intensity errors (drives of one unit share them)")
      ->capture_default_str();
  cmd->add_option("--channel-gain-spread", s.unit.gainSpread,
                  "Standard deviation of the channels' intensity gains around 1 (0: off)")
      ->check(CLI::Range(0.0, 1.0));
  cmd->add_option("--channel-offset-spread", s.unit.offsetSpread,
                  "Standard deviation of the channels' intensity offsets (0: off)")
      ->check(CLI::Range(0.0, 255.0));
  for (const sim::NoiseKindInfo& n : sim::NoiseKinds()) {
    cmd->add_option(std::string("--") + n.name, s.noise[n.kind], n.description)
        ->check(CLI::Range(0.0, 1.0));
  }
  cmd->add_option("-o,--output", options->output, "Recording folder to write")->required();

  cmd->callback([options]() {
    try {
      RunSimulate(*options);
    } catch (const std::exception& error) {
      std::cerr << "velmar-algo simulate: " << error.what() << std::endl;
      throw CLI::RuntimeError(1);
    }
  });
}

}  // namespace tools
}  // namespace velmar
