#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/win32.h"
#include "tests/filter/ReaderFixture.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

class AsyncIo : public ReaderFixture {
  protected:
    AsyncIo() : io(reader->Io()) {}

    struct Next {
        HRESULT hr;
        IMediaSample* sample = nullptr;
        DWORD_PTR user = 99;
        LONG actual = 99;
    };
    Next Wait(DWORD timeout = INFINITE) {
        Next next{};
        ComPtr<IMediaSample> sample;
        next.hr = io.WaitForNext(timeout, &sample, &next.user, &next.actual);
        next.sample = sample.get();  // alive: the test holds its own reference
        return next;
    }
    HRESULT Queue(LONGLONG position, LONG length, DWORD_PTR user, IMediaSample* sample = nullptr) {
        return io.Request(position, length, TRUE, buffer, sample, user);
    }

    CAsyncIo& io;
    BYTE buffer[64] = {};
};

TEST_F(AsyncIo, RequestsComeBackInOrderWithTheirResults) {
    stream.Answer({S_OK, E_FAIL, S_OK});
    ASSERT_EQ(Queue(0, 4, 1), S_OK);
    ASSERT_EQ(Queue(10, 5, 2), S_OK);
    ASSERT_EQ(Queue(20, 6, 3), S_OK);
    const Next first = Wait();
    EXPECT_EQ(first.hr, S_OK);
    EXPECT_EQ(first.user, 1u);
    EXPECT_EQ(first.actual, 4);
    const Next second = Wait();
    EXPECT_EQ(second.hr, E_FAIL);
    EXPECT_EQ(second.user, 2u);
    EXPECT_EQ(Wait().user, 3u);
}

TEST_F(AsyncIo, WaitingForNothingTimesOut) {
    const Next none = Wait(0);
    EXPECT_EQ(none.hr, VFW_E_TIMEOUT);
    EXPECT_EQ(none.sample, nullptr);
    EXPECT_EQ(none.user, 0u);
    EXPECT_EQ(none.actual, 0);
    EXPECT_EQ(Wait(1).hr, VFW_E_TIMEOUT);
}

TEST_F(AsyncIo, BytesThatAreNotThereYetFailARequest) {
    stream.Answer({S_FALSE});
    Queue(0, 4, 1);
    EXPECT_EQ(Wait().hr, E_FAIL);
}

TEST_F(AsyncIo, AShortReadUpToTheStreamsEndSucceeds) {
    stream.totalLength = 12;
    stream.shortBy = 2;
    stream.Answer({S_FALSE, S_FALSE});
    Queue(10, 4, 1);
    const Next atEnd = Wait();
    EXPECT_EQ(atEnd.hr, S_OK);
    EXPECT_EQ(atEnd.actual, 2);
    Queue(9, 4, 2);
    EXPECT_EQ(Wait().hr, E_FAIL);
}

TEST_F(AsyncIo, AlignedReadsMustBeAligned) {
    stream.alignment = 4;
    EXPECT_EQ(Queue(2, 4, 1), VFW_E_BADALIGN);
    EXPECT_EQ(Queue(4, 3, 1), VFW_E_BADALIGN);
    EXPECT_EQ(Queue(4, 8, 1), S_OK);
    EXPECT_EQ(Wait().hr, S_OK);
    LONG actual = 99;
    EXPECT_EQ(io.SyncReadAligned(2, 4, buffer, &actual, nullptr), VFW_E_BADALIGN);
    EXPECT_EQ(actual, 0);
    EXPECT_EQ(io.SyncRead(2, 3, buffer), S_OK);
}

TEST_F(AsyncIo, FlushingGivesBackWhatWaitsAndRefusesMore) {
    MakeSamples(2, 16);
    ComPtr<IMediaSample> one = SampleFor(0, 4);
    ComPtr<IMediaSample> two = SampleFor(4, 4);
    stream.HoldReads();
    Queue(0, 4, 1, one.get());
    stream.WaitForReads(1);
    Queue(4, 4, 2, two.get());
    auto flush = std::async(std::launch::async, [this] { return io.BeginFlush(); });
    int probes = 0;
    while (Queue(0, 0, 99) == S_OK) {  // until the flush has begun; these are flushed too
        ++probes;
    }
    stream.LetReadsGo();
    EXPECT_EQ(flush.get(), S_OK);
    EXPECT_EQ(stream.Reads(), 1u);

    const Next completed = Wait();
    EXPECT_EQ(completed.hr, S_OK);
    EXPECT_EQ(completed.sample, one.get());
    const Next flushed = Wait();
    EXPECT_EQ(flushed.hr, VFW_E_TIMEOUT);
    EXPECT_EQ(flushed.sample, two.get());
    EXPECT_EQ(flushed.user, 2u);
    for (; probes > 0; --probes) {
        ASSERT_EQ(Wait().user, 99u);
    }
    EXPECT_EQ(Wait().hr, VFW_E_WRONG_STATE);
    EXPECT_EQ(Queue(0, 4, 3), VFW_E_WRONG_STATE);

    EXPECT_EQ(io.EndFlush(), S_OK);
    EXPECT_EQ(Wait(0).hr, VFW_E_TIMEOUT);
    EXPECT_EQ(Queue(0, 4, 4), S_OK);
    EXPECT_EQ(Wait().user, 4u);
}

