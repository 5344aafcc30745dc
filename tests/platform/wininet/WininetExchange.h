// One request through the internet calls, its three handles closed at the end.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/Handle.h"
#include "platform/wininet.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/Wine.h"

namespace kvmpd::test {

struct InternetPolicy {
    using Type = HINTERNET;
    static Type Invalid() noexcept { return nullptr; }
    static bool IsValid(Type handle) noexcept { return handle != nullptr; }
    static void Close(Type handle) noexcept { InternetCloseHandle(handle); }
};
using Internet = UniqueHandle<InternetPolicy>;

struct Exchange {
    Internet session;
    Internet connection;
    Internet request;

    Exchange(std::uint16_t port, const char* path, const char* verb = "GET", DWORD extraFlags = 0,
             const char* host = "127.0.0.1") {
        session.reset(InternetOpenA("agent/1", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
        connection.reset(InternetConnectA(session.get(), host, port, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 1));
        request.reset(HttpOpenRequestA(connection.get(), verb, path, nullptr, nullptr, nullptr,
                                       INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_RESYNCHRONIZE | extraFlags, 1));
        EXPECT_TRUE(session && connection && request);
    }

    /// 0 or the error number.
    DWORD Send(const std::string& headers = "", const std::string& body = "") {
        std::string copy = body;
        const BOOL sent = HttpSendRequestA(request.get(), headers.c_str(), static_cast<DWORD>(headers.size()),
                                           copy.empty() ? nullptr : copy.data(), static_cast<DWORD>(copy.size()));
        return sent != 0 ? 0 : GetLastError();
    }

    DWORD SetTimeout(DWORD option, DWORD milliseconds) {
        return InternetSetOptionA(request.get(), option, &milliseconds, sizeof(milliseconds)) != 0 ? 0 : GetLastError();
    }

    DWORD Status() {
        DWORD status = 0;
        DWORD size = sizeof(status);
        HttpQueryInfoA(request.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr);
        return status;
    }

    /// Reads up to `size` bytes in one call; 0 or the error number.
    DWORD Read(DWORD size, std::string& data) {
        data.assign(size, '\0');
        DWORD count = 0;
        const BOOL read = InternetReadFile(request.get(), data.data(), size, &count);
        const DWORD error = read != 0 ? 0 : GetLastError();
        data.resize(count);
        return error;
    }

    /// Reads to the end or to an error, which is 0 at the end.
    DWORD ReadAll(std::string& body, DWORD blockSize = 4096) {
        body.clear();
        for (;;) {
            std::string block;
            const DWORD error = Read(blockSize, block);
            body += block;
            if (error != 0 || block.empty()) {
                return error;
            }
        }
    }

    std::string Body() {
        std::string body;
        EXPECT_EQ(ReadAll(body), 0u);
        return body;
    }
};

}  // namespace kvmpd::test
