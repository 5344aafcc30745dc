#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace kvmpd::app {

// The command line of `kvmpd record`.
struct RecordCommand {
    // Adds the command to app; when it is given, run becomes what it does and answers with the exit code.
    static void Register(CLI::App& app, std::function<int()>& run);
};

}  // namespace kvmpd::app