TEST_F(AsyncIo, FlushingEndsAWait) {
    auto waiter = std::async(std::launch::async, [this] { return Wait().hr; });
    io.BeginFlush();
    EXPECT_EQ(waiter.get(), VFW_E_WRONG_STATE);
}

TEST_F(AsyncIo, CompletedRequestsSurviveAFlush) {
    Queue(0, 4, 1);
    stream.WaitForReads(1);
    io.BeginFlush();
    io.EndFlush();
    EXPECT_EQ(Wait(0).user, 1u);
}

TEST_F(AsyncIo, ClosingEndsAWaitAndRefusesMore) {
    auto waiter = std::async(std::launch::async, [this] { return Wait().hr; });
    io.Close();
    EXPECT_EQ(waiter.get(), VFW_E_WRONG_STATE);
    EXPECT_EQ(Queue(0, 4, 1), VFW_E_WRONG_STATE);
    io.Close();
}

TEST_F(AsyncIo, ClosingGivesBackWhatWaitsAndWaitsForTheReadInProgress) {
    MakeSamples(2, 16);
    ComPtr<IMediaSample> one = SampleFor(0, 4);
    ComPtr<IMediaSample> two = SampleFor(4, 4);
    stream.HoldReads();
    Queue(0, 4, 1, one.get());
    stream.WaitForReads(1);
    Queue(4, 4, 2, two.get());
    auto close = std::async(std::launch::async, [this] { io.Close(); });
    EXPECT_EQ(Wait().sample, two.get());  // given back as soon as the closing has begun
    stream.LetReadsGo();
    close.get();
    EXPECT_EQ(stream.Reads(), 1u);
    EXPECT_EQ(Wait().sample, one.get());
    EXPECT_EQ(Wait().hr, VFW_E_WRONG_STATE);
    EXPECT_EQ(one->AddRef(), 2u);  // the queue kept no reference
    one->Release();
}

TEST_F(AsyncIo, EveryRequestOfManyThreadsIsAnsweredOnce) {
    constexpr int kThreads = 3;
    constexpr int kEach = 200;
    std::vector<std::thread> requesters;
    for (int t = 0; t < kThreads; ++t) {
        requesters.emplace_back([this, t] {
            BYTE bytes[1];
            for (int i = 0; i < kEach; ++i) {
                ASSERT_EQ(io.Request(i, 0, TRUE, bytes, nullptr, static_cast<DWORD_PTR>(t * kEach + i)), S_OK);
            }
        });
    }
    std::atomic<int> answered{0};
    std::vector<std::atomic<int>> seen(kThreads * kEach);
    std::vector<std::thread> waiters;
    for (int t = 0; t < 2; ++t) {
        waiters.emplace_back([&] {
            while (answered < kThreads * kEach) {
                const Next next = Wait(10);
                if (next.hr == S_OK) {
                    ++seen[next.user];
                    ++answered;
                }
            }
        });
    }
    for (auto& thread : requesters) {
        thread.join();
    }
    for (auto& thread : waiters) {
        thread.join();
    }
    for (auto& count : seen) {
        ASSERT_EQ(count, 1);
    }
}

TEST_F(AsyncIo, FlushingAgainstRequestersLosesNoSample) {
    MakeSamples(3, 16);
    std::atomic<bool> done{false};
    std::thread flusher([&] {
        while (!done) {
            io.BeginFlush();
            io.EndFlush();
        }
    });
    for (int i = 0; i < 200; ++i) {
        ComPtr<IMediaSample> sample = SampleFor(0, 4);
        if (Queue(0, 4, 7, sample.get()) != S_OK) {
            continue;
        }
        Next next = Wait();
        while (next.sample == nullptr) {  // a wait that met a flush
            next = Wait();
        }
        ASSERT_EQ(next.sample, sample.get());
    }
    done = true;
    flusher.join();
}

TEST_F(AsyncIo, WaitingLogsHowItWent) {
    LogCapture log(6);
    Queue(0, 4, 21);
    Wait();
    EXPECT_TRUE(log.Contains(" CAsyncIo::WaitForNext hr(SUCCEED), pcbActual(4), pdwUser(21)"));
    stream.Answer({E_FAIL});
    Queue(0, 4, 22);
    Wait();
    EXPECT_TRUE(log.Contains(" CAsyncIo::WaitForNext hr(FAILED), pcbActual(4), pdwUser(22)"));
}

}  // namespace
}  // namespace kvmpd::test
