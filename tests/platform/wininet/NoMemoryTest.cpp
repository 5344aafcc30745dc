// The calls when there is no memory: a result and an error number, no exception, and nothing opened in part.
#include "tests/common/Allocations.h"
#include "tests/platform/wininet/WininetExchange.h"

namespace kvmpd::test {
namespace {

// Long enough that no text is kept without memory of its own.
const std::string kLong(200, 'a');
const std::string kHeader = "X: " + kLong;

/// The error number that is left by `call` when there is no memory; it has to return nothing.
template <class Call>
DWORD ErrorWithoutMemory(const Call& call) {
    SetLastError(0);
    bool returned = false;
    {
        const NoMemory none;
        returned = static_cast<bool>(call());
    }
    EXPECT_FALSE(returned);
    return GetLastError();
}

TEST(InternetCallsWithoutMemory, OpenNothing) {
    Exchange exchange(80, "/");
    EXPECT_EQ(
        ErrorWithoutMemory([] { return InternetOpenA(kLong.c_str(), INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0); }),
        DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(ErrorWithoutMemory([&] {
                  return InternetConnectA(exchange.session.get(), kLong.c_str(), 80, nullptr, nullptr,
                                          INTERNET_SERVICE_HTTP, 0, 1);
              }),
              DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(ErrorWithoutMemory([&] {
                  return HttpOpenRequestA(exchange.connection.get(), "GET", kLong.c_str(), nullptr, nullptr, nullptr, 0,
                                          1);
              }),
              DWORD{ERROR_NOT_ENOUGH_MEMORY});
}

TEST(InternetCallsWithoutMemory, LeaveARequestThatCanBeSentLater) {
    ScriptedPeer peer;
    peer.Otherwise(PeerReply::Ok("hello"));
    Exchange exchange(peer.Port(), "/");
    EXPECT_EQ(ErrorWithoutMemory([&] {
                  return HttpSendRequestA(exchange.request.get(), kHeader.c_str(), static_cast<DWORD>(-1), nullptr, 0);
              }),
              DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(exchange.Send(), 0u);
    EXPECT_EQ(exchange.Status(), 200u);
}

}  // namespace
}  // namespace kvmpd::test
