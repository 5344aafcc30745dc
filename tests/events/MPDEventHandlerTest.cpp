// What is sent, what is lost and in which order it arrives.
#include "events/MPDEventHandler.h"

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "events/EventIds.h"
#include "tests/common/Allocations.h"
#include "tests/events/FakeCallback.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::Buffering;
using test::Delivered;
using test::FakeCallback;
using test::LogCapture;
using test::NumberEvent;
using test::TextEvent;

using Calls = std::vector<Delivered>;
using Lines = std::vector<std::string>;

constexpr LONG kMostWaiting = 100;

/// Leaves the host deep in a call, so that all that follows waits.
void Occupy(MPDEventHandler& handler, FakeCallback& host) {
    host.Block();
    handler.OnStreamDwordEvent(99, 0, 0);
    host.Await(1);
}

TEST(MPDEventHandlerSending, ReachesTheHostInTheOrderSent) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    handler.OnStreamDwordEvent(kEventManifest, kManifestLoaded, 7200);
    handler.onStreamStringEvent(kEventQualityList, L"qualities");
    handler.OnBuffering(1, 5000000000, 3);
    handler.OnStreamDwordEvent(kEventQualityChosen, 22, 0);
    EXPECT_EQ(host.Await(4), (Calls{NumberEvent(0, 0, 7200), TextEvent(6, L"qualities"), Buffering(1, 5000000000, 3),
                                    NumberEvent(7, 22, 0)}));
}

struct EventRow {
    const char* name;
    DWORD id;
    LONG param1;
    LONG param2;
};

class MPDEventHandlerEvents : public testing::TestWithParam<EventRow> {};

TEST_P(MPDEventHandlerEvents, ArriveWithTheirTwoNumbers) {
    const auto [name, id, param1, param2] = GetParam();
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    const LogCapture log(4);
    handler.OnStreamDwordEvent(id, param1, param2);
    EXPECT_EQ(host.Await(1), Calls{NumberEvent(id, param1, param2)});
    EXPECT_TRUE(log.Contains(" MPDEventHandler::OnStreamDwordEvent Call to client event: " + std::to_string(id) +
                             " param1: " + std::to_string(param1) + " param2: " + std::to_string(param2)));
}

INSTANTIATE_TEST_SUITE_P(Table, MPDEventHandlerEvents,
                         testing::Values(EventRow{"ManifestLoaded", kEventManifest, kManifestLoaded, 3600000},
                                         EventRow{"ManifestMalformed", kEventManifest, kManifestMalformed, 0},
                                         EventRow{"ManifestFailed", kEventManifest, kManifestFailed, 0},
                                         EventRow{"QualityChosen", kEventQualityChosen, 137, 0},
                                         EventRow{"PositionReset", kEventPosition, 1, 0},
                                         EventRow{"SeekDone", kEventPosition, 0, 1},
                                         EventRow{"DelayUnchanged", kEventPosition, 0, 0},
                                         EventRow{"DownloadFailed", kEventDownloadFailed, 0, 0},
                                         EventRow{"NegativeNumbers", kEventPosition, -1, -2147483647 - 1}),
                         [](const testing::TestParamInfo<EventRow>& row) { return std::string(row.param.name); });

TEST(MPDEventHandlerSending, BeforeAnyCallbackIsDroppedAndNotLogged) {
    FakeCallback host;
    MPDEventHandler handler;
    const LogCapture log(8);
    handler.OnStreamDwordEvent(kEventPosition, 1, 0);
    handler.onStreamStringEvent(kEventQualityList, L"lost");
    handler.OnBuffering(1, 2, 3);
    EXPECT_EQ(log.Lines(), Lines{});
    handler.SetCallback(&host);
    handler.OnStreamDwordEvent(kEventDownloadFailed, 0, 0);
    EXPECT_EQ(host.Await(1), Calls{NumberEvent(9, 0, 0)});
}

TEST(MPDEventHandlerSending, AfterTheCallbackWasTakenAwayIsDroppedAndNotLogged) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    handler.SetCallback(nullptr);
    const LogCapture log(8);
    handler.OnStreamDwordEvent(kEventPosition, 1, 0);
    handler.onStreamStringEvent(kEventQualityList, L"lost");
    handler.OnBuffering(1, 2, 3);
    EXPECT_EQ(log.Lines(), Lines{});
    handler.SetCallback(&host);
    handler.OnStreamDwordEvent(kEventDownloadFailed, 0, 0);
    EXPECT_EQ(host.Await(1), Calls{NumberEvent(9, 0, 0)});
}

TEST(MPDEventHandlerSending, LogsEachKindAtLevelFour) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    handler.OnBuffering(0, 0, 0);
    host.Await(1);  // the delivery thread has logged its beginning
    for (LONG level : {3, 4}) {
        const LogCapture log(level);
        handler.OnStreamDwordEvent(4000000000, -5, 6);
        handler.onStreamStringEvent(kEventQualityList, L"two qualities");
        handler.OnBuffering(-1, 5000000000, 6000000000);
        const Lines written{
            " MPDEventHandler::OnStreamDwordEvent Call to client event: 4000000000 param1: -5 param2: 6",
            " MPDEventHandler::onStreamStringEvent Call to client event: 6 param1: two qualities",
            " MPDEventHandler::OnBuffering Call to client buffering play: -1. buffered: 5000000000, total: "
            "6000000000"};
        EXPECT_EQ(log.Lines(), level == 4 ? written : Lines{});
    }
}

