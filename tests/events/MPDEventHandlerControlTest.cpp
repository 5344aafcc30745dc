// Giving, changing and taking away the callback, and the end of the dispatcher.
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "events/MPDEventHandler.h"
#include "tests/events/FakeCallback.h"
#include "tests/events/HandlerFixture.h"
#include "tests/support/LogCapture.h"

namespace kvmpd {
namespace {

using test::Delivered;
using test::FakeCallback;
using test::LogCapture;
using test::NumberEvent;
using test::TextEvent;
using test::WatchedHandler;

using Calls = std::vector<Delivered>;
using Lines = std::vector<std::string>;

const Lines kClosing{" WorkerProcessor::CloseThread ", " WorkerProcessor::CloseThread Finish"};

/// Sends three events of which the first is delivered and the others wait when the callback is taken away.
void LeaveTwoWaiting(WatchedHandler& handler, FakeCallback& host) {
    host.Block();
    handler.OnStreamDwordEvent(1, 0, 0);
    host.Await(1);
    handler.OnStreamDwordEvent(2, 0, 0);
    handler.onStreamStringEvent(3, L"a text that waits and is too long for the string object itself");
    handler.OnceStopping([&host] { host.Unblock(); });
    EXPECT_EQ(handler.SetCallback(nullptr), 0);
    handler.OnceStopping(nullptr);
}

TEST(MPDEventHandlerSetCallback, HoldsOneReferenceUntilAnotherIsSet) {
    FakeCallback first;
    FakeCallback second;
    MPDEventHandler handler;
    EXPECT_FALSE(handler.HasCallback());
    EXPECT_EQ(handler.SetCallback(&first), 0);
    EXPECT_TRUE(handler.HasCallback());
    EXPECT_EQ(first.References(), 2u);
    EXPECT_EQ(handler.SetCallback(&second), 0);
    EXPECT_EQ(first.References(), 1u);
    EXPECT_EQ(second.References(), 2u);
    EXPECT_EQ(handler.SetCallback(nullptr), 0);
    EXPECT_EQ(second.References(), 1u);
    EXPECT_FALSE(handler.HasCallback());
}

TEST(MPDEventHandlerSetCallback, StartsAndStopsTheThread) {
    FakeCallback host;
    MPDEventHandler handler;
    EXPECT_FALSE(handler.IsThreadRunning());
    handler.SetCallback(&host);
    EXPECT_TRUE(handler.IsThreadRunning());
    handler.SetCallback(nullptr);
    EXPECT_FALSE(handler.IsThreadRunning());
}

TEST(MPDEventHandlerSetCallback, NullWithoutACallbackIsHarmless) {
    MPDEventHandler handler;
    EXPECT_EQ(handler.SetCallback(nullptr), 0);
    EXPECT_FALSE(handler.IsThreadRunning());
}

TEST(MPDEventHandlerSetCallback, LogsAtLevelThree) {
    FakeCallback host;
    MPDEventHandler handler;
    const LogCapture log(3);
    handler.SetCallback(&host);
    ASSERT_TRUE(log.WaitForPrefix(" MPDEventHandler::ThreadProc "));
    EXPECT_EQ(log.Lines(),
              (Lines{" MPDEventHandler::SetCallback ", kClosing[0], kClosing[1], " MPDEventHandler::ThreadProc "}));
}

TEST(MPDEventHandlerSetCallback, SameCallbackRestartsTheThreadWithoutAReference) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    handler.OnStreamDwordEvent(1, 0, 0);
    host.Await(1);
    EXPECT_EQ(handler.SetCallback(&host), 0);
    EXPECT_EQ(host.References(), 2u);
    EXPECT_EQ(host.Added(), 1);
    handler.OnStreamDwordEvent(2, 0, 0);
    EXPECT_EQ(host.Await(2), (Calls{NumberEvent(1, 0, 0), NumberEvent(2, 0, 0)}));
    EXPECT_EQ(host.Threads().size(), 2u) << "a thread of its own delivered each";
}

TEST(MPDEventHandlerSetCallback, NullKeepsWhatWaitsForTheNextCallback) {
    FakeCallback first;
    FakeCallback second;
    WatchedHandler handler;
    handler.SetCallback(&first);
    LeaveTwoWaiting(handler, first);
    EXPECT_EQ(first.All(), Calls{NumberEvent(1, 0, 0)});
    handler.SetCallback(&second);
    EXPECT_EQ(
        second.Await(2),
        (Calls{NumberEvent(2, 0, 0), TextEvent(3, L"a text that waits and is too long for the string object itself")}));
    EXPECT_EQ(first.All().size(), 1u);
}

TEST(MPDEventHandlerSetCallback, ChangeDeliversWhatWaitsToTheNewCallback) {
    FakeCallback first;
    FakeCallback second;
    WatchedHandler handler;
    handler.SetCallback(&first);
    first.Block();
    handler.OnStreamDwordEvent(1, 0, 0);
    first.Await(1);
    handler.OnStreamDwordEvent(2, 0, 0);
    handler.OnceStopping([&first] { first.Unblock(); });
    handler.SetCallback(&second);
    EXPECT_EQ(second.Await(1), Calls{NumberEvent(2, 0, 0)});
    EXPECT_EQ(first.All(), Calls{NumberEvent(1, 0, 0)});
}

TEST(MPDEventHandlerSetCallback, WaitsForTheCallInProgress) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    host.Block();
    handler.OnStreamDwordEvent(1, 0, 0);
    host.Await(1);
    const LogCapture log(3);
    std::jthread control([&handler] { handler.SetCallback(nullptr); });
    ASSERT_TRUE(log.WaitForPrefix(" WorkerProcessor::CloseThread "));
    EXPECT_FALSE(log.Contains(" WorkerProcessor::CloseThread Finish"));
    EXPECT_EQ(host.References(), 2u) << "the callback is not let go while a call is in it";
    host.Unblock();
    control.join();
    EXPECT_EQ(host.References(), 1u);
}

