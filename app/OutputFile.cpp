#include "app/OutputFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <utility>

namespace kvmpd::app {
namespace {

std::string ErrnoText(int error) {
    return std::generic_category().message(error);
}

// A pipe that nobody reads holds a thread that opens it in the usual way, where no stop reaches it. -1 with errno;
// ECANCELED: waitForReader ended it.
int OpenExisting(const std::string& path, mode_t mode, const OutputFile::Wait& waitForReader) {
    constexpr std::chrono::milliseconds kLookAgain{100};
    const int notBlocking = S_ISREG(mode) ? 0 : O_NONBLOCK;  // writes wait in WaitWritable
    for (;;) {
        const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | notBlocking);
        if (descriptor >= 0 || errno != ENXIO || !S_ISFIFO(mode) || !waitForReader) {
            return descriptor;
        }
        if (!waitForReader(kLookAgain)) {
            errno = ECANCELED;
            return -1;
        }
    }
}

std::string OpenErrorText(const std::string& path, int error) {
    const std::string start = "cannot write \"" + path + "\": ";
    switch (error) {
        case EEXIST:
            return start + "it exists already; give another name, or --overwrite to replace it";
        case ENOENT:
            return start + "its folder does not exist; create the folder or give another name";
        case EACCES:
        case EPERM:
        case EROFS:
            return start + ErrnoText(error) + "; give a name in a folder that you may write to";
        case EISDIR:
            return start + "it is a folder; give the name of a file";
        case ENXIO:
            return start + "nobody reads it; start its reader first";
        default:
            return start + ErrnoText(error);
    }
}

}  // namespace

OutputFile::OutputFile(std::string path, int descriptor, bool created)
    : m_path(std::move(path)), m_descriptor(descriptor), m_created(created) {
    struct stat info {};
    m_seekable = ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
    m_linked = m_seekable && info.st_nlink > 0;
}

bool OutputFile::Removed() const {
    struct stat info {};
    return m_linked && !m_standardOutput && ::fstat(m_descriptor, &info) == 0 && info.st_nlink == 0;
}

void OutputFile::RequestStop() {
    std::chrono::steady_clock::time_point never{};
    m_stopAt.compare_exchange_strong(never, std::chrono::steady_clock::now());
}

OutputFile::~OutputFile() {
    Discard();
    ::close(m_descriptor);
}

void OutputFile::Discard() {
    if (m_created && !m_keep) {
        ::unlink(m_path.c_str());
    }
}

std::unique_ptr<OutputFile> OutputFile::Open(const std::string& path, bool overwrite, std::string& error,
                                             const Wait& waitForReader) {
    if (path == "-") {
        if (::isatty(STDOUT_FILENO) != 0) {
            error = "standard output is a terminal, which cannot show Matroska; pipe it to a player or give -o FILE";
            return nullptr;
        }
        const int copy = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        if (copy < 0) {
            error = "standard output cannot be written: " + ErrnoText(errno);
            return nullptr;
        }
        std::unique_ptr<OutputFile> output(new OutputFile(path, copy, /*created=*/false));
        output->m_standardOutput = true;
        // Another program may have the file open for appending, or may have written a part of it: take it as a stream.
        output->m_seekable = false;
        return output;
    }
    int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    const bool created = descriptor >= 0;
    struct stat info {};
    if (!created && errno == EEXIST && ::stat(path.c_str(), &info) == 0 && (overwrite || !S_ISREG(info.st_mode))) {
        descriptor = OpenExisting(path, info.st_mode, waitForReader);
        if (descriptor < 0 && errno == ECANCELED) {
            return nullptr;
        }
    }
    if (descriptor < 0) {
        error = OpenErrorText(path, errno);
        return nullptr;
    }
    return std::unique_ptr<OutputFile>(new OutputFile(path, descriptor, created));
}

