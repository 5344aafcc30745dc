#include <algorithm>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/win32.h"
#include "tests/filter/ReaderFixture.h"
#include "tests/support/LogCapture.h"

namespace kvmpd::test {
namespace {

constexpr std::chrono::milliseconds kLongEnough{100};  // for what is ready to happen

class SyncRead : public ReaderFixture {
  protected:
    HRESULT Read(LONGLONG position, LONG length) { return pin.SyncRead(position, length, buffer.data()); }

    std::vector<BYTE> buffer = std::vector<BYTE>(4096);
};

TEST_F(SyncRead, DeliversTheBytesAtThePosition) {
    ASSERT_EQ(Read(1000, 4096), S_OK);
    for (size_t i = 0; i < buffer.size(); ++i) {
        ASSERT_EQ(buffer[i], FakeStream::VideoByte(1000 + static_cast<LONGLONG>(i)));
    }
    EXPECT_TRUE(pin.pauses.empty());
}

TEST_F(SyncRead, ThePositionOfTheAudioBaseIsAudioByteZero) {
    ASSERT_EQ(Read(0x3FFFFFFFFFFFFFFF, 2), S_OK);
    EXPECT_EQ(buffer[0], FakeStream::AudioByte(0));
    EXPECT_EQ(buffer[1], FakeStream::AudioByte(1));
    ASSERT_EQ(Read(0x3FFFFFFFFFFFFFFE, 1), S_OK);
    EXPECT_EQ(buffer[0], FakeStream::VideoByte(0x3FFFFFFFFFFFFFFE));
}

TEST_F(SyncRead, LogsPositionAndLength) {
    LogCapture log(6);
    Read(0x3FFFFFFFFFFFFFFF, 7);
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncRead 4611686018427387903, 7"));
}

TEST_F(SyncRead, IsRefusedWhileStopped) {
    LogCapture log(6);
    stream.stopped = TRUE;
    EXPECT_EQ(Read(0, 4), E_FAIL);
    EXPECT_EQ(Read(0, 0), E_FAIL);
    EXPECT_EQ(stream.Reads(), 0u);
    EXPECT_EQ(log.Count(" CAsyncOutputPin::SyncRead return E_FAIL due to stop"), 2u);
    stream.stopped = FALSE;
    EXPECT_EQ(Read(0, 4), S_OK);
}

TEST_F(SyncRead, OfNothingSucceedsWithoutTouchingTheStream) {
    LogCapture log(6);
    EXPECT_EQ(pin.SyncRead(5, 0, nullptr), S_OK);
    EXPECT_TRUE(stream.Calls().empty());
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncRead lLength == 0, return S_OK"));
}

TEST_F(SyncRead, RefusesWhatCannotBeRead) {
    EXPECT_EQ(pin.SyncRead(5, -1, buffer.data()), E_INVALIDARG);
    EXPECT_EQ(pin.SyncRead(5, 1, nullptr), E_POINTER);
    EXPECT_EQ(stream.Reads(), 0u);
}

TEST_F(SyncRead, BytesThatArriveAtTheThirdAttemptTakeTwoPauses) {
    LogCapture log(6);
    stream.Answer({S_FALSE, S_FALSE, S_OK});
    EXPECT_EQ(Read(8, 4), S_OK);
    EXPECT_EQ(pin.pauses, (std::vector<DWORD>{100, 100}));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncRead wait 100 millisecond to retry #0"));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncRead wait 100 millisecond to retry #1"));
    const std::vector<std::string> again{"video at 8", "read video 4"};
    const std::vector<std::string> calls = stream.Calls();
    ASSERT_EQ(calls.size(), 6u);  // the whole request again, from the same position
    EXPECT_TRUE(std::equal(again.begin(), again.end(), calls.begin() + 4));
}

TEST_F(SyncRead, BytesThatNeverArriveTakeAHundredPauses) {
    LogCapture log(6);
    stream.lastResult = S_FALSE;
    EXPECT_EQ(Read(8, 4), S_FALSE);
    EXPECT_EQ(stream.Reads(), 101u);
    EXPECT_EQ(pin.pauses, std::vector<DWORD>(100, 100));
    EXPECT_TRUE(log.Contains(" CAsyncOutputPin::SyncRead wait 100 millisecond to retry #99"));
    EXPECT_FALSE(log.Contains(" CAsyncOutputPin::SyncRead wait 100 millisecond to retry #100"));
}

TEST_F(SyncRead, TheHundredthRetryStillCounts) {
    std::deque<HRESULT> results(100, S_FALSE);
    results.push_back(S_OK);
    stream.Answer(std::move(results));
    EXPECT_EQ(Read(8, 4), S_OK);
    EXPECT_EQ(pin.pauses.size(), 100u);
}

TEST_F(SyncRead, AnErrorWhileWaitingEndsTheWait) {
    stream.Answer({S_FALSE, E_ACCESSDENIED});
    EXPECT_EQ(Read(8, 4), E_ACCESSDENIED);
    EXPECT_EQ(pin.pauses.size(), 1u);
}

TEST_F(SyncRead, AStopWhileWaitingIsNotLookedAt) {
    stream.Answer({S_FALSE, S_FALSE, S_OK});
    pin.pause = [this](size_t) { stream.stopped = TRUE; };
    EXPECT_EQ(Read(8, 4), S_OK);
    EXPECT_EQ(Read(8, 4), E_FAIL);
}

TEST_F(SyncRead, TheOwnPausesAreRealTime) {
    stream.Answer({S_FALSE, S_OK});
    const LONGLONG start = ClockMs();
    EXPECT_EQ(pull->SyncRead(0, 4, buffer.data()), S_OK);  // the reader's own pin: the pause itself is what is tested
    EXPECT_GE(ClockMs() - start, 99);
}

TEST_F(SyncRead, ClosingEndsTheWaitOfAReaderAndWaitsForIt) {
    stream.lastResult = S_FALSE;
    std::promise<void> waiting;
    std::promise<void> goOn;
    pin.pause = [&](size_t count) {
        if (count == 1) {
            waiting.set_value();
            goOn.get_future().wait();
        }
    };
    auto read = std::async(std::launch::async, [&] { return Read(0, 4); });
    waiting.get_future().wait();
    auto close = std::async(std::launch::async, [&] {
        pin.Close();
        stream.lastResult = E_UNEXPECTED;  // from here on the stream is gone
    });
    while (reader->Io().Request(0, 0, FALSE, nullptr, nullptr, 0) == S_OK) {
        std::this_thread::yield();  // until Close has set its flag and closed the queue
    }
    // A Close that does not wait has returned by now. Only time can tell that something does not happen.
    EXPECT_EQ(close.wait_for(kLongEnough), std::future_status::timeout);
    goOn.set_value();
    close.get();
    EXPECT_EQ(read.get(), S_FALSE);
    EXPECT_EQ(pin.pauses.size(), 1u);
    EXPECT_EQ(Read(0, 4), E_FAIL);
    const std::vector<std::string> calls = stream.Calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "read video 4"), 2);
}

