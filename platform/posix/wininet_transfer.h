// One HTTP request in libcurl's hands, moved forward only while a caller waits for something.
#ifndef PLATFORM_POSIX_WININET_TRANSFER_H_
#define PLATFORM_POSIX_WININET_TRANSFER_H_

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/posix/wininet_api.h"
#include "platform/posix/wininet_headers.h"
#include "platform/posix/wininet_trust.h"

namespace kvmpd::platform::internet {

/// Where a request goes and how.
struct TransferPlan {
    std::string url;
    std::string verb;
    std::string agent;
    std::string headers;                 ///< the caller's header lines
    std::string body;                    ///< sent with the head
    std::optional<std::uint64_t> total;  ///< instead: the length of a body that Write delivers
    bool secure = false;
    /// Nothing: as the environment says. Empty: no proxy. Else this proxy, unless the host is in `proxyBypass`.
    std::optional<std::string> proxy;
    std::string proxyBypass;
    std::chrono::milliseconds receiveTimeout{30000};
    std::chrono::milliseconds sendTimeout{30000};
};

/// Used by one thread at a time, except Cancel. Every operation returns 0 or an error number; a failure is final: each
/// later operation returns it again.
class Transfer {
  public:
    Transfer();  // throws std::bad_alloc
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    /// Hands the request to curl. Throws std::bad_alloc.
    DWORD Start(TransferPlan plan);
    /// Runs until the final response's headers are there.
    DWORD AwaitResponse();
    /// Runs until the server has accepted the head of a request whose body Write delivers.
    DWORD AwaitUpload();
    /// Sends part of the announced body.
    DWORD Write(std::span<const char> data);
    void EndUpload() { m_uploadEnded = true; }
    /// Fills `target` unless the body ends or fails before; `count` is what came. 0 bytes without an error is the end.
    DWORD Read(std::span<char> target, size_t& count);

    const ResponseHead& Head() const { return m_head; }
    bool HasResponse() const { return m_head.IsFinal() && m_started; }

    /// Ends the operation in progress and all later ones with ERROR_INTERNET_OPERATION_CANCELLED. Any thread.
    void Cancel();

  private:
    template <class Done>
    DWORD Drive(std::chrono::milliseconds timeout, const Done& done);
    DWORD Perform();
    DWORD Resume();
    void CollectResult();
    /// Whether time counts against the receive time-out: the connection stands.
    bool IsConnected() const;
    DWORD Fail(DWORD error);

    CURLcode SetAddress();
    CURLcode SetRequest();
    CURLcode SetBody();
    CURLcode SetProxy();
    CURLcode SetTrust();

    static size_t OnHeader(char* data, size_t size, size_t count, void* self);
    static size_t OnBody(char* data, size_t size, size_t count, void* self);
    static size_t OnUpload(char* data, size_t size, size_t count, void* self);
    static CURLcode OnTlsContext(CURL* easy, void* context, void* self);

    struct CloseMulti {
        void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
    };
    struct CloseEasy {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };

    // A multi handle of its own, so that no connection outlives the request.
    std::unique_ptr<CURLM, CloseMulti> m_multi;
    std::unique_ptr<CURL, CloseEasy> m_easy;
    HeaderList m_headerList{nullptr, &curl_slist_free_all};
    std::shared_ptr<X509_STORE> m_trust;
    TransferPlan m_plan;
    ResponseHead m_head;

    bool m_started = false;
    bool m_finished = false;     // curl has nothing more to do
    bool m_progressed = false;   // something came or went since this was last cleared
    bool m_handshaking = false;  // a TLS handshake has begun, so there is a connection
    bool m_receivePaused = false;
    DWORD m_failure = 0;
    std::atomic<bool> m_cancelled{false};

    std::span<char> m_target;  // what is left to fill of the buffer of the Read in progress
    std::vector<char> m_held;  // body bytes that had no place there
    size_t m_heldTaken = 0;    // how many of them have been delivered

    std::span<const char> m_upload;  // what is left to send of the block of the Write in progress
    std::uint64_t m_uploaded = 0;
    bool m_uploadWanted = false;  // curl waits for the next block
    bool m_uploadEnded = false;
};

}  // namespace kvmpd::platform::internet

#endif  // PLATFORM_POSIX_WININET_TRANSFER_H_
