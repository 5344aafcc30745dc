#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace kvmpd {

// `kvmpd serve`: a live stream on this machine, made from the built-in test card or from a media file.
struct ServeCommand {
    // Adds the subcommand. When the command line names it, `run` becomes the function that serves until Ctrl-C and
    // returns the exit code: 0 ended by Ctrl-C or SIGTERM, 1 could not start (one sentence on standard error).
    static void Register(CLI::App& app, std::function<int()>& run);
};

}  // namespace kvmpd
