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

using std::chrono::milliseconds;

// The variable in which the component looks for its verbosity, once, when it first logs.
constexpr const char* kLogVariable = "KAVOTRA_MPDSOURCE_LOG";

constexpr std::uint32_t kMaxCacheSeconds = 24 * 3600;

// Lengths as they were given.
struct LengthTexts {
    std::string length;
    std::string giveUpAfter;
    std::string reconnectAfter;
};

void AddOptions(CLI::App& command, RecordOptions& options, LengthTexts& lengths) {
    command.add_option("URL", options.url, "Address of the live manifest (http or https)")->required();
    command.add_option("-o,--output", options.output, "Matroska file to write; - is standard output")->required();
    command.add_option("--for", lengths.length,
                       "Length of media to record: 20, 20s, 1m30s, 2h (default: until stopped)");
    command.add_option("--cache-dir", options.cacheDir,
                       "Existing folder in which a private cache folder is made (default: TMPDIR or /tmp)");
    command.add_option("--max-cache", options.maxCacheSeconds, "Seconds of media to keep in the cache (default: 300)")
        ->check(CLI::Range(1u, kMaxCacheSeconds));
    command.add_option("--delay-segments", options.delaySegments, "Start this many segments behind the live edge");
    command.add_option("--prefer-height", options.preferHeight,
                       "Take the video quality of exactly this height, if there is one (default: 720)");
    command.add_option("--quality", options.qualityId, "Take the video quality with this id");
    command.add_option(
        "--give-up-after", lengths.giveUpAfter,
        "End when no new media has come for this long, or never (default: never once media has come, 30s "
        "before)");
    command.add_option("--reconnect-after", lengths.reconnectAfter,
                       "Load the stream anew when no new media has come for this long, or never (default: 30s)");
    command
        .add_option("--log", options.logLevel, "The component's log on standard error: 3 (errors) to 6 (everything)")
        ->check(CLI::Range(0, 9));
    command.add_flag("--json", options.json, "Events, progress and summary as JSON lines");
    command.add_flag("--quiet", options.quiet, "Only errors");
    command.add_flag("--keep-timestamps", options.keepTimestamps, "Keep the stream's clock instead of starting near 0");
    command.add_flag("-y,--overwrite", options.overwrite, "Replace an existing output file");
}

milliseconds LengthOf(const char* option, const std::string& text, const char* orNever) {
    const auto length = ParseDuration(text);
    if (!length) {
        throw CLI::ValidationError(option,
                                   "\"" + text + "\" is no length of time; write it as 20, 20s or 1m30s" + orNever);
    }
    return *length;
}

std::optional<milliseconds> LengthOrNever(const char* option, const std::string& text) {
    return text == "never" ? std::nullopt : std::optional(LengthOf(option, text, ", or never"));
}

int Record(RecordOptions options, const LengthTexts& lengths) {
    if (!lengths.length.empty()) {
        options.length = LengthOf("--for", lengths.length, "");
    }
    if (!lengths.giveUpAfter.empty()) {
        options.giveUpBeforeMedia = options.giveUpAfterMedia = LengthOrNever("--give-up-after", lengths.giveUpAfter);
    }
    if (!lengths.reconnectAfter.empty()) {
        options.reconnectAfter = LengthOrNever("--reconnect-after", lengths.reconnectAfter);
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
        LengthTexts lengths;
    };
    const auto state = std::make_shared<State>();
    CLI::App* command = app.add_subcommand("record", "Record a live stream into a Matroska file");
    AddOptions(*command, state->options, state->lengths);
    command->callback([state, &run] { run = [state] { return Record(state->options, state->lengths); }; });
}

}  // namespace kvmpd::app