TEST(MPDEventHandlerSetCallback, FailureToCloseKeepsTheOldCallbackAndItsThread) {
    FakeCallback first;
    FakeCallback second;
    WatchedHandler handler;
    handler.SetCallback(&first);
    handler.OnBuffering(0, 0, 0);
    first.Await(1);  // the delivery thread has logged its beginning
    handler.FailToClose(E_ACCESSDENIED);
    const LogCapture log(3);
    EXPECT_EQ(handler.SetCallback(&second), E_ACCESSDENIED);
    EXPECT_EQ(log.Lines(), (Lines{" MPDEventHandler::SetCallback ",
                                  "[Error] MPDEventHandler::SetCallback Fail to close callback thread!"}));
    EXPECT_EQ(handler.SetCallback(nullptr), E_ACCESSDENIED);
    EXPECT_EQ(first.References(), 2u);
    EXPECT_EQ(second.Added(), 0);
    handler.OnStreamDwordEvent(1, 0, 0);
    EXPECT_EQ(first.Await(2).back(), NumberEvent(1, 0, 0));
}

TEST(MPDEventHandlerSetCallback, OnSeveralThreadsAtOnceLosesNoReference) {
    FakeCallback first;
    FakeCallback second;
    MPDEventHandler handler;
    {
        std::vector<std::jthread> hosts;
        for (FakeCallback* host : {&first, &second}) {
            hosts.emplace_back([&handler, host] {
                for (int round = 0; round < 10; ++round) {
                    handler.SetCallback(host);
                    handler.OnBuffering(round, 0, 0);
                }
            });
        }
    }
    handler.SetCallback(nullptr);
    EXPECT_EQ(first.References(), 1u);
    EXPECT_EQ(second.References(), 1u);
}

TEST(MPDEventHandlerSetCallback, MayBeRestartedWhileEventsAreSent) {
    FakeCallback host;
    MPDEventHandler handler;
    handler.SetCallback(&host);
    {
        std::jthread sender([&handler](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                handler.OnBuffering(1, 2, 3);
                handler.onStreamStringEvent(6, L"text");
            }
        });
        for (int round = 0; round < 20; ++round) {
            handler.SetCallback(round % 2 == 0 ? nullptr : &host);
        }
    }
    EXPECT_FALSE(host.CallsOverlapped());
}

TEST(MPDEventHandlerDestructor, LogsLevelSixAroundTheRelease) {
    FakeCallback host;
    const LogCapture log(6);
    {
        MPDEventHandler handler;
        handler.SetCallback(&host);
        ASSERT_TRUE(log.WaitForPrefix(" MPDEventHandler::ThreadProc "));
    }
    const Lines lines = log.Lines();
    const Lines expected{" MPDEventHandler::SetCallback ",
                         kClosing[0],
                         kClosing[1],
                         " MPDEventHandler::ThreadProc ",
                         " MPDEventHandler::~MPDEventHandler ",
                         " MPDEventHandler::SetCallback ",
                         kClosing[0],
                         kClosing[1],
                         " MPDEventHandler::~MPDEventHandler finish",
                         kClosing[0],
                         kClosing[1]};
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(host.References(), 1u);
}

TEST(MPDEventHandlerDestructor, LinesAreSilentBelowLevelSix) {
    const LogCapture log(5);
    { const MPDEventHandler handler; }
    EXPECT_EQ(log.CountPrefix(" MPDEventHandler::~MPDEventHandler"), 0u);
    EXPECT_EQ(log.Count(" MPDEventHandler::SetCallback "), 1u);
}

TEST(MPDEventHandlerDestructor, WaitsForTheCallInProgress) {
    FakeCallback host;
    auto handler = std::make_unique<MPDEventHandler>();
    handler->SetCallback(&host);
    host.Block();
    handler->OnStreamDwordEvent(1, 0, 0);
    host.Await(1);
    const LogCapture log(6);
    std::jthread control([&handler] { handler.reset(); });
    ASSERT_TRUE(log.WaitForPrefix(" WorkerProcessor::CloseThread "));
    EXPECT_FALSE(log.Contains(" MPDEventHandler::~MPDEventHandler finish"));
    host.Unblock();
    control.join();
    EXPECT_TRUE(log.Contains(" MPDEventHandler::~MPDEventHandler finish"));
    EXPECT_EQ(host.References(), 1u);
}

TEST(MPDEventHandlerDestructor, DropsWhatWaits) {
    FakeCallback host;
    {
        WatchedHandler handler;
        handler.SetCallback(&host);
        LeaveTwoWaiting(handler, host);
    }
    EXPECT_EQ(host.All(), Calls{NumberEvent(1, 0, 0)});
    EXPECT_EQ(host.References(), 1u);
}

}  // namespace
}  // namespace kvmpd
