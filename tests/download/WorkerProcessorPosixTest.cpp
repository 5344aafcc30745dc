// What a worker answers when the system refuses a thread. The refusal is a limit on the user's threads, set in a child
// process that has given up the right to pass it.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/download/TestWorker.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

constexpr uid_t kNobody = 65534;
constexpr int kNotTried = 77;

bool RefuseThreads() {
    const rlimit none{0, 0};
    return setrlimit(RLIMIT_NPROC, &none) == 0 && (geteuid() != 0 || setuid(kNobody) == 0);
}

/// Ends the process: 0 when the failure came back as it should.
[[noreturn]] void StartWithoutThreads() {
    if (!RefuseThreads()) {
        std::_Exit(kNotTried);
    }
    int result = 1;
    {
        const test::LogCapture log(8);
        test::TestWorker worker(&test::UntilStopped);
        const HRESULT started = worker.StartThread();
        const bool asExpected = started == static_cast<HRESULT>(0x80070000u | ERROR_MAX_THRDS_REACHED) &&
                                !worker.IsThreadRunning() && log.Lines().empty();
        std::fprintf(stderr, "result 0x%08X, lines %zu\n", static_cast<unsigned>(started), log.Lines().size());
        result = asExpected ? 0 : 1;
    }
    std::_Exit(result);
}

TEST(WorkerProcessorStart, RefusedThreadGivesTheLastErrorAsAResultAndNoLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    static bool tried = true;
    EXPECT_EXIT(
        StartWithoutThreads(),
        [](int status) {
            tried = !WIFEXITED(status) || WEXITSTATUS(status) != kNotTried;
            return !tried || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
        },
        "");
    if (!tried) {
        GTEST_SKIP() << "this machine does not let a process limit its own threads";
    }
}

}  // namespace
}  // namespace kvmpd
