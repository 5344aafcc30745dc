// What the tests of the HTTP client share: a stream and an observer that record what they are told, and a client whose
// narrow and wide twins are called alike.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/Text.h"
#include "net/NetKernelBase.h"
#include "net/NetKernelContentStreamBase.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedPeer.h"
#include "tests/support/TempDir.h"
#include "tests/support/Wine.h"

namespace kvmpd {

struct NetKernelBaseTestAccess {
    static void Abort(NetKernelBase& client) { client.m_bAbort = 1; }
};

namespace test {

/// A content stream whose answers a test sets and whose calls it reads.
class RecordingStream final : public NetKernelContentStreamBase {
  public:
    // Answers.
    std::optional<std::string> customHeaders;
    std::optional<std::vector<std::string>> wantedHeaders;
    std::optional<std::wstring> file;
    bool hasUpload = false;
    std::string upload;
    DWORD uploadLength = 0;           // announced; the upload's own unless set
    DWORD uploadFailsAt = ~DWORD{0};  // offset from which reading the upload fails
    bool useBuffer = false;
    bool useWrite = true;
    std::vector<BYTE> area;  // for useBuffer
    DWORD areaOffered = 0;   // bytes offered each time
    bool refuseArea = false;
    BOOL writeResult = 1;
    BOOL completeResult = 1;
    std::function<void()> atComplete = {};   // called at the body's end
    std::function<BYTE*()> giveBuffer = {};  // what UseResponseFile puts into its buffer argument

    static constexpr DWORD kGivenLength = 5;  // of what giveBuffer gives

    // Calls.
    std::vector<std::string> calls;
    std::string body;
    std::vector<DWORD> blocks;
    std::string host;
    std::string path;

    BOOL HasUploadContent() override { return hasUpload ? 1 : 0; }
    DWORD GetUploadLength() override { return uploadLength != 0 ? uploadLength : static_cast<DWORD>(upload.size()); }
    HRESULT ReadOutputStream(DWORD offset, const BYTE** data, DWORD* size) override {
        if (offset >= uploadFailsAt) {
            return E_FAIL;
        }
        *data = reinterpret_cast<const BYTE*>(upload.data()) + offset;
        *size = std::min(*size, static_cast<DWORD>(upload.size()) - offset);
        return S_OK;
    }
    BOOL HasCustomHeaders() override { return customHeaders.has_value() ? 1 : 0; }
    std::string GetRequestHeaders(std::string forHost, std::string forPath) override {
        host = forHost;
        path = forPath;
        return *customHeaders;
    }
    std::wstring GetRequestHeadersW(std::wstring forHost, std::wstring forPath) override {
        host = WideToUtf8(forHost);
        path = WideToUtf8(forPath);
        return Utf8ToWide(*customHeaders);
    }
    BOOL WantsHeaders() override { return wantedHeaders.has_value() ? 1 : 0; }
    BOOL OnContentLength(std::uint64_t length) override {
        calls.push_back("length " + std::to_string(length));
        return 0;
    }
    BOOL OnContentType(const char* type) override {
        calls.push_back(std::string("type ") + type);
        return 0;
    }
    BOOL OnETag(const char* etag) override {
        calls.push_back(std::string("etag ") + etag);
        return 0;
    }
    std::vector<std::string> GetQueryHeaders() override { return *wantedHeaders; }
    BOOL OnQueryHeader(std::string name, const char* value) override {
        calls.push_back("header " + name + "=" + value);
        return 0;
    }
    BOOL UseStreamWrite() override { return useWrite ? 1 : 0; }
    BOOL WriteInputStream(const BYTE* data, DWORD size) override {
        body.append(reinterpret_cast<const char*>(data), size);
        blocks.push_back(size);
        return writeResult;
    }
    BOOL OnWriteComplete() override {
        calls.push_back("complete");
        if (atComplete) {
            atComplete();
        }
        return completeResult;
    }
    BOOL UseStreamBuffer() override { return useBuffer ? 1 : 0; }
    BOOL GetWriteBuffer(BYTE** target, DWORD offset, DWORD* size) override {
        blocks.push_back(offset);
        *target = area.data() + offset;
        *size = areaOffered;
        return refuseArea ? 0 : 1;
    }
    BOOL UseResponseFile(std::uint64_t* length, const wchar_t* /*responsePath*/, BYTE** buffer) override {
        if (giveBuffer) {
            EXPECT_EQ(*buffer, nullptr);
            *buffer = giveBuffer();
            *length = kGivenLength;
        }
        return file.has_value() ? 1 : 0;
    }
    std::wstring GetResponseFile() override { return *file; }
};

/// An observer that records stages and cancels where a test says.
class RecordingProgress final : public INetKernelProgress {
  public:
    struct Report {
        std::string stage;
        std::uint64_t done;
        std::uint64_t total;
        bool operator==(const Report&) const = default;
    };

