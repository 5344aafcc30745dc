#include "app/ServeCommand.h"

#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "origin/FileMedia.h"
#include "origin/LiveClock.h"
#include "origin/LiveOrigin.h"
#include "origin/TestCard.h"

namespace kvmpd {

namespace {

using origin::OriginError;
using std::chrono::system_clock;

// A growing list starts with so many segments; a sliding one starts full.
constexpr std::int64_t kGrowingHistory = 10;
// Segments of a file are encoded before the stream starts, so there are only as many as a player needs.
constexpr std::int64_t kFileHistory = 3;

struct ServeOptions {
    int port = 8080;
    std::string bind = "127.0.0.1";
    std::string mediaFile;
    double segmentSeconds = 2;
    double windowSeconds = 60;
    std::string list = "sliding";
    std::int64_t startNumber = 1;
    std::vector<int> heights{360, 720, 1080};
    bool verbose = false;
};

// Keeps SIGINT and SIGTERM from every thread started after it and takes them on a thread of its own.
class StopSignals {
  public:
    StopSignals() {
        // A shell starts background commands with SIGINT ignored, and an ignored signal never arrives.
        signal(SIGINT, SIG_DFL);
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
        thread_ = std::thread([this] {
            int taken = 0;
            sigwait(&signals_, &taken);
            Stop();
        });
    }
    ~StopSignals() {
        pthread_kill(thread_.native_handle(), SIGTERM);
        thread_.join();
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // What to do at once when stopped, in place of what was set before; done now when that has happened already.
    void OnStop(std::function<void()> action) {
        const std::lock_guard lock(mutex_);
        action_ = std::move(action);
        if (stopped_ && action_) {
            action_();
        }
    }

    void Stop() {
        const std::lock_guard lock(mutex_);
        if (!std::exchange(stopped_, true) && action_) {
            action_();
        }
        changed_.notify_all();
    }

    void Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return stopped_; });
    }

  private:
    sigset_t signals_{};
    sigset_t before_{};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> action_;  // guarded by mutex_
    bool stopped_ = false;          // guarded by mutex_
    std::thread thread_;
};

// Standard output, one line at a time from any thread.
class Console {
  public:
    void Line(const std::string& text) {
        const std::lock_guard lock(mutex_);
        std::printf("%s\n", text.c_str());
        std::fflush(stdout);
    }

  private:
    std::mutex mutex_;
};

std::int64_t Milliseconds(double seconds) {
    return static_cast<std::int64_t>(seconds * 1000 + 0.5);
}

origin::TimelineOptions TimelineOf(const ServeOptions& options) {
    origin::TimelineOptions timeline;
    timeline.startNumber = options.startNumber;
    timeline.durationsMs = {static_cast<std::uint32_t>(Milliseconds(options.segmentSeconds))};
    timeline.windowMs = options.list == "growing" ? 0 : Milliseconds(options.windowSeconds);
    return timeline;
}

// A whole second, at least the history ago: then the beeps of the test card fall on full seconds of its clock.
system_clock::time_point AvailabilityStart(const ServeOptions& options, bool fromFile) {
    const std::int64_t segmentMs = Milliseconds(options.segmentSeconds);
    std::int64_t history = kGrowingHistory * segmentMs;
    if (fromFile) {
        history = kFileHistory * segmentMs;
    } else if (options.list != "growing") {
        history = Milliseconds(options.windowSeconds);
    }
    return std::chrono::floor<std::chrono::seconds>(system_clock::now() - std::chrono::milliseconds(history));
}

std::string Summary(const ServeOptions& options, const origin::MediaSource& media) {
    std::string text = "serving " + (options.mediaFile.empty() ? "the test card" : options.mediaFile) + ":";
    for (const origin::MediaSet& set : media.Sets()) {
        for (const origin::Representation& representation : set.representations) {
            text += representation.height == 0 ? " audio" : " " + std::to_string(representation.height) + "p";
            text += " (id " + std::to_string(representation.id) + ")";
        }
    }
    char numbers[96];
    std::snprintf(numbers, sizeof(numbers), "; segments of %g s, ", options.segmentSeconds);
    text += numbers;
    if (options.list == "growing") {
        text += "growing list";
    } else {
        std::snprintf(numbers, sizeof(numbers), "window of %g s", options.windowSeconds);
        text += numbers;
    }
    return text + "; Ctrl-C ends";
}

void LogRequest(Console& console, const origin::OriginRequest& request, int status, std::size_t bytes) {
    console.Line("GET " + request.path + " " + std::to_string(status) + " " + std::to_string(bytes) + " bytes");
}

class Serving {
  public:
    explicit Serving(const ServeOptions& options) : options_(options) {}

