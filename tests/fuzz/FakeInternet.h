// A network without sockets: the platform's HTTP calls, answered from memory. Linked into a program, its definitions
// stand in the place of the platform's, so that everything from the filter down to the HTTP client is the real thing.
//
// Manifests and media are served from one host, any name will do. All operations may be called from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/wininet.h"

namespace kvmpd::test {

/// What goes wrong with a request.
enum class NetworkFault : std::uint8_t { kNone, kRefused, kNotFound, kTruncated, kReadFails, kEmpty, kNoLength };
inline constexpr size_t kNetworkFaults = 7;

class FakeInternet {
  public:
    /// The answer to a request.
    struct Response {
        bool sent = false;  ///< Else nobody answered.
        DWORD status = 200;
        bool announced = true;       ///< Has a Content-Length,
        std::uint64_t length = 0;    ///< this one.
        bool endsInFailure = false;  ///< The last read fails instead of saying that the body has ended.
        std::string body;
    };

    static FakeInternet& Get();

    /// As new: an empty manifest and no faults.
    void Reset();
    void SetManifest(std::string manifest);
    void SetMediaSize(size_t video, size_t audio);
    /// From now on, for the manifest and for media.
    void SetFaults(NetworkFault manifest, NetworkFault media);

    Response Answer(std::string_view path);
    /// A media file that was sent; its bytes are MediaBody's.
    struct Media {
        bool isVideo = false;
        size_t size = 0;
        bool isSpoiled = false;  ///< Not sent whole.
    };
    std::optional<Media> Find(std::uint32_t id) const;
    /// Media requests that were not answered with a whole file.
    size_t SpoiledMedia() const;

    std::atomic<int> handles{0};  ///< Sessions, connections and requests that are open.

  private:
    mutable std::mutex m_mutex;
    std::string m_manifest;
    size_t m_videoSize = 0;
    size_t m_audioSize = 0;
    NetworkFault m_manifestFault = NetworkFault::kNone;
    NetworkFault m_mediaFault = NetworkFault::kNone;
    size_t m_spoiled = 0;
    std::vector<Media> m_media;  // the first has id 1
};

}  // namespace kvmpd::test
