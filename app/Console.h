// What the command says to people and programs: sentences, JSON lines, and one progress line. Any thread.
//
// Sentences and JSON lines go to standard output, or to standard error when standard output carries the recording.
// Progress and errors go to standard error.

#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace kvmpd::app {

class Console {
  public:
    struct Options {
        bool json = false;   // JSON lines instead of sentences
        bool quiet = false;  // errors only
        bool recordingOnStdout = false;
        bool plainProgress = false;  // never refresh a line in place
    };

    explicit Console(const Options& options);

    bool Json() const { return m_options.json; }

    // text may have several lines; a line feed is added at its end when it has none.
    void Say(std::string_view text);
    void SayJson(std::string_view line);
    // Shown whatever was asked for; "kvmpd: " is put in front.
    void Error(const std::string& sentence);
    // On a terminal refreshed in place, otherwise a line every few seconds; the last one always.
    void Progress(const std::string& line, bool last);
    // Removes a progress line that stands on the terminal.
    void EndProgress();

  private:
    void ClearLine();  // m_mutex held
    void Print(std::FILE* file, std::string_view text);

    const Options m_options;
    const bool m_refresh;
    std::mutex m_mutex;
    bool m_lineShown = false;
    bool m_anyProgress = false;
    std::chrono::steady_clock::time_point m_lastProgress;
};

}  // namespace kvmpd::app
