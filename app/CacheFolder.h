// The private folder in which the component keeps its cache files while a command runs: made with mode 0700, removed
// with all it holds at the end.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kvmpd::app {

class CacheFolder {
  public:
    // parent: an existing folder; empty: where temporary files go (TMPDIR, else /tmp). Null, with error in words, when
    // no folder can be made there.
    static std::unique_ptr<CacheFolder> Create(const std::string& parent, std::string& error);

    ~CacheFolder() { Remove(); }
    CacheFolder(const CacheFolder&) = delete;
    CacheFolder& operator=(const CacheFolder&) = delete;

    const std::string& Path() const { return m_path; }

    // Any thread, any number of times.
    void Remove() const noexcept;

    // Whether files can be written in it: makes one of some length and removes it. False, with error in words, when the
    // disk is full, the folder is gone ...
    bool CanBeWritten(std::string& error) const;

    // The number of the segment whose video has this many bytes: the lowest above `after` among the cache files, which
    // are named by it. Nothing when no file fits.
    std::optional<std::int64_t> SegmentNumber(std::int64_t after, std::int64_t videoBytes) const;

  private:
    explicit CacheFolder(std::string path) : m_path(std::move(path)) {}

    const std::string m_path;  // absolute
};

}  // namespace kvmpd::app
