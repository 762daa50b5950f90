// velmar-algo: simulates, processes and examines lidar recordings.
#include <CLI/CLI.hpp>

#include <csignal>

#include "Commands.h"

int main(int argc, char** argv) {
  // A file-size limit then shows as a failed write, reported like a full disk, instead of
  // killing the process half-way through a file.
  std::signal(SIGXFSZ, SIG_IGN);
  CLI::App app{"velmar-algo: simulate, process and examine lidar recordings"};
  app.require_subcommand(1);
  velmar::tools::AddSimulateCommand(app);
  velmar::tools::AddRunCommand(app);
  velmar::tools::AddEvalCommand(app);
  velmar::tools::AddRenderCommand(app);
  velmar::tools::AddInfoCommand(app);
  velmar::tools::AddImportCommand(app);
  velmar::tools::AddCalibrateCommand(app);
  velmar::tools::AddRoiCommand(app);
  CLI11_PARSE(app, argc, argv);
  return 0;
}
