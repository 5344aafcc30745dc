#include "tests/faults/FaultOrigin.h"

#include <array>
#include <cstdlib>
#include <utility>

#include "tests/faults/Answers.h"
#include "tests/faults/FaultOriginDoor.h"
#include "tests/faults/PlatformList.h"

namespace kvmpd::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFirstEdge = 107;
/// As long as the longest outage that a client is to survive, and more.
constexpr int kWindow = 24;
/// A jump is further than a window, so that numbers are never listed.
constexpr int kJumpWindow = 5;
constexpr int kJump = 6;
constexpr int kBackwards = 3;
constexpr int kHoleFromEnd = 3;
constexpr size_t kHugeManifest = 3 * 1024 * 1024;

std::string ReadHead(ByteConnection& stream) {
    std::string text;
    std::array<char, 4096> piece;
    while (text.find("\r\n\r\n") == std::string::npos) {
        const size_t count = stream.Receive(piece.data(), piece.size());
        if (count == 0) {
            return {};
        }
        text.append(piece.data(), count);
    }
    return text;
}

std::string PathOf(const std::string& head) {
    const size_t begin = head.find(' ') + 1;
    return head.substr(begin, head.find(' ', begin) - begin);
}

constexpr char kDomain[] = ".faults.test";

}  // namespace

FaultOrigin::FaultOrigin(const FaultCase& fault, std::filesystem::path folder, std::function<void(int)> settledThrough)
    : m_fault(fault),
      m_folder(std::move(folder)),
      m_settledThrough(std::move(settledThrough)),
      m_secure(IsTls(fault.kind)),
      m_edge(kFirstEdge) {
    if (m_secure) {
        m_goodTls = GoodTls();
        m_badTls = BadTls(fault.kind);
    }
    for (const Target target : {Target::kManifest, Target::kAudio, Target::kVideo}) {
        m_doors.push_back(std::make_unique<Door>(target));
    }
    for (const auto& door : m_doors) {
        door->thread = std::thread([this, &door = *door] { AcceptLoop(door); });
        StandIn(*door);
    }
}

FaultOrigin::~FaultOrigin() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
        for (const auto& connection : m_connections) {
            if (connection->socket) {
                connection->socket->Interrupt();
            }
        }
        m_changed.notify_all();
    }
    for (const auto& door : m_doors) {
        door->listener.Interrupt();
        door->thread.join();
    }
    for (const auto& connection : m_connections) {
        connection->thread.join();
    }
    for (const auto& door : m_doors) {
        door->name.reset();
        door->port.reset();
    }
    RestoreFolder();
}

std::string FaultOrigin::HostOf(const Door& door) const {
    // A name is one origin's, and so its port's: another cell's is another name.
    return StrikesTheName(m_fault.kind) ? "p" + std::to_string(door.listener.Port()) + kDomain : "127.0.0.1";
}

std::string FaultOrigin::DoorUrl(Target door) const {
    for (const auto& one : m_doors) {
        if (one->target == door) {
            return (m_secure ? "https://" : "http://") + HostOf(*one) + ":" + std::to_string(one->listener.Port()) +
                   "/";
        }
    }
    return {};
}

std::string FaultOrigin::NextUrl() {
    const std::lock_guard lock(m_mutex);
    return DoorUrl(Target::kManifest) + std::to_string(++m_sources) + "/live.mpd";
}

std::filesystem::path FaultOrigin::CacheFolder(int source) const {
    return m_folder / std::to_string(source);
}

std::filesystem::path FaultOrigin::HiddenFolder() const {
    return m_folder / "gone";
}

void FaultOrigin::Release() {
    const std::lock_guard lock(m_mutex);
    m_released = true;
    m_changed.notify_all();
}

Ledger FaultOrigin::Snapshot() const {
    const std::lock_guard lock(m_mutex);
    return m_ledger;
}

void FaultOrigin::Freeze() {
    const std::lock_guard lock(m_mutex);
    m_frozen = true;
}

