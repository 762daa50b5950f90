// Subcommands of the velmar-algo command. Each adds itself to the application with its options
// and the callback that runs it; main() only assembles them.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_COMMANDS_H
#define VELMAR_TOOLS_VELMAR_ALGO_COMMANDS_H

#include <string>

#include "geometry/RoadMap.h"

namespace CLI {
class App;
}

namespace velmar {
namespace tools {

// velmar-algo simulate: writes a simulated recording.
void AddSimulateCommand(CLI::App& app);
// velmar-algo run: feeds a recording through a pipeline and writes the result.
void AddRunCommand(CLI::App& app);
// velmar-algo eval: measures what each algorithm of a pipeline does to each truth class.
void AddEvalCommand(CLI::App& app);
// velmar-algo render: draws one frame from above and as a range image.
void AddRenderCommand(CLI::App& app);
// velmar-algo calibrate: derives a reflectance calibration table from a recording, or checks one.
void AddCalibrateCommand(CLI::App& app);
// velmar-algo roi: writes a road-boundary map of a recording's ground.
void AddRoiCommand(CLI::App& app);
// velmar-algo info: prints a recording's metadata and per-frame counts.
void AddInfoCommand(CLI::App& app);
// velmar-algo import: turns frames of other sensors into a recording.
void AddImportCommand(CLI::App& app);

// A road-boundary map file read and checked as the library does; CommandError when it is not.
RoadMap ReadRoadMap(const std::string& path);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_COMMANDS_H
