#include <future>

#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

/// A number that no table gives out.
HINTERNET MadeUp() {
    return reinterpret_cast<HINTERNET>(static_cast<std::uintptr_t>(0x7FFF1234));
}

TEST(InternetCloseHandle, MadeUpHandleIsInvalid) {
    SetLastError(0);
    EXPECT_FALSE(InternetCloseHandle(MadeUp()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST(InternetCloseHandle, ClosedHandleIsInvalid) {
    const HINTERNET session = InternetOpenA("a", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0);
    ASSERT_NE(session, nullptr);
    EXPECT_TRUE(InternetCloseHandle(session));
    EXPECT_FALSE(InternetCloseHandle(session));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST(InternetCloseHandle, NullIsInvalid) {
    EXPECT_FALSE(InternetCloseHandle(nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST(InternetCloseHandle, ClosingASessionClosesWhatWasOpenedFromIt) {
    Exchange exchange(80, "/");
    EXPECT_TRUE(InternetCloseHandle(exchange.session.release()));
    EXPECT_FALSE(InternetCloseHandle(exchange.request.release()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_FALSE(InternetCloseHandle(exchange.connection.release()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST(InternetCloseHandle, EndsAReadInProgress) {
    if (UnderWine()) {
        GTEST_SKIP() << "Wine lets a read that waits for the server wait on when its handle is closed";
    }
    ScriptedPeer peer;
    std::promise<void> stalled;
    peer.On("/", PeerReply::Head(10).Send("abc").Call([&] { stalled.set_value(); }).Stall());
    Exchange exchange(peer.Port(), "/");
    ASSERT_EQ(exchange.Send(), 0u);
    stalled.get_future().wait();
    std::string first;
    ASSERT_EQ(exchange.Read(3, first), 0u);

    std::promise<void> reading;
    auto error = std::async(std::launch::async, [&, request = exchange.request.get()] {
        reading.set_value();
        char byte = 0;
        DWORD count = 0;
        return InternetReadFile(request, &byte, 1, &count) != 0 ? 0 : GetLastError();
    });
    reading.get_future().wait();
    InternetCloseHandle(exchange.request.release());
    const DWORD result = error.get();
    // The read may begin before the close or after it.
    EXPECT_TRUE(result == ERROR_INTERNET_OPERATION_CANCELLED || result == DWORD{ERROR_INVALID_HANDLE}) << result;
}

/// Whether the handle was refused. Which of the two errors a number that was never a handle meets is not documented.
bool IsRefusal(DWORD error) {
    return error == DWORD{ERROR_INVALID_HANDLE} || error == DWORD{ERROR_INTERNET_INCORRECT_HANDLE_TYPE};
}

TEST(Handles, CallsOnAMadeUpHandleAreRefused) {
    char byte = 0;
    DWORD count = 0;
    EXPECT_FALSE(InternetReadFile(MadeUp(), &byte, 1, &count));
    EXPECT_PRED1(IsRefusal, GetLastError());
    EXPECT_FALSE(InternetWriteFile(MadeUp(), &byte, 1, &count));
    EXPECT_PRED1(IsRefusal, GetLastError());
    EXPECT_FALSE(HttpSendRequestA(MadeUp(), nullptr, 0, nullptr, 0));
    EXPECT_PRED1(IsRefusal, GetLastError());
    EXPECT_FALSE(HttpQueryInfoA(MadeUp(), HTTP_QUERY_STATUS_CODE, &byte, &count, nullptr));
    EXPECT_PRED1(IsRefusal, GetLastError());
    EXPECT_EQ(InternetConnectA(MadeUp(), "host", 80, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1), nullptr);
    EXPECT_PRED1(IsRefusal, GetLastError());
    EXPECT_EQ(HttpOpenRequestA(MadeUp(), "GET", "/", nullptr, nullptr, nullptr, 0, 1), nullptr);
    EXPECT_PRED1(IsRefusal, GetLastError());
}

TEST(Handles, ASessionIsNoRequest) {
    const Internet session(InternetOpenW(L"a", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    EXPECT_FALSE(HttpSendRequestW(session.get(), nullptr, 0, nullptr, 0));
    EXPECT_EQ(GetLastError(), ERROR_INTERNET_INCORRECT_HANDLE_TYPE);
    EXPECT_EQ(HttpOpenRequestW(session.get(), L"GET", L"/", nullptr, nullptr, nullptr, 0, 1), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INTERNET_INCORRECT_HANDLE_TYPE);
}

TEST(InternetConnect, EmptyHostIsAnInvalidParameter) {
    const Internet session(InternetOpenA("a", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    EXPECT_EQ(InternetConnectA(session.get(), "", 0, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(InternetConnectW(session.get(), L"", 0, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(InternetSetOption, WrongLengthIsRefused) {
    Exchange exchange(80, "/");
    DWORD value = 1;
    EXPECT_FALSE(InternetSetOptionA(exchange.request.get(), INTERNET_OPTION_RECEIVE_TIMEOUT, &value, 2));
    if (UnderWine()) {
        GTEST_SKIP() << "Wine calls a wrong length an invalid parameter";
    }
    EXPECT_EQ(GetLastError(), ERROR_INTERNET_BAD_OPTION_LENGTH);
}

TEST(InternetSetOption, TimeOutsAreAcceptedOnSessionsAndRequests) {
    Exchange exchange(80, "/");
    DWORD value = 1234;
    for (const HINTERNET handle : {exchange.session.get(), exchange.request.get()}) {
        EXPECT_TRUE(InternetSetOptionA(handle, INTERNET_OPTION_RECEIVE_TIMEOUT, &value, sizeof(value)));
        EXPECT_TRUE(InternetSetOptionW(handle, INTERNET_OPTION_SEND_TIMEOUT, &value, sizeof(value)));
    }
}

TEST(InternetErrorDlg, NeedsAWindowUnlessNoDialogIsWanted) {
    Exchange exchange(80, "/");
    EXPECT_EQ(InternetErrorDlg(nullptr, exchange.request.get(), 0, FLAGS_ERROR_UI_FILTER_FOR_ERRORS, nullptr),
              DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(InternetErrorDlg(nullptr, exchange.request.get(), 0,
                               FLAGS_ERROR_UI_FILTER_FOR_ERRORS | FLAGS_ERROR_UI_FLAGS_NO_UI, nullptr),
              DWORD{ERROR_SUCCESS});
}

}  // namespace
}  // namespace kvmpd::test
