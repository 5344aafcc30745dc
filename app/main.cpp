// kvmpd: the command-line host of the live source component.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>

#include "app/Allocator.h"
#include "app/ExitCode.h"
#include "app/RecordCommand.h"
#if __has_include("app/ServeCommand.h")
#include "app/ServeCommand.h"
#define KVMPD_HAVE_SERVE 1
#endif

int main(int argc, char** argv) {
    using kvmpd::app::ExitCode;
    kvmpd::app::GiveBackLargeBlocks();
    // A reader that goes away, or a file that may grow no more, shows as a failed write, which is answered where it
    // happens.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);

    CLI::App app("kvmpd: live DASH streams on the command line");
    app.require_subcommand(1);
    app.failure_message(CLI::FailureMessage::simple);
    std::function<int()> run;
    kvmpd::app::RecordCommand::Register(app, run);
#ifdef KVMPD_HAVE_SERVE
    kvmpd::ServeCommand::Register(app, run);
#endif
    try {
        app.parse(argc, argv);
        return run ? run() : static_cast<int>(ExitCode::kUsage);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kvmpd: %s\n", error.what());
        return static_cast<int>(ExitCode::kUsage);
    }
}
