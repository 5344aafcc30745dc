// A live origin on loopback that misbehaves by plan: one fault, at one target, for one duration. Everything else it
// answers correctly. Manifest, audio and video have a port each, so that a fault can strike a connection before its
// request is known.
//
// The live edge does not follow the clock but the requests: each manifest that is asked for lists kSegmentsPerReload
// segments more than the one before. That is the pace of a live stream of kSegment each, as the component asks once a
// second, and it makes "ten segments" the same ten segments on every machine.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/faults/CompressedTime.h"
#include "tests/faults/FaultTable.h"
#include "tests/faults/Ledger.h"
#include "tests/support/Sockets.h"

namespace kvmpd::test {

struct FaultCase {
    FaultKind kind;
    Target target;
    Duration duration;
};

class FaultOrigin {
  public:
    /// `folder`: holds the sources' cache folders, for the faults of the disk. `settledThrough(number)` waits until the
    /// consumer has read every segment before `number` or knows it lost; it is asked before the folder goes away.
    FaultOrigin(const FaultCase& fault, std::filesystem::path folder, std::function<void(int number)> settledThrough);
    ~FaultOrigin();
    FaultOrigin(const FaultOrigin&) = delete;
    FaultOrigin& operator=(const FaultOrigin&) = delete;

    /// The address for the next of the host's sources, by which its requests are told from the others'. Where a name is
    /// struck, it and all of the origin's others have names.
    std::string NextUrl();
    /// The cache folder that this source is to have.
    std::filesystem::path CacheFolder(int source) const;
    Ledger Snapshot() const;
    /// From now on every manifest ends at the same segment.
    void Freeze();
    /// The files that the origin put into the cache folder.
    std::vector<std::filesystem::path> ForeignFiles() const;
    /// Puts the cache folder back if it is gone; whether it was.
    bool RestoreFolder();
    /// How many files there are in this source's cache folder. A folder that is looked into cannot be taken away on
    /// every system, so that the two do not happen at the same time.
    size_t CountFiles(int source) const;
    /// Where the cache folder is while it is gone.
    std::filesystem::path HiddenFolder() const;
    /// Ends the trickle that has no end: the rest of each body is sent at once.
    void Release();

    /// The number of the first segment that a segment's fault strikes.
    static constexpr int kFirstFaulted = 109;
    /// How many segments behind the edge the host starts.
    static constexpr int kDelay = 1;

  private:
    struct Connection;
    struct Door;
    struct Place {  // in the ledger
        Target door;
        size_t index;
    };

    void AcceptLoop(Door& door);
    void Reap();
    void Serve(Door& door, Connection& connection);
    bool Converse(Door& door, Socket& socket, Place& place);
    bool ServeRequest(Door& door, ByteConnection& stream, Place& place);
    bool ServeManifest(ByteConnection& stream, int source, Place& place);
    bool ServeSegment(Door& door, ByteConnection& stream, int source, int number, Place& place);
    /// Answers with the fault; whether the connection is to be reset.
    bool Misbehave(Door& door, ByteConnection& stream, const std::string& body);
    void StrikeDisk(Door& door, int source, int number);
    void WaitForClient(ByteConnection& stream);
    void Pause(milliseconds time);
    /// Sends one byte after the other, from `from` on, until it is released.
    void Trickle(ByteConnection& stream, const std::string& body, size_t from);
    void StandIn(Door& door);
    bool StrikesOnTheWay(Door& door);
    void Finish(const Place& place);

    bool StrikesConnection(Door& door, Place& place);
    bool StrikesManifest(size_t index) const;
    bool StrikesSegment(Target door, int number);
    SegmentFetch& At(const Place& place);
    std::filesystem::path CacheFile(Target door, int source, int number) const;
    std::string ManifestText(const ManifestFetch& fetch, bool faulted) const;
    std::string HostOf(const Door& door) const;
    std::string DoorUrl(Target door) const;

    const FaultCase m_fault;
    const std::filesystem::path m_folder;
    const std::function<void(int)> m_settledThrough;
    const bool m_secure;
    ConnectionWrap m_goodTls;
    ConnectionWrap m_badTls;

    mutable std::mutex m_mutex;  // guards all that follows, except the doors' own threads
    std::condition_variable m_changed;
    Ledger m_ledger;
    int m_edge;
    bool m_frozen = false;
    bool m_onceUsed = false;
    bool m_ending = false;
    bool m_folderHidden = false;
    bool m_released = false;
    int m_sources = 0;
    int m_expected =
        0;  // before a request: the number that the faulted door will be asked for next, 0 before the first
    int m_attempts = 0;  // and the attempts made for it
    std::optional<std::chrono::steady_clock::time_point> m_faultEnd;
    std::vector<std::filesystem::path> m_foreign;
    std::vector<std::unique_ptr<Connection>> m_connections;

    std::vector<std::unique_ptr<Door>> m_doors;  // one for the manifest, one for audio, one for video
};

/// The bytes of a segment: no two segments and no two places in one are alike.
std::string SegmentBody(Target door, int number);

}  // namespace kvmpd::test
