// What one followed stream costs: resident memory and processor time of a process that does nothing else, while a live
// origin in another process publishes two-second segments of 2 Mbit/s in real time and a reader takes every byte.
//
//   kvmpd_follow_cost [SECONDS [VIDEO_BYTES AUDIO_BYTES]]     default 60 468000 32000, per segment
//
// Larger segments fill both rings, and so reach the most memory that a stream takes, in less time.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench/BenchOrigin.h"
#include "bench/FollowedStream.h"
#include "origin/LiveClock.h"
#include "stream/CAsyncStream.h"

namespace {

struct SegmentBytes {
    size_t video = 468'000;  // 2 Mbit/s over two seconds, less
    size_t audio = 32'000;   // 128 kbit/s
};

/// Serves until it is killed, from a process of its own so that its cost is not counted; writes its address to `out`.
[[noreturn]] void ServeInChild(int out, const SegmentBytes& bytes) {
    const auto live = kvmpd::bench::MakeOrigin(bytes.video, bytes.audio);
    kvmpd::origin::LiveClock clock(*live);
    clock.Start();
    const std::string url = live->ManifestUrl();
    if (write(out, url.data(), url.size()) < 0) {
        _exit(1);
    }
    close(out);
    for (;;) {
        pause();
    }
}

std::int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double ProcessorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long StatusKiB(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":")) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return -1;
}

/// Takes one segment's bytes of one stream, waiting for them; false when they did not come.
bool Take(IAsyncReader& reader, LONGLONG& position, LONGLONG base, size_t bytes) {
    std::vector<BYTE> buffer(64 * 1024);
    while (bytes > 0) {
        const auto count = static_cast<LONG>(std::min(bytes, buffer.size()));
        HRESULT result = S_FALSE;
        for (int attempt = 0; attempt < 2 && result == S_FALSE; ++attempt) {
            result = reader.SyncRead(base + position, count, buffer.data());
        }
        if (result != S_OK) {
            return false;
        }
        position += count;
        bytes -= static_cast<size_t>(count);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60;
    SegmentBytes bytes;
    if (argc > 3) {
        bytes = {std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10)};
    }
    const long emptyKiB = StatusKiB("VmRSS");
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        return 1;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        ServeInChild(pipeEnds[1], bytes);
    }
    close(pipeEnds[1]);
    char url[256] = {};
    if (read(pipeEnds[0], url, sizeof(url) - 1) <= 0) {
        return 1;
    }

    int exitCode = 0;
    {
        const kvmpd::bench::Folder folder;
        const std::int64_t started = NowMs();
        const double before = ProcessorSeconds();
        kvmpd::bench::FollowedStream stream(url, folder.Path());
        LONGLONG video = 0;
        LONGLONG audio = 0;
        int segments = 0;
        while (static_cast<double>(NowMs() - started) < seconds * 1000) {
            if (!Take(stream.Reader(), video, 0, bytes.video) ||
                !Take(stream.Reader(), audio, kvmpd::AUDIO_POSITION_BASE, bytes.audio)) {
                std::puts("the stream stopped");
                exitCode = 1;
                break;
            }
            ++segments;
        }
        const double wall = static_cast<double>(NowMs() - started) / 1000;
        const double used = ProcessorSeconds() - before;
        std::printf("followed %.0f s, %d segments, %lld bytes\n", wall, segments,
                    static_cast<long long>(video + audio));
        std::printf("processor time      %.3f s = %.2f %% of one core\n", used, 100 * used / wall);
        std::printf("resident memory     %ld KiB now, %ld KiB at most (%ld KiB before loading)\n", StatusKiB("VmRSS"),
                    StatusKiB("VmHWM"), emptyKiB);
        std::printf("address space       %ld KiB\n", StatusKiB("VmSize"));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return exitCode;
}
