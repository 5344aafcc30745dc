#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string_view>

#include "platform/posix/utf8.h"
#include "platform/posix/win32_api.h"

namespace {

using namespace kvmpd::platform;

class ErrnoKept {
  public:
    ErrnoKept() = default;
    ~ErrnoKept() { errno = m_errno; }
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;

  private:
    const int m_errno = errno;
};

// While alive, a write to a pipe that nobody reads fails instead of ending the process.
class BrokenPipeIgnored {
  public:
    BrokenPipeIgnored() {
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_sigPipe);
        sigaddset(&m_sigPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_sigPipe, &m_before);
    }
    ~BrokenPipeIgnored() {
        // Ours is taken away before the mask is lifted; one that was pending already belongs to someone else.
        if (m_raised && !m_wasPending) {
            const timespec atOnce{};
            while (sigtimedwait(&m_sigPipe, nullptr, &atOnce) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    BrokenPipeIgnored(const BrokenPipeIgnored&) = delete;
    BrokenPipeIgnored& operator=(const BrokenPipeIgnored&) = delete;

    void NoteError(int error) { m_raised = m_raised || error == EPIPE; }

  private:
    sigset_t m_sigPipe;
    sigset_t m_before;
    bool m_wasPending = false;
    bool m_raised = false;
};

// Gathers a line on the stack and hands it to standard error as one write.
class LineWriter {
  public:
    LineWriter() = default;
    ~LineWriter() { Flush(); }
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    void Put(std::string_view character) {
        if (character.size() > sizeof(m_line) - m_length) {
            Flush();
        }
        std::memcpy(m_line + m_length, character.data(), character.size());
        m_length += character.size();
        if (character.back() == '\n') {
            Flush();
        }
    }

  private:
    void Flush() {
        std::string_view rest(m_line, m_length);
        while (!rest.empty()) {
            const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
            if (written >= 0) {
                rest.remove_prefix(static_cast<std::size_t>(written));
            } else if (errno != EINTR) {
                m_pipe.NoteError(errno);
                break;
            }
        }
        m_length = 0;
    }

    ErrnoKept m_errno;  // outlives the next, which makes system calls at its end
    BrokenPipeIgnored m_pipe;
    std::size_t m_length = 0;
    char m_line[4096];
};

}  // namespace

void OutputDebugStringA(LPCSTR text) {
    if (!text) {
        return;
    }
    LineWriter writer;
    for (const char& c : std::string_view(text)) {
        writer.Put({&c, 1});
    }
}

void OutputDebugStringW(LPCWSTR text) {
    if (!text) {
        return;
    }
    LineWriter writer;
    for (; *text != L'\0'; ++text) {
        const auto value = static_cast<char32_t>(*text);
        char encoded[kMaxUtf8Length];
        writer.Put({encoded, EncodeUtf8(IsScalarValue(value) ? value : kReplacementCharacter, encoded)});
    }
}