std::vector<std::filesystem::path> FaultOrigin::ForeignFiles() const {
    const std::lock_guard lock(m_mutex);
    return m_foreign;
}

bool FaultOrigin::RestoreFolder() {
    const std::lock_guard lock(m_mutex);
    if (!m_folderHidden) {
        return false;
    }
    std::error_code error;
    std::filesystem::rename(HiddenFolder(), CacheFolder(m_sources), error);
    m_folderHidden = static_cast<bool>(error);  // something is in its place: the cell will complain of it
    return true;
}

void FaultOrigin::AcceptLoop(Door& door) {
    while (std::unique_ptr<Socket> socket = door.listener.Accept()) {
        Reap();
        const std::lock_guard lock(m_mutex);
        if (m_ending) {
            return;
        }
        m_connections.push_back(std::make_unique<Connection>());
        Connection& connection = *m_connections.back();
        connection.socket = std::move(socket);
        connection.thread = std::thread([this, &door, &connection] { Serve(door, connection); });
    }
}

void FaultOrigin::Reap() {
    std::vector<std::unique_ptr<Connection>> ended;
    {
        const std::lock_guard lock(m_mutex);
        for (auto& connection : m_connections) {
            if (connection->ended && !m_ending) {
                ended.push_back(std::move(connection));
            }
        }
        std::erase(m_connections, nullptr);
    }
    for (const auto& connection : ended) {
        connection->thread.join();
    }
}

void FaultOrigin::Serve(Door& door, Connection& connection) {
    Place place{door.target, SIZE_MAX};
    const bool reset = Converse(door, *connection.socket, place);
    const std::lock_guard lock(m_mutex);
    connection.socket->Close(reset);
    connection.socket.reset();
    connection.ended = true;
    if (place.index != SIZE_MAX) {
        Finish(place);
    }
}

/// Nothing more is sent for this entry of the ledger. With m_mutex held.
void FaultOrigin::Finish(const Place& place) {
    if (place.door == Target::kManifest) {
        m_ledger.manifests[place.index].finished = true;
    } else {
        At(place).finished = true;
    }
}

/// One connection from its first byte on; whether it is to be reset.
bool FaultOrigin::Converse(Door& door, Socket& socket, Place& place) {
    if (!m_secure) {
        return ServeRequest(door, socket, place);
    }
    const bool struck = StrikesConnection(door, place);
    const std::unique_ptr<ByteConnection> wrapped = (struck ? m_badTls : m_goodTls)(socket);
    if (wrapped == nullptr) {
        return false;
    }
    const bool reset = ServeRequest(door, *wrapped, place);
    wrapped->Close(reset);
    return reset;
}

bool FaultOrigin::ServeRequest(Door& door, ByteConnection& stream, Place& place) {
    const std::string head = ReadHead(stream);
    if (head.empty()) {
        return false;
    }
    const std::string path = PathOf(head);
    if (path == "/loop") {
        {
            const std::lock_guard lock(m_mutex);
            ++m_ledger.redirectHops;
        }
        stream.Send(RedirectAnswer(DoorUrl(door.target) + "loop"));
        return false;
    }
    {
        const std::lock_guard lock(m_mutex);
        if (const auto awaited = std::exchange(door.awaited, std::nullopt)) {
            place = *awaited;
        }
    }
    // "/<source>/live.mpd" and "/<source>/<number>.mp4"
    const int source = std::atoi(path.c_str() + 1);
    return door.target == Target::kManifest
               ? ServeManifest(stream, source, place)
               : ServeSegment(door, stream, source, std::atoi(path.c_str() + path.rfind('/') + 1), place);
}

