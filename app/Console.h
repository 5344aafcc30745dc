// What the command says to people and programs: sentences, JSON lines, and one progress line. Any thread, and none is
// ever held up by who reads them.
//
// Sentences and JSON lines go to standard output, or to standard error when standard output carries the recording.
// Progress and errors go to standard error. Of a reader that pauses, progress is dropped for newer progress; the rest
// waits for it, up to some megabytes.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "app/LineWriter.h"

namespace kvmpd::app {

class Console {
  public:
    struct Options {
        bool json = false;   // JSON lines instead of sentences
        bool quiet = false;  // errors only
        bool recordingOnStdout = false;
        bool plainProgress = false;  // never refresh a line in place
        int standardOutput = 1;
        int standardError = 2;
        std::size_t mostUnread = std::size_t{16} << 20;  // bytes of either that may wait for their reader
    };

    explicit Console(const Options& options);
    // Gives readers that go on reading the time to take what is left.
    ~Console();

    bool Json() const { return m_options.json; }

    // text may have several lines; a line feed is added at its end when it has none.
    void Say(std::string_view text);
    void SayJson(std::string_view line);
    // A JSON line that is worth nothing when there is a newer one.
    void SayJsonProgress(std::string_view line);
    // Shown whatever was asked for; "kvmpd: " is put in front.
    void Error(const std::string& sentence);
    // On a terminal refreshed in place, otherwise a line every few seconds; the last one always.
    void Progress(const std::string& line, bool last);
    // Removes a progress line that stands on the terminal.
    void EndProgress();

    // Waits until everything is written, at most until then; after that, if patient, for readers that go on reading.
    // False: something is left, because a reader takes nothing.
    bool Drain(LineWriter::Clock::time_point until, bool patient);

  private:
    // All with m_mutex held.
    void ClearLine();
    void Print(int descriptor, std::string_view text, LineWriter::Kind kind = LineWriter::Kind::kLine);
    void Put(int descriptor, std::string text, LineWriter::Kind kind);
    void PrintJson(std::string_view line, LineWriter::Kind kind);
    std::string LostNotice() const;
    int Ordinary() const;
    LineWriter& WriterOf(int descriptor);

    std::int64_t SinceStartMs() const;

    const Options m_options;
    const LineWriter::Clock::time_point m_start = LineWriter::Clock::now();
    const bool m_refresh;
    LineWriter m_output;
    // None where both go to the same place, a terminal mostly, in which their order matters. Two otherwise, so that a
    // reader of the one does not hold up the other.
    std::unique_ptr<LineWriter> m_errors;

    std::mutex m_mutex;
    // Guarded by m_mutex:
    bool m_lineShown = false;
    bool m_anyProgress = false;
    LineWriter::Clock::time_point m_lastProgress;
    std::int64_t m_lost = 0;  // lines for which there was no room, and of which nothing has been said
};

}  // namespace kvmpd::app