    int Run() {
        const auto media = OpenMedia();
        if (!media) {
            return Ended();
        }
        origin::OriginOptions settings;
        settings.bind = options_.bind;
        settings.port = options_.port;
        settings.timeline = TimelineOf(options_);
        settings.availabilityStart = availabilityStart_;
        origin::LiveOrigin server(settings, media);
        if (options_.verbose) {
            server.SetRequestLog([this](const origin::OriginRequest& request, int status, std::size_t bytes) {
                LogRequest(console_, request, status, bytes);
            });
        }
        // No client may see the list before it has the segments that exist already.
        server.AdvanceTo(
            std::chrono::floor<std::chrono::milliseconds>(system_clock::now() - availabilityStart_).count());
        server.Start();
        console_.Line(server.ManifestUrl());
        console_.Line(Summary(options_, *media));

        origin::LiveClock clock(server, [&](const origin::SegmentTime& last) {
            const origin::LiveTimeline timeline = server.Timeline();
            console_.Line("segment " + std::to_string(last.number) + " published; the list is " +
                          std::to_string(timeline.FirstNumber()) + " to " + std::to_string(timeline.LastNumber()));
        });
        clock.Start();
        signals_.Wait();
        server.Stop();
        clock.Stop();
        return Ended();
    }

  private:
    // Empty when stopped meanwhile.
    std::shared_ptr<origin::MediaSource> OpenMedia() {
        availabilityStart_ = AvailabilityStart(options_, !options_.mediaFile.empty());
        if (!options_.mediaFile.empty()) {
            return OpenFile();
        }
        origin::TestCardOptions card;
        card.availabilityStart = availabilityStart_;
        card.qualities.clear();
        for (const int height : options_.heights) {
            card.qualities.push_back(origin::QualityOfHeight(height));
        }
        return std::make_shared<origin::TestCard>(card);
    }

    std::shared_ptr<origin::MediaSource> OpenFile() {
        origin::FileMediaOptions file;
        file.path = options_.mediaFile;
        file.heights = options_.heights;
        file.timeline = TimelineOf(options_);
        file.history = kFileHistory;
        file.availabilityStart = availabilityStart_;
        file.failed = [this](const std::string& reason) { Fail(reason); };
        auto media = std::make_shared<origin::FileMedia>(file);
        signals_.OnStop([media] { media->Close(); });
        std::fprintf(stderr, "encoding the first segments of %s\n", options_.mediaFile.c_str());
        const bool ready = media->WaitForHistory();
        signals_.OnStop({});
        availabilityStart_ = AvailabilityStart(options_, true);
        return ready ? media : nullptr;
    }

    void Fail(const std::string& reason) {
        {
            const std::lock_guard lock(mutex_);
            failure_ = reason;
        }
        signals_.Stop();
    }

    int Ended() {
        const std::lock_guard lock(mutex_);
        if (!failure_.empty()) {
            throw OriginError(failure_);
        }
        console_.Line("ended");
        return 0;
    }

    const ServeOptions options_;
    StopSignals signals_;
    Console console_;
    system_clock::time_point availabilityStart_;
    std::mutex mutex_;
    std::string failure_;  // guarded by mutex_
};

int Serve(const ServeOptions& options) {
    // What goes wrong reaches the user as one sentence; FFmpeg's own remarks would only surround it.
    av_log_set_level(AV_LOG_QUIET);
    try {
        return Serving(options).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kvmpd serve: %s\n", error.what());
        return 1;
    }
}

}  // namespace

void ServeCommand::Register(CLI::App& app, std::function<int()>& run) {
    const auto options = std::make_shared<ServeOptions>();
    CLI::App* serve = app.add_subcommand("serve", "Serve a live stream from the built-in test card or a media file");
    serve->footer(
        "Example: kvmpd serve --port 8080 --media film.mkv\n"
        "The first line of standard output is the URL of the manifest; Ctrl-C ends with exit code 0,\n"
        "1 means that the stream could not be served and standard error says why.");
    serve->add_option("--port", options->port, "TCP port; 0 picks a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    serve->add_option("--bind", options->bind, "Address to listen on; 0.0.0.0 for every network")
        ->capture_default_str();
    serve->add_option("--media", options->mediaFile, "Any file that FFmpeg reads, in a loop; else the test card");
    serve->add_option("--segment-duration", options->segmentSeconds, "Seconds per segment")
        ->check(CLI::Range(0.5, 60.0))
        ->capture_default_str();
    serve->add_option("--window", options->windowSeconds, "Seconds of a sliding list")
        ->check(CLI::Range(1.0, 86400.0))
        ->capture_default_str();
    serve->add_option("--list", options->list, "How the list of segments goes on: sliding or growing")
        ->check(CLI::IsMember({"sliding", "growing"}))
        ->capture_default_str();
    serve->add_option("--start-number", options->startNumber, "Number of the first segment")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{1} << 53))
        ->capture_default_str();
    serve->add_option("--qualities", options->heights, "Heights of the pictures, with commas between them")
        ->delimiter(',')
        ->check(CLI::Range(64, 2160))
        ->capture_default_str();
    serve->add_flag("--verbose", options->verbose, "Print a line for every request");
    serve->callback([options, &run] { run = [options] { return Serve(*options); }; });
}

}  // namespace kvmpd