TEST_F(SyncRead, ASecondReaderWaitsForTheFirst) {
    LogCapture log(6);
    stream.Answer({S_FALSE});
    std::promise<void> waiting;
    std::promise<void> goOn;
    pin.pause = [&](size_t) {
        waiting.set_value();
        goOn.get_future().wait();
    };
    BYTE one[1];
    BYTE two[1];
    auto first = std::async(std::launch::async, [&] { return pin.SyncRead(1, 1, one); });
    waiting.get_future().wait();
    // The stream is free while the first reader pauses; the second has come, and does not get at it. Only time can tell
    // that something does not happen.
    auto second = std::async(std::launch::async, [&] { return pin.SyncRead(2, 1, two); });
    ASSERT_TRUE(log.WaitForPrefix(" CAsyncOutputPin::SyncRead 2, 1"));
    EXPECT_EQ(second.wait_for(kLongEnough), std::future_status::timeout);
    EXPECT_EQ(stream.Reads(), 1u);
    goOn.set_value();
    EXPECT_EQ(first.get(), S_OK);
    EXPECT_EQ(second.get(), S_OK);
    EXPECT_EQ(one[0], FakeStream::VideoByte(1));
    EXPECT_EQ(two[0], FakeStream::VideoByte(2));
}

TEST_F(SyncRead, TwoStreamsReadByTwoThreadsStayApart) {
    auto pullBytes = [this](LONGLONG base, BYTE (*byteAt)(LONGLONG)) {
        for (LONGLONG position = 0; position < 2000; position += 10) {
            BYTE bytes[10];
            ASSERT_EQ(pull->SyncRead(base + position, 10, bytes), S_OK);
            for (LONGLONG i = 0; i < 10; ++i) {
                ASSERT_EQ(bytes[i], byteAt(position + i));
            }
        }
    };
    std::thread video(pullBytes, LONGLONG{0}, &FakeStream::VideoByte);
    std::thread audio(pullBytes, AUDIO_POSITION_BASE, &FakeStream::AudioByte);
    video.join();
    audio.join();
}

}  // namespace
}  // namespace kvmpd::test