bool OutputFile::Fail(const char* what, int error) {
    if (error == EPIPE) {
        m_state = State::kReaderGone;
    } else {
        m_state = State::kFailed;
        m_error = std::string(what) + " \"" + m_path + "\" failed: " + ErrnoText(error);
    }
    return false;
}

// A pipe whose reader is slow holds the recording up, which is right: the cache waits behind it. Only when the
// recording is being ended, a reader that takes nothing for a moment is given up: the stop as a whole, with the closing
// of the source behind this, is promised within two seconds.
bool OutputFile::WaitWritable() {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kSlice{100};  // in which a stop is noticed
    const Clock::time_point begin = Clock::now();
    for (;;) {
        std::chrono::milliseconds wait = kSlice;
        if (const Clock::time_point asked = m_stopAt; asked != Clock::time_point{}) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(std::max(asked, begin) + kStopGrace - Clock::now());
            wait = std::clamp(left, std::chrono::milliseconds(0), kSlice);
        }
        pollfd entry{m_descriptor, POLLOUT, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(wait.count()));
        if (ready > 0) {
            return true;  // an error condition shows in the write that follows
        }
        if (ready < 0 && errno != EINTR) {
            return Fail("waiting for", errno);
        }
        if (ready == 0 && wait == std::chrono::milliseconds(0)) {
            m_state = State::kReaderGone;
            return false;
        }
    }
}

// What an overwritten file held goes when the first of the new is there.
bool OutputFile::EmptyOnce() {
    if (m_seekable && !m_created && !m_truncated) {
        if (::ftruncate(m_descriptor, 0) != 0) {
            return Fail("emptying", errno);
        }
        m_truncated = true;
    }
    return true;
}

bool OutputFile::Write(std::span<const std::uint8_t> bytes) {
    if (m_state != State::kGood) {
        return false;
    }
    if (!EmptyOnce()) {
        return false;
    }
    // A blocking write to a pipe may sleep for longer than the room that poll promised; within PIPE_BUF it does not.
    constexpr std::size_t kPipePiece = 4096;
    while (!bytes.empty()) {
        if (!m_seekable && !WaitWritable()) {
            return false;
        }
        const std::size_t piece = m_seekable ? bytes.size() : std::min(bytes.size(), kPipePiece);
        const ssize_t written = ::write(m_descriptor, bytes.data(), piece);
        if (written < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            return Fail("writing", errno);
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        m_position += written;
        m_size = std::max(m_size, m_position);
    }
    return true;
}

bool OutputFile::Reserve(std::int64_t size) {
    constexpr std::int64_t kAhead = 4 << 20;
    if (!m_seekable || !m_canReserve || size <= m_reserved || m_state != State::kGood) {
        return true;
    }
    if (!EmptyOnce()) {
        return false;
    }
    // The size of the file stays what was written of it.
    const std::int64_t from = std::max(m_reserved, m_size);
    for (const std::int64_t ahead : {kAhead, std::int64_t{0}}) {
        if (::fallocate(m_descriptor, FALLOC_FL_KEEP_SIZE, from, size + ahead - from) == 0) {
            m_reserved = size + ahead;
            return true;
        }
        if (errno == EINTR) {
            return true;  // the next packet asks again
        }
        if (errno != ENOSPC && errno != EDQUOT && errno != EFBIG) {
            m_canReserve = false;  // this file system does not know how; a full disk shows in a write
            return true;
        }
    }
    m_error = "writing \"" + m_path + "\" failed: " + ErrnoText(errno);
    return false;
}

void OutputFile::EndReserve() {
    // To its own size: that frees what lies beyond. When it fails, some space stays taken until the file is removed.
    if (m_reserved > m_size && ::ftruncate(m_descriptor, m_size) == 0) {
        m_reserved = m_size;
    }
}

bool OutputFile::Seek(std::int64_t position) {
    if (::lseek(m_descriptor, position, SEEK_SET) < 0) {
        return Fail("positioning in", errno);
    }
    m_position = position;
    return true;
}

}  // namespace kvmpd::app