bool FaultOrigin::ServeManifest(ByteConnection& stream, int source, Place& place) {
    ManifestFetch fetch;
    {
        const std::lock_guard lock(m_mutex);
        if (place.index == SIZE_MAX) {  // else the connection was struck, and came through all the same
            place.index = m_ledger.manifests.size();
            m_ledger.manifests.emplace_back();
        }
        fetch.source = source;
        fetch.at = Clock::now();
        fetch.faulted = m_ledger.manifests[place.index].faulted ||
                        (!StrikesBeforeRequest(m_fault.kind) && StrikesManifest(place.index));
        fetch.effect = fetch.faulted ? EffectOf(m_fault.kind, m_fault.target) : Effect::kTaken;
        if (place.index != 0 && !m_frozen) {
            m_edge += kSegmentsPerReload;
        }
        const bool jumps = m_fault.kind == FaultKind::kNumberJump;
        fetch.count = jumps ? kJumpWindow : kWindow;
        fetch.first = m_edge - fetch.count + 1;
        if (fetch.faulted && jumps) {
            fetch.first += kJump;
        } else if (fetch.faulted && m_fault.kind == FaultKind::kEdgeBackwards) {
            fetch.first = kFirstEdge - kBackwards - fetch.count + 1;
        } else if (fetch.faulted && m_fault.kind == FaultKind::kHole) {
            fetch.hole = fetch.count - kHoleFromEnd;
        }
        m_ledger.manifests[place.index] = fetch;
    }
    const std::string text = ManifestText(fetch, fetch.faulted);
    if (fetch.faulted && !ChangesOnlyTheText(m_fault.kind) && m_fault.kind != FaultKind::kNameSlow) {
        return Misbehave(*m_doors.front(), stream, text);
    }
    stream.Send(GoodAnswer("application/dash+xml", text));
    return false;
}

std::string FaultOrigin::ManifestText(const ManifestFetch& fetch, bool faulted) const {
    ManifestForm form;
    form.first = fetch.first;
    form.count = fetch.count;
    form.hole = fetch.hole;
    form.audioBase = DoorUrl(Target::kAudio) + std::to_string(fetch.source) + "/";
    form.videoBase = DoorUrl(Target::kVideo) + std::to_string(fetch.source) + "/";
    if (faulted) {
        form.template_ = m_fault.kind == FaultKind::kOtherShape;
        form.emptyTimeline = m_fault.kind == FaultKind::kEmptyTimeline;
        form.padding = m_fault.kind == FaultKind::kHugeManifest ? kHugeManifest : 0;
    }
    std::string text = WriteManifest(form);
    if (faulted && m_fault.kind == FaultKind::kMalformedXml) {
        text.resize(text.size() / 2);
    }
    return text;
}

bool FaultOrigin::ServeSegment(Door& door, ByteConnection& stream, int source, int number, Place& place) {
    bool struck = false;
    const std::string body = SegmentBody(door.target, number);
    {
        const std::lock_guard lock(m_mutex);
        std::vector<SegmentFetch>& list = door.target == Target::kAudio ? m_ledger.audio : m_ledger.video;
        if (place.index == SIZE_MAX) {
            place.index = list.size();
            list.emplace_back();
        }
        struck = !StrikesBeforeRequest(m_fault.kind) && StrikesSegment(door.target, number);
        SegmentFetch& fetch = At(place);
        fetch.source = source;
        fetch.number = number;
        fetch.faulted = fetch.faulted || struck;
        fetch.effect = fetch.faulted ? EffectOf(m_fault.kind, m_fault.target) : Effect::kTaken;
        fetch.body = std::make_shared<const std::string>(struck ? KeptOf(m_fault.kind, body) : body);
        if (m_fault.target == door.target) {
            m_expected = number + 1;
            m_attempts = 0;
        }
    }
    if (struck && (m_fault.kind == FaultKind::kFolderGone || m_fault.kind == FaultKind::kFileThere)) {
        StrikeDisk(door, source, number);
    } else if (m_fault.kind == FaultKind::kFolderGone) {
        RestoreFolder();
    }
    std::error_code ignored;
    const bool there = std::filesystem::exists(CacheFile(door.target, source, number), ignored);
    {
        const std::lock_guard lock(m_mutex);
        At(place).fileThere = there;
    }
    if (struck && !IsDisk(m_fault.kind)) {
        return Misbehave(door, stream, body);
    }
    stream.Send(GoodAnswer("video/mp4", body));
    return false;
}

