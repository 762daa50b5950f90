// Subcommands of the velmar-algo command. Each adds itself to the application with its options
// and the callback that runs it; main() only assembles them.
#ifndef VELMAR_TOOLS_VELMAR_ALGO_COMMANDS_H
#define VELMAR_TOOLS_VELMAR_ALGO_COMMANDS_H

namespace CLI {
class App;
}

namespace velmar {
namespace tools {

// velmar-algo simulate: writes a simulated recording.
void AddSimulateCommand(CLI::App& app);

}  // namespace tools
}  // namespace velmar

#endif  // VELMAR_TOOLS_VELMAR_ALGO_COMMANDS_H
