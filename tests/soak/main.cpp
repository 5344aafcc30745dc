// kvmpd_soak: sources against live streams that misbehave, for as long as one likes.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <list>
#include <random>

#include "tests/soak/Soak.h"
#include "tests/soak/SoakFootprint.h"
#include "tests/soak/SoakMonitor.h"
#include "tests/soak/SoakSource.h"
#include "tests/support/Environment.h"

namespace {

using namespace kvmpd::test;

constexpr unsigned kSanitizedPatience = 5;

/// Tests talk to servers on loopback; a proxy from the environment would stand in between.
void ForgetProxies() {
    for (const char* name :
         {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        UnsetVariable(name);
    }
}

/// Makes and ends one source, so that what is allocated once for the process is there before it is measured.
void WarmUp(const SoakOptions& options) {
    SoakOptions brief = options;
    brief.sources = 1;
    brief.length = std::chrono::milliseconds(1500);
    brief.faultPercent = 0;
    Soak soak(brief);
    SoakSource source(soak, 0);
    source.Start();
    source.Join();
}

int RunSoak(const SoakOptions& options) {
    std::printf("seed %llu, %u sources, %.0f s, segments of about %u ms\n",
                static_cast<unsigned long long>(options.seed), options.sources,
                std::chrono::duration<double>(options.length).count(), options.segmentMs);
    std::fflush(stdout);
    GiveBackLargeBlocks();
    WarmUp(options);
    Soak soak(options);
    SoakMonitor monitor(soak);
    {
        std::list<SoakSource> sources;
        for (unsigned i = 0; i < options.sources; ++i) {
            sources.emplace_back(soak, i);
        }
        for (SoakSource& source : sources) {
            source.Start();
        }
        monitor.Watch();
        for (SoakSource& source : sources) {
            source.Join();
        }
    }
    monitor.JudgeEnd();
    monitor.PrintSummary();
    if (!soak.Failed() && soak.Sums().segments == 0) {
        soak.Fail("nothing was delivered", {});
    }
    std::puts(soak.Failed() ? "FAILED" : "passed");
    return soak.Failed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    SoakOptions options;
    options.seed = std::random_device()();
    options.patience = IsSanitized() ? kSanitizedPatience : 1;
    CLI::App app(
        "Runs live sources against streams that misbehave, with a host that does anything at any time, and checks "
        "every\n"
        "byte that is delivered, the order of the segments, the reason of every gap, and that memory, threads,\n"
        "descriptors and cache files stay bounded and go back to what they were.\n"
        "Exit code: 0 all was right, 1 something was found, 2 the command line was wrong.");
    std::int64_t length = options.length.count();
    app.add_option("--for", length, "How long: 90s, 10m, 2h")
        ->transform(
            CLI::AsNumberWithUnit(std::map<std::string, int>{{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}},
                                  CLI::AsNumberWithUnit::UNIT_REQUIRED))
        ->default_str("60s");
    app.add_option("--seed", options.seed, "Decides faults and actions; printed when it is not given");
    app.add_option("--sources", options.sources, "Sources at the same time, 1 to 256")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_option("--segment-ms", options.segmentMs, "Length of a segment: from half of it to twice as long")
        ->check(CLI::Range(10, 60'000))
        ->capture_default_str();
    app.add_option("--faults", options.faultPercent, "Percent of the usual share of requests that fail; 0: none")
        ->check(CLI::Range(0, 300))
        ->capture_default_str();
    app.add_flag("--quiet-host", options.quiet, "The host only starts and ends sources");
    app.add_flag("--progress", options.progress, "A line every ten seconds");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    options.length = std::chrono::milliseconds(length);
    ForgetProxies();
    try {
        return RunSoak(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kvmpd_soak: %s\n", error.what());
        return 1;
    }
}