bool FaultOrigin::Misbehave(Door& door, ByteConnection& stream, const std::string& body) {
    switch (m_fault.kind) {
        case FaultKind::kRedirectToClosedPort:
            stream.Send(RedirectAnswer("http://127.0.0.1:" + std::to_string(RefusedPort()) + "/"));
            return false;
        case FaultKind::kRedirectLoop:
            stream.Send(RedirectAnswer(DoorUrl(door.target) + "loop"));
            return false;
        case FaultKind::kResetBeforeStatus:
            return true;
        case FaultKind::kResetMidBody:
            stream.Send(HalfAnswer(body));
            // A reset overtakes what the client has not taken from its socket yet; half a body is to arrive.
            std::this_thread::sleep_for(milliseconds(30));
            return true;
        case FaultKind::kStallBeforeBody:
            stream.Send(HeadOnly(body));
            WaitForClient(stream);
            return false;
        case FaultKind::kStallMidBody:
            stream.Send(HalfAnswer(body));
            WaitForClient(stream);
            return false;
        case FaultKind::kStallThatEnds:
            stream.Send(HeadOnly(body));
            Pause(kPause);
            stream.Send(body.substr(0, body.size() / 2));
            Pause(kPause);
            stream.Send(body.substr(body.size() / 2));
            return false;
        case FaultKind::kTrickle: {
            const size_t quick = body.size() - kTrickledBytes;
            bool open = stream.Send(HeadOnly(body) + body.substr(0, quick));
            for (size_t at = quick; open && at < body.size(); ++at) {
                Pause(kTricklePace);
                open = stream.Send(body.substr(at, 1));
            }
            return false;
        }
        case FaultKind::kEndlessTrickle: {
            const size_t quick = body.size() / kEndlessFrom;
            stream.Send(HeadOnly(body) + body.substr(0, quick));
            Trickle(stream, body, quick);
            return false;
        }
        default:
            stream.Send(WrongAnswer(m_fault.kind, body));
            return false;
    }
}

void FaultOrigin::Trickle(ByteConnection& stream, const std::string& body, size_t from) {
    std::unique_lock lock(m_mutex);
    bool open = true;
    while (open && from < body.size() &&
           !m_changed.wait_for(lock, kEndlessPace, [this] { return m_released || m_ending; })) {
        lock.unlock();
        open = stream.Send(body.substr(from++, 1));
        lock.lock();
    }
    lock.unlock();
    stream.Send(body.substr(from));
}

/// Sends nothing for so long, or until the origin ends.
void FaultOrigin::Pause(milliseconds time) {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, time, [this] { return m_ending; });
}

/// Returns when the client has given up.
void FaultOrigin::WaitForClient(ByteConnection& stream) {
    char byte = 0;
    while (stream.Receive(&byte, 1) != 0) {
    }
}

SegmentFetch& FaultOrigin::At(const Place& place) {
    return (place.door == Target::kAudio ? m_ledger.audio : m_ledger.video)[place.index];
}

std::filesystem::path FaultOrigin::CacheFile(Target door, int source, int number) const {
    return CacheFolder(source) / (std::to_string(number) + (door == Target::kAudio ? ".m4a" : ".mp4"));
}

std::string SegmentBody(Target door, int number) {
    const bool audio = door == Target::kAudio;
    std::string body = (audio ? "audio " : "video ") + std::to_string(number) + "\n";
    auto state = static_cast<std::uint32_t>(number * 2 + (audio ? 1 : 0));
    const size_t size = (audio ? 600 : 6000) + static_cast<size_t>(number);
    while (body.size() < size) {
        state = state * 1664525U + 1013904223U;
        body += static_cast<char>(state >> 24);
    }
    return body;
}

}  // namespace kvmpd::test
