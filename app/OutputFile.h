// Where the recording goes: a file, or standard output. One thread writes; RequestStop may be called from any thread.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace kvmpd::app {

class OutputFile {
  public:
    enum class State { kGood, kReaderGone, kFailed };

    // Called when a named pipe has no reader yet, which is looked for again and again. Waits for about so long; false:
    // look no more.
    using Wait = std::function<bool(std::chrono::milliseconds)>;

    // path: "-" is standard output. overwrite: replace a file that is there. An existing file is left as it is until
    // the first byte is written. Nothing, with error in words, when it cannot be written; error is empty when
    // waitForReader ended it. Never blocks by itself.
    static std::unique_ptr<OutputFile> Open(const std::string& path, bool overwrite, std::string& error,
                                            const Wait& waitForReader = {});

    // Without a Keep before it, removes the file if this object created it.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool Write(std::span<const std::uint8_t> bytes);
    // From the start of the file. Only for a seekable output.
    bool Seek(std::int64_t position);
    // Makes sure that the file can grow to this size, where the file system can promise that. False, with the reason in
    // Error, when the disk is too full; what was promised before is still there to be written.
    bool Reserve(std::int64_t size);
    // Gives back what was reserved and not written.
    void EndReserve();

    bool Seekable() const { return m_seekable; }
    bool ToStandardOutput() const { return m_standardOutput; }

    std::int64_t Position() const { return m_position; }
    // The size so far: one past the last byte written.
    std::int64_t Size() const { return m_size; }

    // The file is worth keeping: it holds media.
    void Keep() { m_keep = true; }
    // Removes the file if this object created it and nothing is worth keeping.
    void Discard();
    // From now on a reader of a pipe that takes nothing is waited for only a little longer, kStopGrace.
    void RequestStop();
    static constexpr std::chrono::milliseconds kStopGrace{800};

    // Whether somebody has removed the file, so that what is written is lost. Any thread.
    bool Removed() const;

    State GetState() const { return m_state; }
    // Why writing failed, in words.
    const std::string& Error() const { return m_error; }
    const std::string& Path() const { return m_path; }

  private:
    OutputFile(std::string path, int descriptor, bool created);
    bool Fail(const char* what, int error);
    bool EmptyOnce();
    bool WaitWritable();

    const std::string m_path;
    const int m_descriptor;
    const bool m_created;
    bool m_linked = false;  // it had a name when it was opened
    bool m_standardOutput = false;
    bool m_seekable = false;
    bool m_truncated = false;  // whether what an overwritten file held is gone
    bool m_canReserve = true;
    std::int64_t m_reserved = 0;
    std::int64_t m_position = 0;
    std::int64_t m_size = 0;
    std::atomic<bool> m_keep = false;
    // When the stop was asked for; the clock's zero: not yet. Any thread writes, the writing thread reads.
    std::atomic<std::chrono::steady_clock::time_point> m_stopAt{};
    State m_state = State::kGood;
    std::string m_error;
};

}  // namespace kvmpd::app
