// The command line as a whole: what it takes, and a run of it.
#pragma once

namespace CLI {
class App;
}
class Host;
struct Settings;

// Every command, with its options and operands. The settings and the host outlive the app.
void addCommands(CLI::App& app, Settings& settings, Host& host);

// Does what the words say; the exit status.
int runCommandLine(int argc, char** argv);
