#include "platform/posix/wininet_transfer.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "platform/posix/win32_api.h"
#include "platform/posix/wininet_errors.h"
#include "platform/posix/wininet_limits.h"

namespace kvmpd::platform::internet {
namespace {

using Clock = std::chrono::steady_clock;

/// Keeps SIGPIPE from the calling thread while curl writes to sockets. curl would otherwise change the handler of the
/// whole process, or leave it to luck whether a peer that went away ends the program.
class SigpipeBlock {
  public:
    SigpipeBlock() {
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~SigpipeBlock() {
        const int error = errno;
        if (!m_wasPending) {
            const timespec atOnce{};
            while (sigtimedwait(&m_pipe, nullptr, &atOnce) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;

  private:
    bool m_wasPending = false;
    sigset_t m_pipe;
    sigset_t m_before;
};

void InitializeCurlOnce() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK) {
        throw std::bad_alloc();
    }
}

}  // namespace

Transfer::Transfer() {
    InitializeCurlOnce();
    m_multi.reset(curl_multi_init());
    m_easy.reset(curl_easy_init());
    if (m_multi == nullptr || m_easy == nullptr) {
        throw std::bad_alloc();
    }
}

Transfer::~Transfer() {
    const SigpipeBlock block;  // ending TLS writes to the socket
    if (m_started) {
        curl_multi_remove_handle(m_multi.get(), m_easy.get());
    }
    m_easy.reset();
    m_multi.reset();
}

DWORD Transfer::Fail(DWORD error) {
    if (m_failure == 0) {
        m_failure = error;
    }
    return m_failure;
}

void Transfer::Cancel() {
    m_cancelled = true;
    curl_multi_wakeup(m_multi.get());
}

bool Transfer::IsConnected() const {
    curl_off_t connected = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_CONNECT_TIME_T, &connected);
    return connected != 0 || m_handshaking;  // curl's time includes the handshake
}

void Transfer::CollectResult() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(m_multi.get(), &left)) {
        if (message->msg == CURLMSG_DONE) {
            m_finished = true;
            const DWORD error = ErrorOfTransfer(m_easy.get(), message->data.result);
            if (error != 0) {
                Fail(error);
            }
        }
    }
}

DWORD Transfer::Perform() {
    const SigpipeBlock block;
    int running = 0;
    if (curl_multi_perform(m_multi.get(), &running) != CURLM_OK) {
        return Fail(ERROR_INTERNET_INTERNAL_ERROR);
    }
    if (running == 0) {
        CollectResult();
    }
    return m_failure;
}

/// Lets curl go on after a callback of ours had nothing to give or no place.
DWORD Transfer::Resume() {
    m_receivePaused = false;
    m_uploadWanted = false;
    const SigpipeBlock block;
    const CURLcode result = curl_easy_pause(m_easy.get(), CURLPAUSE_CONT);
    return result == CURLE_OK ? 0 : Fail(ErrorOfTransfer(m_easy.get(), result));
}

/// Moves the request forward until `done` or its end; `timeout` bounds the silence in between.
template <class Done>
DWORD Transfer::Drive(std::chrono::milliseconds timeout, const Done& done) {
    Clock::time_point lastProgress = Clock::now();
    bool wasConnected = IsConnected();
    while (!done() && !m_finished) {
        if (m_cancelled) {
            return Fail(ERROR_INTERNET_OPERATION_CANCELLED);
        }
        m_progressed = false;
        if (Perform() != 0) {
            break;
        }
        if (m_progressed || m_finished) {
            lastProgress = Clock::now();
            continue;  // more may be there already: asking the socket costs less than waiting for it
        }
        if (done()) {
            break;
        }
        if (!wasConnected && IsConnected()) {
            wasConnected = true;
            lastProgress = Clock::now();
        }
        std::chrono::milliseconds wait = kConnectingPoll;
        if (wasConnected) {
            const auto silence = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lastProgress);
            if (silence >= timeout) {
                return Fail(ERROR_INTERNET_TIMEOUT);
            }
            wait = std::min(timeout - silence, kLongestPoll);
        }
        const CURLMcode polled = curl_multi_poll(m_multi.get(), nullptr, 0, static_cast<int>(wait.count()), nullptr);
        if (polled != CURLM_OK && errno != EINTR) {
            return Fail(ERROR_INTERNET_INTERNAL_ERROR);
        }
    }
    return m_failure;
}

