#include "origin/LiveOrigin.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "origin/HttpServer.h"
#include "origin/SocketCalls.h"

namespace kvmpd::origin {

namespace {

constexpr std::string_view kMediaPath = "/media/";
constexpr std::string_view kManifestExtension = ".mpd";
// Request counts of segments this far behind the list are dropped, so that days of serving do not add up.
constexpr std::int64_t kCountsKept = 5000;

template <class Number>
bool ParseLeadingNumber(std::string_view text, Number& number) {
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

std::string ContentTypeOf(const std::vector<MediaSet>& sets, int representationId) {
    for (const MediaSet& set : sets) {
        for (const Representation& representation : set.representations) {
            if (representation.id == representationId) {
                return set.mimeType;
            }
        }
    }
    return "application/octet-stream";
}

std::string HostAndPort(const std::string& bind, int port) {
    const bool everywhere = bind == "0.0.0.0" || bind == "::" || bind.empty();
    const std::string host = everywhere ? "127.0.0.1" : bind;
    return (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" + std::to_string(port);
}

// Where a client that asked with this Host header reaches the origin. Some clients leave the port out of the header; it
// is then the one on which they were heard.
std::string ReachableAt(const std::string& hostHeader, const std::string& bind, int port) {
    if (hostHeader.empty()) {
        return HostAndPort(bind, port);
    }
    const std::size_t bracket = hostHeader.rfind(']');
    const bool hasPort = hostHeader.find(':', bracket == std::string::npos ? 0 : bracket) != std::string::npos;
    return hasPort ? hostHeader : hostHeader + ":" + std::to_string(port);
}

OriginReply NotFound(std::string_view why) {
    OriginReply reply;
    reply.status = 404;
    reply.contentType = "text/plain";
    reply.body = std::make_shared<const std::string>(std::string(why) + "\n");
    return reply;
}

void Send(const OriginReply& reply, httplib::Response& response) {
    // Without a status the library answers 200, or 206 where a range was asked for.
    if (reply.status != 200) {
        response.status = reply.status;
    }
    for (const auto& [name, value] : reply.headers) {
        response.set_header(name, value);
    }
    if (!reply.body || reply.body->empty()) {
        return;
    }
    const auto body = reply.body;
    const std::size_t limit = std::min(body->size(), reply.truncateAt.value_or(body->size()));
    response.set_content_provider(body->size(), reply.contentType,
                                  [body, limit](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                      if (offset >= limit) {
                                          return false;
                                      }
                                      return sink.write(body->data() + offset, std::min(length, limit - offset));
                                  });
}

}  // namespace

void ReplyGate::Open() {
    {
        const std::lock_guard lock(mutex_);
        open_ = true;
    }
    opened_.notify_all();
}

void ReplyGate::Wait() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
}

LiveOrigin::LiveOrigin(OriginOptions options, std::shared_ptr<MediaSource> media)
    : options_(std::move(options)),
      availabilityStart_(options_.availabilityStart.value_or(std::chrono::system_clock::now())),
      media_(std::move(media)),
      timeline_(options_.timeline),
      style_(options_.style) {}

LiveOrigin::~LiveOrigin() {
    Stop();
}

void LiveOrigin::Start() {
    server_ = std::make_unique<StoppableServer>();
    server_->new_task_queue = [this] { return new httplib::ThreadPool(options_.connections); };
    server_->set_socket_options(PrepareListener);
    server_->set_default_headers({{"Cache-Control", "no-cache"}, {"Access-Control-Allow-Origin", "*"}});
    // Answers everything: the library's routes are regular expressions, which long base URLs are too long for.
    server_->set_pre_routing_handler([this](const httplib::Request& in, httplib::Response& out) {
        OriginRequest request = Classify(in.path);
        request.host = in.get_header_value("Host");
        request.userAgent = in.get_header_value("User-Agent");
        Count(request);
        const OriginReply reply = Answer(request);
        Send(reply, out);
        RequestLog log;
        {
            const std::lock_guard lock(mutex_);
            log = log_;
        }
        if (log) {
            log(request, reply.status, reply.body ? reply.body->size() : 0);
        }
        return httplib::Server::HandlerResponse::Handled;
    });
    if (options_.port == 0) {
        port_ = server_->bind_to_any_port(options_.bind);
    } else {
        port_ = server_->bind_to_port(options_.bind, options_.port) ? options_.port : -1;
    }
    if (port_ <= 0) {
        server_.reset();
        throw OriginError("cannot listen on " + HostAndPort(options_.bind, options_.port) +
                          ": the port is in use, needs privileges, or the address is not one of this machine; "
                          "choose another --port (0 picks a free one) or --bind address");
    }
    listener_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() has no effect on a server whose thread has not come so far yet.
    while (!server_->is_running()) {
        std::this_thread::yield();
    }
}

void LiveOrigin::Stop() {
    std::set<std::shared_ptr<ReplyGate>> held;
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        held = held_;
    }
    for (const auto& gate : held) {
        gate->Open();
    }
    media_->Close();
    if (server_ && listener_.joinable()) {
        server_->CloseConnections();
        server_->stop();
        listener_.join();
    }
}

std::string LiveOrigin::ManifestUrl(const std::string& name) const {
    return "http://" + HostAndPort(options_.bind, port_) + "/" + name + std::string(kManifestExtension);
}

std::string LiveOrigin::BaseUrl(int representationId) const {
    const std::lock_guard lock(mutex_);
    return "http://" + HostAndPort(options_.bind, port_) + std::string(kMediaPath) + std::to_string(representationId) +
           "/" + style_.basePadding;
}

void LiveOrigin::Advance(std::size_t count) {
    {
        const std::lock_guard lock(mutex_);
        timeline_.Advance(count);
    }
    ForgetOldSegments();
}

void LiveOrigin::Append(std::uint32_t durationMs) {
    {
        const std::lock_guard lock(mutex_);
        timeline_.Append(durationMs);
    }
    ForgetOldSegments();
}

std::size_t LiveOrigin::AdvanceTo(std::int64_t elapsedMs) {
    std::size_t count = 0;
    {
        const std::lock_guard lock(mutex_);
        count = timeline_.AdvanceTo(elapsedMs);
    }
    ForgetOldSegments();
    return count;
}

void LiveOrigin::ForgetOldSegments() {
    std::optional<SegmentTime> oldest;
    {
        const std::lock_guard lock(mutex_);
        const std::int64_t number = timeline_.FirstNumber() - options_.graceSegments;
        oldest = timeline_.Find(number);
        std::erase_if(segmentRequests_, [&](const auto& entry) { return entry.first.second < number - kCountsKept; });
    }
    if (oldest) {
        media_->Forget(*oldest);
    }
}

LiveTimeline LiveOrigin::Timeline() const {
    const std::lock_guard lock(mutex_);
    return timeline_;
}

std::string LiveOrigin::ManifestText(const std::string& host) const {
    Manifest manifest;
    ManifestStyle style;
    {
        const std::lock_guard lock(mutex_);
        style = style_;
        manifest.segments = timeline_.Window();
        manifest.startNumber = timeline_.FirstNumber();
    }
    manifest.sets = media_->Sets();
    manifest.availabilityStart = availabilityStart_;
    manifest.minimumUpdatePeriodMs = std::ranges::min(options_.timeline.durationsMs);
    const auto longest = static_cast<std::int64_t>(std::ranges::max(options_.timeline.durationsMs));
    manifest.timeShiftBufferDepthMs = options_.timeline.windowSegments != 0
                                          ? static_cast<std::int64_t>(options_.timeline.windowSegments) * longest
                                          : options_.timeline.windowMs;
    manifest.mediaBase = "http://" + host + std::string(kMediaPath);
    return WriteManifest(manifest, style);
}

void LiveOrigin::SetStyle(ManifestStyle style) {
    const std::lock_guard lock(mutex_);
    style_ = std::move(style);
}

void LiveOrigin::SetReplyHook(ReplyHook hook) {
    const std::lock_guard lock(mutex_);
    hook_ = std::move(hook);
}

void LiveOrigin::SetRequestLog(RequestLog log) {
    const std::lock_guard lock(mutex_);
    log_ = std::move(log);
}

OriginRequest LiveOrigin::Classify(const std::string& path) const {
    OriginRequest request;
    request.path = path;
    const std::string_view view = path;
    const std::size_t lastSlash = view.rfind('/');
    if (view.ends_with(kManifestExtension) && lastSlash == 0) {
        request.kind = OriginRequest::Kind::Manifest;
    } else if (view.starts_with(kMediaPath) && lastSlash >= kMediaPath.size() &&
               ParseLeadingNumber(view.substr(kMediaPath.size()), request.representationId) &&
               ParseLeadingNumber(view.substr(lastSlash + 1), request.number)) {
        request.kind = OriginRequest::Kind::Segment;
    }
    return request;
}

void LiveOrigin::Count(OriginRequest& request) {
    {
        const std::lock_guard lock(mutex_);
        switch (request.kind) {
            case OriginRequest::Kind::Manifest:
                request.ordinal = ++manifestRequests_;
                break;
            case OriginRequest::Kind::Segment:
                request.ordinal = ++segmentRequests_[{request.representationId, request.number}];
                break;
            case OriginRequest::Kind::Other:
                request.ordinal = ++otherRequests_;
                break;
        }
    }
    counted_.notify_all();
}

OriginReply LiveOrigin::Answer(const OriginRequest& request) {
    OriginReply reply;
    switch (request.kind) {
        case OriginRequest::Kind::Manifest:
            reply.contentType = "application/dash+xml";
            reply.body =
                std::make_shared<const std::string>(ManifestText(ReachableAt(request.host, options_.bind, port_)));
            break;
        case OriginRequest::Kind::Segment:
            reply = AnswerSegment(request);
            break;
        case OriginRequest::Kind::Other:
            reply = NotFound("no such address; the manifest is at /live.mpd");
            break;
    }
    ReplyHook hook;
    {
        const std::lock_guard lock(mutex_);
        hook = hook_;
    }
    if (hook) {
        hook(request, reply);
    }
    Hold(reply.holdUntil);
    return reply;
}

OriginReply LiveOrigin::AnswerSegment(const OriginRequest& request) {
    std::optional<SegmentTime> segment;
    bool forgotten = false;
    {
        const std::lock_guard lock(mutex_);
        segment = timeline_.Find(request.number);
        forgotten = request.number < timeline_.FirstNumber() - options_.graceSegments;
    }
    if (!segment || forgotten) {
        return NotFound(forgotten ? "this segment has left the list" : "this segment does not exist yet");
    }
    OriginReply reply;
    reply.body = media_->Segment(request.representationId, *segment);
    if (!reply.body) {
        return NotFound("no such segment");
    }
    reply.contentType = ContentTypeOf(media_->Sets(), request.representationId);
    return reply;
}

void LiveOrigin::Hold(const std::shared_ptr<ReplyGate>& gate) {
    if (!gate) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            return;
        }
        held_.insert(gate);
    }
    gate->Wait();
    const std::lock_guard lock(mutex_);
    held_.erase(gate);
}

std::uint64_t LiveOrigin::ManifestRequests() const {
    const std::lock_guard lock(mutex_);
    return manifestRequests_;
}

std::uint64_t LiveOrigin::SegmentRequests(int representationId, std::int64_t number) const {
    const std::lock_guard lock(mutex_);
    const auto found = segmentRequests_.find({representationId, number});
    return found == segmentRequests_.end() ? 0 : found->second;
}

bool LiveOrigin::WaitForManifestRequests(std::uint64_t count, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return counted_.wait_for(lock, limit, [&] { return manifestRequests_ >= count; });
}

bool LiveOrigin::WaitForSegmentRequest(int representationId, std::int64_t number, std::uint64_t count,
                                       std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return counted_.wait_for(lock, limit, [&] {
        const auto found = segmentRequests_.find({representationId, number});
        return found != segmentRequests_.end() && found->second >= count;
    });
}

}  // namespace kvmpd::origin
