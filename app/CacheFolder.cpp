#include "app/CacheFolder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <vector>

namespace kvmpd::app {
namespace fs = std::filesystem;

std::unique_ptr<CacheFolder> CacheFolder::Create(const std::string& parent, std::string& error) {
    std::error_code code;
    fs::path base = parent;
    if (parent.empty()) {
        const char* temporary = ::getenv("TMPDIR");
        base = temporary != nullptr && *temporary != '\0' ? temporary : "/tmp";
    }
    base = fs::absolute(base, code);
    std::string path = (base / "kvmpd-XXXXXX").string();
    if (code || ::mkdtemp(path.data()) == nullptr) {
        const int reason = code ? code.value() : errno;
        error = "no cache folder can be made in \"" + base.string() + "\": " + std::generic_category().message(reason) +
                "; give an existing folder that you may write to with --cache-dir";
        return nullptr;
    }
    return std::unique_ptr<CacheFolder>(new CacheFolder(std::move(path)));
}

void CacheFolder::Remove() const noexcept {
    // Twice: a download that still runs may create a file behind the first walk's back.
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::error_code code;
        fs::remove_all(m_path, code);
        if (!code) {
            return;
        }
    }
}

bool CacheFolder::CanBeWritten(std::string& error) const {
    // A download that failed for want of room has taken what there was of it, so this needs not be long.
    const std::vector<char> bytes(64 * 1024);
    const std::string path = m_path + "/room";
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int reason = descriptor < 0 ? errno : 0;
    for (std::size_t done = 0; reason == 0 && done < bytes.size();) {
        const ssize_t count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        reason = count < 0 && errno != EINTR ? errno : 0;
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    if (descriptor >= 0) {
        ::close(descriptor);
        ::unlink(path.c_str());
    }
    if (reason != 0) {
        error = "the cache folder \"" + m_path + "\" takes no more files: " + std::generic_category().message(reason);
    }
    return reason == 0;
}

std::optional<std::int64_t> CacheFolder::SegmentNumber(std::int64_t after, std::int64_t videoBytes) const {
    std::optional<std::int64_t> best;
    std::error_code code;
    for (fs::directory_iterator entry(m_path, code), end; !code && entry != end; entry.increment(code)) {
        if (entry->path().extension() != ".mp4") {
            continue;
        }
        const std::string stem = entry->path().stem().string();
        std::int64_t number = 0;
        const auto [last, error] = std::from_chars(stem.data(), stem.data() + stem.size(), number);
        if (error != std::errc{} || last != stem.data() + stem.size() || number <= after || (best && number >= *best)) {
            continue;
        }
        std::error_code sizeCode;
        const auto size = entry->file_size(sizeCode);
        if (!sizeCode && static_cast<std::int64_t>(size) == videoBytes) {
            best = number;
        }
    }
    return best;
}

}  // namespace kvmpd::app