DWORD Transfer::AwaitResponse() {
    if (m_failure != 0) {
        return m_failure;
    }
    const DWORD error = Drive(m_plan.receiveTimeout, [this] { return m_head.IsFinal(); });
    if (m_head.IsFinal()) {
        return 0;  // a failure of the body is told by the read that meets it
    }
    return error != 0 ? error : Fail(ERROR_HTTP_INVALID_SERVER_RESPONSE);
}

DWORD Transfer::AwaitUpload() {
    const DWORD error = Drive(m_plan.sendTimeout, [this] { return m_uploadWanted || m_head.IsFinal(); });
    return m_head.IsFinal() ? 0 : error;
}

DWORD Transfer::Write(std::span<const char> data) {
    if (m_failure != 0 && !m_head.IsFinal()) {
        return m_failure;
    }
    if (data.size() > m_plan.total.value_or(0) - m_uploaded) {
        return ERROR_INVALID_PARAMETER;
    }
    m_uploaded += data.size();
    if (data.empty() || m_head.IsFinal()) {
        return 0;
    }
    m_upload = data;
    DWORD error = Resume();
    if (error == 0) {
        error = Drive(m_plan.sendTimeout, [this] { return m_upload.empty() || m_head.IsFinal(); });
    }
    m_upload = {};
    return m_head.IsFinal() ? 0 : error;
}

DWORD Transfer::Read(std::span<char> target, size_t& count) {
    const size_t wanted = target.size();
    const size_t held = std::min(wanted, m_held.size() - m_heldTaken);
    if (held != 0) {
        std::memcpy(target.data(), m_held.data() + m_heldTaken, held);
        m_heldTaken += held;
    }
    if (m_heldTaken == m_held.size()) {
        m_held.clear();
        m_heldTaken = 0;
    }
    m_target = target.subspan(held);
    if (m_failure == 0 && !m_target.empty()) {
        if (!m_receivePaused || Resume() == 0) {
            Drive(m_plan.receiveTimeout, [this] { return m_target.empty(); });
        }
    }
    count = wanted - m_target.size();
    m_target = {};
    return count != 0 || wanted == 0 ? 0 : m_failure;
}

size_t Transfer::OnHeader(char* data, size_t size, size_t count, void* self) {
    Transfer& transfer = *static_cast<Transfer*>(self);
    transfer.m_progressed = true;
    try {
        return transfer.m_head.TakeLine({data, size * count}) ? size * count : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

size_t Transfer::OnBody(char* data, size_t size, size_t count, void* self) {
    Transfer& transfer = *static_cast<Transfer*>(self);
    const size_t bytes = size * count;
    const size_t direct = std::min(bytes, transfer.m_target.size());
    const size_t rest = bytes - direct;
    if (transfer.m_held.size() + rest > kHeldLimit) {
        transfer.m_receivePaused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    if (rest != 0) {
        try {
            transfer.m_held.insert(transfer.m_held.end(), data + direct, data + bytes);
        } catch (const std::bad_alloc&) {
            return 0;
        }
    }
    if (direct != 0) {
        std::memcpy(transfer.m_target.data(), data, direct);
        transfer.m_target = transfer.m_target.subspan(direct);
    }
    transfer.m_progressed = true;
    return bytes;
}

size_t Transfer::OnUpload(char* data, size_t size, size_t count, void* self) {
    Transfer& transfer = *static_cast<Transfer*>(self);
    const size_t bytes = std::min(size * count, transfer.m_upload.size());
    if (bytes == 0) {
        transfer.m_uploadWanted = !transfer.m_uploadEnded;
        return transfer.m_uploadEnded ? 0 : CURL_READFUNC_PAUSE;
    }
    std::memcpy(data, transfer.m_upload.data(), bytes);
    transfer.m_upload = transfer.m_upload.subspan(bytes);
    transfer.m_progressed = true;
    return bytes;
}

}  // namespace kvmpd::platform::internet