TEST(MPDEventHandlerSending, TakesTheCallersText) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    std::wstring text = L"a text that is too long to be kept inside of the string object itself";
    const std::wstring expected = text;
    handler.onStreamStringEvent(kEventQualityList, std::move(text));
    EXPECT_TRUE(text.empty());  // NOLINT: that the text is moved out is the point
    EXPECT_EQ(host.Await(1), Calls{TextEvent(6, expected)});
}

TEST(MPDEventHandlerQueue, HoldsExactlyAHundredTasks) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    Occupy(handler, host);
    Calls expected{NumberEvent(99, 0, 0)};
    for (LONG number = 1; number <= kMostWaiting; ++number) {
        handler.OnStreamDwordEvent(1, number, 0);
        expected.push_back(NumberEvent(1, number, 0));
    }
    host.Unblock();
    EXPECT_EQ(host.Await(expected.size()), expected);
}

TEST(MPDEventHandlerQueue, HundredAndFirstTaskPushesOutTheOldest) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    Occupy(handler, host);
    Calls expected{NumberEvent(99, 0, 0)};
    for (LONG number = 1; number <= kMostWaiting + 1; ++number) {
        handler.OnStreamDwordEvent(1, number, 0);
        if (number > 1) {
            expected.push_back(NumberEvent(1, number, 0));
        }
    }
    host.Unblock();
    host.Await(expected.size());
    handler.OnStreamDwordEvent(100, 0, 0);  // what follows shows that nothing else was waiting
    expected.push_back(NumberEvent(100, 0, 0));
    EXPECT_EQ(host.Await(expected.size()), expected);
}

TEST(MPDEventHandlerQueue, KeepsTheNewestOfManyWhateverTheirKind) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    Occupy(handler, host);
    for (LONG number = 1; number <= 1000; ++number) {
        handler.OnBuffering(number, 0, 0);
    }
    handler.onStreamStringEvent(kEventQualityList, L"newest");
    host.Unblock();
    const Calls calls = host.Await(1 + kMostWaiting);
    ASSERT_EQ(calls.size(), 1u + kMostWaiting);
    EXPECT_EQ(calls[1], Buffering(1000 - kMostWaiting + 2, 0, 0));
    EXPECT_EQ(calls.back(), TextEvent(6, L"newest"));
}

TEST(MPDEventHandlerQueue, BlockedHostHoldsUpNoSender) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    Occupy(handler, host);
    {
        std::vector<std::jthread> senders;
        for (int sender = 0; sender < 3; ++sender) {
            senders.emplace_back([&handler] {
                for (LONG number = 0; number < 200; ++number) {
                    handler.OnStreamDwordEvent(1, number, 0);
                    handler.OnBuffering(number, 0, 0);
                    handler.onStreamStringEvent(2, L"text");
                }
            });
        }
    }  // every sender has come back, the host has not
    EXPECT_EQ(host.All().size(), 1u);
    host.Unblock();
    EXPECT_EQ(host.Await(1 + kMostWaiting).size(), 1u + kMostWaiting);
}

TEST(MPDEventHandlerDelivery, IsOnOneThreadOfItsOwnOneCallAtATime) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    constexpr size_t kEach = 10;
    {
        std::vector<std::jthread> senders;
        for (int sender = 0; sender < 4; ++sender) {
            senders.emplace_back([&handler] {
                for (size_t number = 0; number < kEach; ++number) {
                    handler.OnStreamDwordEvent(1, 0, 0);
                }
            });
        }
    }
    host.Await(4 * kEach);
    ASSERT_EQ(host.Threads().size(), 1u);
    EXPECT_NE(host.Threads().front(), GetCurrentThreadId());
    EXPECT_FALSE(host.CallsOverlapped());
}

TEST(MPDEventHandlerDelivery, GoesOnWhateverTheHostAnswers) {
    FakeCallback host;
    host.AnswerWith(E_FAIL);
    MPDEventHandler handler;
    handler.SetCallback(&host);
    handler.OnStreamDwordEvent(1, 0, 0);
    handler.OnBuffering(1, 2, 3);
    handler.onStreamStringEvent(2, L"text");
    EXPECT_EQ(host.Await(3).size(), 3u);
}

TEST(MPDEventHandlerDelivery, OrderOfEachSenderIsKept) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    constexpr LONG kEach = 30;  // of three senders, fewer than may wait
    {
        std::vector<std::jthread> senders;
        for (DWORD sender = 0; sender < 3; ++sender) {
            senders.emplace_back([&handler, sender] {
                for (LONG number = 0; number < kEach; ++number) {
                    handler.OnStreamDwordEvent(sender, number, 0);
                }
            });
        }
    }
    std::vector<LONG> next(3, 0);
    for (const Delivered& call : host.Await(3 * kEach)) {
        EXPECT_EQ(call.numbers[0], next[call.id]++);
    }
}

// There is nothing to be done about a notification for which there is no memory, and the next one may succeed.
TEST(MPDEventHandlerMemory, EventWithoutMemoryIsSkipped) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    std::wstring text = L"text";
    {
        const test::NoMemory noMemory;  // verbosity 0: the capture of a line would need memory of its own
        handler.OnStreamDwordEvent(1, 0, 0);
        handler.OnBuffering(1, 2, 3);
        handler.onStreamStringEvent(2, std::move(text));
    }
    handler.OnStreamDwordEvent(3, 0, 0);
    EXPECT_EQ(host.Await(1), Calls{NumberEvent(3, 0, 0)});
}

}  // namespace
}  // namespace kvmpd
