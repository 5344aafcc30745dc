// A program under test as a child: its arguments and environment, its output line by line, signals, its exit code.

#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kvmpd::app::test {

class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> arguments;    // the program first
        std::vector<std::string> environment;  // NAME=VALUE, before this process's own
        std::filesystem::path standardOutput;  // empty: read with ReadLine
        std::filesystem::path standardError;
        bool smallPipe = false;           // standard output is full after its first write, until that is read
        bool dropStandardOutput = false;  // nobody will ever read it: its reading end is closed from the start
    };

    explicit ChildProcess(const Options& options);
    // Kills it when it still runs.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line of standard output, without its end; nothing at the end of the output.
    std::optional<std::string> ReadLine();
    // Reads until a line holds the text; false when the output ends first.
    bool ReadUntil(const std::string& text);

    // Waits until something lies unread in standard output's pipe; false when the output ends before.
    bool WaitForUnread() const;

    void Signal(int signal) const;
    // Waits for the end. 128 + the signal when one ended it.
    int Wait();

  private:
    pid_t m_pid = -1;
    int m_output = -1;
    std::string m_buffer;
};

}  // namespace kvmpd::app::test
