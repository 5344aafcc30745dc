#include "download/WorkerProcessor.h"

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/download/LogLevel.h"
#include "tests/download/TestWorker.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::LevelOf;
using test::LogCapture;
using test::TestWorker;
using test::UntilStopped;

using Lines = std::vector<std::string>;
const Lines kClosing{" WorkerProcessor::CloseThread ", " WorkerProcessor::CloseThread Finish"};

TEST(WorkerProcessorStart, RunsTheBodyWhoseResultIsTheExitCode) {
    TestWorker worker([](HANDLE) { return DWORD{0xFEDCBA98}; });
    ASSERT_EQ(worker.StartThread(), 0);
    EXPECT_EQ(worker.WaitForExitCode(), 0xFEDCBA98u);
}

TEST(WorkerProcessorStart, RunsTheBodyOnAThreadOfItsOwn) {
    std::atomic<DWORD> thread = 0;
    TestWorker worker([&](HANDLE) {
        thread = GetCurrentThreadId();
        return 0;
    });
    worker.StartThread();
    worker.WaitForExitCode();
    EXPECT_NE(thread, 0u);
    EXPECT_NE(thread, GetCurrentThreadId());
}

TEST(WorkerProcessorStart, SecondStartMakesNoSecondThread) {
    std::atomic<int> bodies = 0;
    TestWorker worker([&](HANDLE stop) {
        ++bodies;
        return UntilStopped(stop);
    });
    EXPECT_EQ(worker.StartThread(), 0);
    const HANDLE first = worker.ThreadHandle();
    EXPECT_EQ(worker.StartThread(), 0);
    EXPECT_EQ(worker.ThreadHandle(), first);
    worker.CloseThread();
    EXPECT_EQ(bodies, 1);
}

TEST(WorkerProcessorStart, StartsOfSeveralThreadsMakeOneThread) {
    std::atomic<int> bodies = 0;
    TestWorker worker([&](HANDLE stop) {
        ++bodies;
        return UntilStopped(stop);
    });
    {
        std::vector<std::jthread> starters;
        for (int starter = 0; starter < 4; ++starter) {
            starters.emplace_back([&worker] { EXPECT_EQ(worker.StartThread(), 0); });
        }
    }
    worker.CloseThread();
    EXPECT_EQ(bodies, 1);
}

TEST(WorkerProcessorStart, IsSilent) {
    const LogCapture log(8);
    TestWorker worker(&UntilStopped);
    worker.StartThread();
    EXPECT_EQ(log.Lines(), Lines{});
}

// The handle stays until somebody closes the thread, so a body that has returned still counts as running.
TEST(WorkerProcessorStart, BodyThatHasEndedIsNotStartedAgainBeforeTheClose) {
    std::atomic<int> bodies = 0;
    TestWorker worker([&](HANDLE) {
        ++bodies;
        return 0;
    });
    worker.StartThread();
    worker.WaitForExitCode();
    EXPECT_TRUE(worker.IsThreadRunning());
    EXPECT_EQ(worker.StartThread(), 0);
    worker.CloseThread();
    EXPECT_EQ(bodies, 1);
}

TEST(WorkerProcessorStart, StartAfterTheCloseRunsAFreshThread) {
    std::atomic<int> bodies = 0;
    TestWorker worker([&](HANDLE stop) {
        ++bodies;
        return UntilStopped(stop);
    });
    for (int round = 1; round <= 3; ++round) {
        EXPECT_EQ(worker.StartThread(), 0);
        EXPECT_TRUE(worker.IsThreadRunning());
        EXPECT_EQ(worker.CloseThread(), 0);
        EXPECT_FALSE(worker.IsThreadRunning());
        EXPECT_EQ(bodies, round);
    }
}

TEST(WorkerProcessorStart, ForgetsAStopThatWasSignalledBefore) {
    TestWorker worker([](HANDLE stop) { return WaitForSingleObject(stop, 0); });
    worker.CloseThread();  // leaves the stop event signalled
    worker.StartThread();
    EXPECT_EQ(worker.WaitForExitCode(), WAIT_TIMEOUT);
}

