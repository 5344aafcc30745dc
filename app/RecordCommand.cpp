#include "app/RecordCommand.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>
#include <string>

#include "app/Recorder.h"
#include "app/Text.h"

extern "C" {
#include <libavutil/log.h>
}

namespace kvmpd::app {
namespace {

// The variable in which the component looks for its verbosity, once, when it first logs.
constexpr const char* kLogVariable = "KAVOTRA_MPDSOURCE_LOG";

constexpr std::uint32_t kMaxCacheSeconds = 24 * 3600;

void AddOptions(CLI::App& command, RecordOptions& options, std::string& length) {
    command.add_option("URL", options.url, "Address of the live manifest (http or https)")->required();
    command.add_option("-o,--output", options.output, "Matroska file to write; - is standard output")->required();
    command.add_option("--for", length, "Length of media to record: 20, 20s, 1m30s, 2h (default: until stopped)");
    command.add_option("--cache-dir", options.cacheDir,
                       "Existing folder in which a private cache folder is made (default: TMPDIR or /tmp)");
    command.add_option("--max-cache", options.maxCacheSeconds, "Seconds of media to keep in the cache (default: 300)")
        ->check(CLI::Range(1u, kMaxCacheSeconds));
    command.add_option("--delay-segments", options.delaySegments, "Start this many segments behind the live edge");
    command.add_option("--prefer-height", options.preferHeight,
                       "Take the video quality of exactly this height, if there is one (default: 720)");
    command.add_option("--quality", options.qualityId, "Take the video quality with this id");
    command
        .add_option("--log", options.logLevel, "The component's log on standard error: 3 (errors) to 6 (everything)")
        ->check(CLI::Range(0, 9));
    command.add_flag("--json", options.json, "Events, progress and summary as JSON lines");
    command.add_flag("--quiet", options.quiet, "Only errors");
    command.add_flag("--keep-timestamps", options.keepTimestamps, "Keep the stream's clock instead of starting near 0");
    command.add_flag("-y,--overwrite", options.overwrite, "Replace an existing output file");
}

int Record(RecordOptions options, const std::string& length) {
    if (!length.empty()) {
        options.length = ParseDuration(length);
        if (!options.length) {
            throw CLI::ValidationError("--for",
                                       "\"" + length + "\" is no length of time; write it as 20, 20s or 1m30s");
        }
    }
    if (options.logLevel > 0) {
        ::setenv(kLogVariable, std::to_string(options.logLevel).c_str(), /*overwrite=*/1);
    }
    // What libav finds to say about the media is said by this program in its own way.
    av_log_set_level(options.logLevel >= 3 ? AV_LOG_WARNING : AV_LOG_QUIET);
    return Recorder(std::move(options)).Run();
}

}  // namespace

void RecordCommand::Register(CLI::App& app, std::function<int()>& run) {
    struct State {
        RecordOptions options;
        std::string length;
    };
    const auto state = std::make_shared<State>();
    CLI::App* command = app.add_subcommand("record", "Record a live stream into a Matroska file");
    AddOptions(*command, state->options, state->length);
    command->callback([state, &run] { run = [state] { return Record(state->options, state->length); }; });
}

}  // namespace kvmpd::app