    std::string cancelStage;
    std::uint64_t cancelFrom = 0;  // bytes

    std::vector<Report> reports;
    int completions = 0;
    DWORD statusCode = 0;
    DWORD lastError = 0;
    std::string body;
    bool hadBuffer = false;
    DWORD length = 0;

    BOOL OnProgress(const char* stage, std::uint64_t done, std::uint64_t total) override {
        reports.push_back({stage, done, total});
        return stage == cancelStage && done >= cancelFrom ? 1 : 0;
    }
    void OnComplete(DWORD error, DWORD status, BYTE* buffer, DWORD size) override {
        const std::unique_ptr<BYTE[]> owned(buffer);
        ++completions;
        lastError = error;
        statusCode = status;
        hadBuffer = buffer != nullptr;
        length = size;
        if (buffer != nullptr) {
            body.assign(reinterpret_cast<const char*>(buffer), size);
        }
    }
};

enum class Twin { kNarrow, kWide };

/// The arguments of a request beyond its URL.
struct RequestOptions {
    const char* verb = "GET";
    const wchar_t* proxy = nullptr;
    BOOL disableProxy = 0;
    const char* headers = nullptr;
    std::wstring responseFile = {};
    std::string postData = {};
    // Instead of postData, where the two do not go together.
    const char* postBytes = nullptr;
    DWORD postLength = 0;
};

/// Runs every test with the narrow and with the wide twin.
class BothTwins : public testing::TestWithParam<Twin> {
  protected:
    HRESULT Open(NetKernelBase& client, const std::string& url, INetKernelContentStream* stream,
                 const RequestOptions& options = {}) {
        const wchar_t* file = options.responseFile.empty() ? nullptr : options.responseFile.c_str();
        const bool whole = !options.postData.empty();
        const auto* data = reinterpret_cast<const BYTE*>(whole ? options.postData.data() : options.postBytes);
        const auto length = whole ? static_cast<DWORD>(options.postData.size()) : options.postLength;
        if (GetParam() == Twin::kNarrow) {
            return client.OpenUrl(url.c_str(), options.verb, options.proxy, options.disableProxy, options.headers, file,
                                  data, length, stream);
        }
        const std::wstring verb = options.verb == nullptr ? L"" : Utf8ToWide(options.verb);
        const std::wstring headers = options.headers == nullptr ? L"" : Utf8ToWide(options.headers);
        return client.OpenUrlW(Utf8ToWide(url).c_str(), options.verb == nullptr ? nullptr : verb.c_str(), options.proxy,
                               options.disableProxy, options.headers == nullptr ? nullptr : headers.c_str(), file, data,
                               length, stream);
    }

    /// A log text of the twin under test: "@" stands for what a wide twin adds to its name.
    static std::string Text(std::string text) {
        for (size_t at = 0; (at = text.find('@', at)) != std::string::npos;) {
            text.replace(at, 1, GetParam() == Twin::kWide ? "W" : "");
        }
        return text;
    }

    ScriptedPeer m_peer;
    RecordingStream m_stream;
};

inline std::string TwinName(const testing::TestParamInfo<Twin>& twin) {
    return twin.param == Twin::kNarrow ? "Narrow" : "Wide";
}

}  // namespace test
}  // namespace kvmpd

#define KV_FOR_BOTH_TWINS(suite) \
    INSTANTIATE_TEST_SUITE_P(Twins, suite, testing::Values(Twin::kNarrow, Twin::kWide), TwinName)