TEST(WorkerProcessorStopEvent, IsAutoResetAndNotSignalledAtFirst) {
    const TestWorker worker(&UntilStopped);
    ASSERT_NE(worker.StopEvent(), nullptr);
    EXPECT_EQ(WaitForSingleObject(worker.StopEvent(), 0), WAIT_TIMEOUT);
    SetEvent(worker.StopEvent());
    EXPECT_EQ(WaitForSingleObject(worker.StopEvent(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(worker.StopEvent(), 0), WAIT_TIMEOUT);
}

TEST(WorkerProcessorClose, OfAWorkerNeverStartedSignalsTheEventAndLogsBothLines) {
    TestWorker worker(&UntilStopped);
    const LogCapture log(3);
    EXPECT_EQ(worker.CloseThread(), 0);
    EXPECT_EQ(log.Lines(), kClosing);
    EXPECT_EQ(WaitForSingleObject(worker.StopEvent(), 0), WAIT_OBJECT_0);
}

TEST(WorkerProcessorClose, WaitsUntilTheBodyHasEnded) {
    std::atomic<bool> ended = false;
    TestWorker worker([&](HANDLE stop) {
        const DWORD result = UntilStopped(stop);
        for (int i = 0; i < 100; ++i) {
            std::this_thread::yield();
        }
        ended = true;
        return result;
    });
    worker.StartThread();
    const LogCapture log(3);
    EXPECT_EQ(worker.CloseThread(), 0);
    EXPECT_TRUE(ended);
    EXPECT_FALSE(worker.IsThreadRunning());
    EXPECT_EQ(worker.ThreadHandle(), nullptr);
    EXPECT_EQ(log.Lines(), kClosing);
}

TEST(WorkerProcessorClose, TwiceIsHarmless) {
    TestWorker worker(&UntilStopped);
    worker.StartThread();
    EXPECT_EQ(worker.CloseThread(), 0);
    EXPECT_EQ(worker.CloseThread(), 0);
}

TEST(WorkerProcessorClose, OnSeveralThreadsEndsOnce) {
    TestWorker worker(&UntilStopped);
    worker.StartThread();
    {
        std::vector<std::jthread> closers;
        for (int closer = 0; closer < 4; ++closer) {
            closers.emplace_back([&worker] {
                EXPECT_EQ(worker.CloseThread(), 0);
                EXPECT_FALSE(worker.IsThreadRunning());
            });
        }
    }
}

TEST(WorkerProcessorClose, LogsAtLevelThree) {
    const auto close = [] {
        TestWorker worker(&UntilStopped);
        worker.CloseThread();
    };
    EXPECT_EQ(LevelOf(" WorkerProcessor::CloseThread ", close), 3);
    EXPECT_EQ(LevelOf(" WorkerProcessor::CloseThread Finish", close), 3);
}

/// Leaves the closing to the base's destructor. The body uses nothing of the derived class, which is gone by then.
class Unclosed final : public WorkerProcessor {
  public:
    explicit Unclosed(HANDLE started) : m_started(started) {}

  protected:
    DWORD ThreadProc() override {
        const HANDLE stop = StopEvent();
        SetEvent(m_started);
        return UntilStopped(stop);
    }

  private:
    const HANDLE m_started;
};

TEST(WorkerProcessorDestructor, EndsAThreadThatNobodyClosedAndLogsTheSameLines) {
    const UniqueEvent started(CreateEventW(nullptr, /*manual_reset=*/TRUE, /*initial_state=*/FALSE, nullptr));
    const LogCapture log(3);
    {
        Unclosed worker(started.get());
        worker.StartThread();
        WaitForSingleObject(started.get(), INFINITE);
    }
    EXPECT_EQ(log.Lines(), kClosing);
}

TEST(WorkerProcessorDestructor, LogsTheSameLinesWithoutAThread) {
    const LogCapture log(3);
    { const Unclosed worker(nullptr); }
    EXPECT_EQ(log.Lines(), kClosing);
}

TEST(WorkerProcessorBody, ExceptionEndsTheThreadAndNotTheProcess) {
    const LogCapture log(3);
    TestWorker worker([](HANDLE) -> DWORD { throw std::runtime_error("a fault"); });
    worker.StartThread();
    EXPECT_EQ(worker.WaitForExitCode(), static_cast<DWORD>(E_UNEXPECTED));
    EXPECT_TRUE(log.Contains("[Error] WorkerProcessor::Enter thread ended by an exception"));
}

}  // namespace
}  // namespace kvmpd
