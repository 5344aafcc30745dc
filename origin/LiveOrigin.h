#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "origin/LiveTimeline.h"
#include "origin/ManifestWriter.h"
#include "origin/MediaSource.h"

namespace kvmpd::origin {

class StoppableServer;

// Holds replies back until a test lets them go.
class ReplyGate {
  public:
    void Open();
    void Wait();

  private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;  // guarded by mutex_
};

struct OriginRequest {
    enum class Kind { Manifest, Segment, Other };

    Kind kind = Kind::Other;
    std::string path;
    std::string host;       // the Host header
    std::string userAgent;  // the User-Agent header
    int representationId = 0;
    std::int64_t number = 0;    // of the segment
    std::uint64_t ordinal = 0;  // 1 for the first request of this manifest or segment, 2 for the second ...
};

// What the origin is about to answer; a reply hook may change all of it.
struct OriginReply {
    int status = 200;
    std::string contentType;
    Bytes body;
    // Close the connection after so many bytes of the body although Content-Length promised all of them.
    std::optional<std::size_t> truncateAt;
    // The reply (its status line too) waits until the gate is opened or the origin stops.
    std::shared_ptr<ReplyGate> holdUntil;
    // Further headers.
    std::multimap<std::string, std::string> headers;
};

// Thrown when the origin cannot start; what() is one sentence for a person.
class OriginError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct OriginOptions {
    std::string bind = "127.0.0.1";
    int port = 0;  // 0: any free one
    TimelineOptions timeline{};
    ManifestStyle style{};
    // Segments that left the list are still served for so many segments more.
    std::int64_t graceSegments = 30;
    // Wall-clock time of media time 0; unset: the time of construction.
    std::optional<std::chrono::system_clock::time_point> availabilityStart{};
    // Connections served at the same time; further ones wait.
    std::size_t connections = 16;
};

// A live origin: an HTTP server with a manifest that changes as its timeline is moved on, and the segments it lists.
//
//   GET /NAME.mpd                             the manifest; any NAME, so that one origin can have several addresses
//   GET /media/REPRESENTATION/.../NUMBER.EXT  a segment; what stands between id and number is free
//
// A segment that is not published yet, or has left the list by more than the grace, is 404. BaseURLs are built from the
// request's Host header. Every operation may be called from any thread.
class LiveOrigin {
  public:
    using ReplyHook = std::function<void(const OriginRequest&, OriginReply&)>;
    using RequestLog = std::function<void(const OriginRequest&, int status, std::size_t bytes)>;

    LiveOrigin(OriginOptions options, std::shared_ptr<MediaSource> media);
    ~LiveOrigin();  // stops
    LiveOrigin(const LiveOrigin&) = delete;
    LiveOrigin& operator=(const LiveOrigin&) = delete;

    // Binds and serves on a thread of its own; throws OriginError. Once per object.
    void Start();
    // Closes the listening socket and every connection, opens held replies, joins. Idempotent.
    void Stop();

    int Port() const { return port_; }
    // "http://127.0.0.1:PORT/live.mpd", or another name.
    std::string ManifestUrl(const std::string& name = "live") const;
    // What a manifest asked for under ManifestUrl() gives as the representation's BaseURL.
    std::string BaseUrl(int representationId) const;

    // Moving the timeline on (LiveTimeline says what each does).
    void Advance(std::size_t count = 1);
    void Append(std::uint32_t durationMs);
    std::size_t AdvanceTo(std::int64_t elapsedMs);
    LiveTimeline Timeline() const;
    std::chrono::system_clock::time_point AvailabilityStart() const { return availabilityStart_; }
    MediaSource& Media() { return *media_; }

    // The manifest as a client would get it that asked this host.
    std::string ManifestText(const std::string& host) const;
    void SetStyle(ManifestStyle style);

    // Called on connection threads, for every request; the hook before the reply is sent, the log when its status is
    // known. Neither is called while a lock of the origin is held.
    void SetReplyHook(ReplyHook hook);
    void SetRequestLog(RequestLog log);

    // How often has been asked for a manifest or for a segment, counted before the reply hook runs.
    std::uint64_t ManifestRequests() const;
    std::uint64_t SegmentRequests(int representationId, std::int64_t number) const;
    // Wait until it has been asked for so often; false when that did not happen in time.
    bool WaitForManifestRequests(std::uint64_t count, std::chrono::milliseconds limit = std::chrono::seconds(20));
    bool WaitForSegmentRequest(int representationId, std::int64_t number, std::uint64_t count = 1,
                               std::chrono::milliseconds limit = std::chrono::seconds(20));

  private:
    using SegmentKey = std::pair<int, std::int64_t>;

    OriginRequest Classify(const std::string& path) const;
    void Count(OriginRequest& request);
    OriginReply Answer(const OriginRequest& request);
    OriginReply AnswerSegment(const OriginRequest& request);
    void Hold(const std::shared_ptr<ReplyGate>& gate);
    void ForgetOldSegments();

    // Constant after construction or Start.
    const OriginOptions options_;
    const std::chrono::system_clock::time_point availabilityStart_;
    const std::shared_ptr<MediaSource> media_;
    int port_ = 0;
    std::unique_ptr<StoppableServer> server_;
    std::thread listener_;

    // mutex_ guards everything below.
    mutable std::mutex mutex_;
    std::condition_variable counted_;
    LiveTimeline timeline_;
    ManifestStyle style_;
    ReplyHook hook_;
    RequestLog log_;
    std::uint64_t manifestRequests_ = 0;
    std::uint64_t otherRequests_ = 0;
    std::map<SegmentKey, std::uint64_t> segmentRequests_;
    std::set<std::shared_ptr<ReplyGate>> held_;
    bool stopping_ = false;
};

}  // namespace kvmpd::origin
