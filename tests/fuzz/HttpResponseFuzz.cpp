// Any bytes as the answer to a request: a peer on loopback sends them, and the client with the platform's whole HTTP
// stack below it receives them into each kind of sink. Whatever they are, the request ends with one of its two results,
// what the sink has got is a part of what was sent, in its order, and nothing stays open.
//
// The first byte chooses the sink and how the bytes are sent. A line of four "@" ends a response: what follows answers
// the next connection, which a redirect makes.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/Text.h"
#include "download/DownloadNetKernelStream.h"
#include "download/FileDownloadStream.h"
#include "net/NetKernelBase.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzRequire.h"
#include "tests/fuzz/LogToNobody.h"
#include "tests/fuzz/LoopbackGuard.h"
#include "tests/fuzz/RawPeer.h"
#include "tests/support/Environment.h"
#include "tests/support/ProcessFootprint.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

constexpr DWORD kReceiveTimeout = 100;  // milliseconds
constexpr std::string_view kNextResponse = "\n@@@@\n";

/// What the whole process shares.
struct Ground {
    Ground() {
        for (const char* name : {"http_proxy", "https_proxy", "HTTP_PROXY", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
            UnsetVariable(name);
        }
        AllowConnectionsTo(peer.Port());
        LogToNobody();
    }
    RawPeer peer;
    TempDir dir;
    const std::string url = "http://127.0.0.1:" + std::to_string(peer.Port()) + "/live/1.mp4";
    const std::filesystem::path file = dir.Path() / "1.mp4";
};

Ground& TheGround() {
    static Ground ground;
    return ground;
}

/// Takes the body in areas of its own size and asks for headers by name.
class AreaSink final : public NetKernelContentStreamBase {
  public:
    explicit AreaSink(size_t areaSize) : m_area(areaSize) {}
    BOOL WantsHeaders() override { return 1; }
    std::vector<std::string> GetQueryHeaders() override { return {"Location", "Date", "", "Content-Length"}; }
    BOOL UseStreamBuffer() override { return 1; }
    BOOL WriteInputStream(const BYTE*, DWORD) override { return 0; }
    BOOL OnWriteComplete() override { return 1; }
    BOOL GetWriteBuffer(BYTE** area, DWORD, DWORD* size) override {
        *area = m_area.data();
        *size = static_cast<DWORD>(m_area.size());
        return 1;
    }

  private:
    std::vector<BYTE> m_area;
};

/// Gives a body that was received into memory back.
class FreeingObserver final : public INetKernelProgress {
  public:
    BOOL OnProgress(const char*, std::uint64_t, std::uint64_t) override { return 0; }
    void OnComplete(DWORD, DWORD, BYTE* buffer, DWORD) override { delete[] buffer; }
};

/// Whether `part` is what is left of `whole` after taking bytes out: a body without its chunk sizes, say.
bool IsInOrderWithin(std::string_view part, std::string_view whole) {
    size_t matched = 0;
    for (size_t i = 0; i < whole.size() && matched < part.size(); ++i) {
        matched += whole[i] == part[matched];
    }
    return matched == part.size();
}

struct Exchange {
    std::vector<std::string> replies;
    bool wide = false;

    HRESULT Fetch(NetKernelBase& client, INetKernelContentStream* sink, const wchar_t* file = nullptr) const {
        const std::string& url = TheGround().url;
        const HRESULT result =
            wide ? client.OpenUrlW(Utf8ToWide(url).c_str(), L"GET", nullptr, FALSE, nullptr, file, nullptr, 0, sink)
                 : client.OpenUrl(url.c_str(), "GET", nullptr, FALSE, nullptr, file, nullptr, 0, sink);
        Require(result == S_OK || result == E_FAIL, "one of the two results");
        return result;
    }
    bool CameFromThePeer(std::string_view body) const {
        for (const std::string& reply : replies) {
            if (IsInOrderWithin(body, reply)) {
                return true;
            }
        }
        return body.empty();
    }
};

void ReceiveIntoMemory(const Exchange& exchange, NetKernelBase& client) {
    DownloadNetKernelStream sink;
    const HRESULT result = exchange.Fetch(client, &sink);
    Require(sink.Written() <= sink.Buffer().size(), "the memory holds the body");
    Require(result != S_OK || sink.ContentLength() == DownloadNetKernelStream::kAssumedLength ||
                sink.Written() == sink.ContentLength(),
            "a body that succeeds is as long as announced");
    const auto* bytes = reinterpret_cast<const char*>(sink.Buffer().data());
    Require(exchange.CameFromThePeer({bytes, static_cast<size_t>(sink.Written())}), "the body in memory was sent");
}

void ReceiveIntoFile(const Exchange& exchange, NetKernelBase& client) {
    const std::filesystem::path& path = TheGround().file;
    {
        FileDownloadStream sink(Utf8ToWide(path.string()));
        exchange.Fetch(client, &sink);
        std::error_code absent;
        const std::uintmax_t size = std::filesystem::file_size(path, absent);
        Require((absent ? 0 : size) == sink.Written(), "the file holds what the sink counted");
        std::ifstream file(path, std::ios::binary);
        const std::string body{std::istreambuf_iterator<char>(file), {}};
        Require(exchange.CameFromThePeer(body), "the body in the file was sent");
    }
    std::filesystem::remove(path);
}

void Receive(std::uint32_t kind, const Exchange& exchange) {
    FreeingObserver observer;
    NetKernelBase client(nullptr, kind == 3 ? &observer : nullptr);
    client.SetReceiveTimeout(kReceiveTimeout);
    if (kind == 0 || kind >= 5) {
        return ReceiveIntoMemory(exchange, client);
    }
    if (kind == 1) {
        return ReceiveIntoFile(exchange, client);
    }
    if (kind == 2) {
        AreaSink sink(7);
        exchange.Fetch(client, &sink);
    } else if (kind == 3) {
        exchange.Fetch(client, nullptr);
    } else {
        exchange.Fetch(client, nullptr, Utf8ToWide(TheGround().file.string()).c_str());
        std::error_code absent;
        std::filesystem::remove(TheGround().file, absent);
    }
}

std::vector<std::string> SplitReplies(std::string_view rest) {
    std::vector<std::string> replies;
    for (;;) {
        const size_t end = rest.find(kNextResponse);
        replies.emplace_back(rest.substr(0, end));
        if (end == rest.npos) {
            return replies;
        }
        rest.remove_prefix(end + kNextResponse.size());
    }
}

void Run(FuzzInput input) {
    Ground& ground = TheGround();
    const std::uint32_t how = input.Byte();
    Exchange exchange;
    exchange.wide = (how & 0x08) != 0;
    exchange.replies = SplitReplies(input.Rest());
    ground.peer.Answer(exchange.replies, (how & 0x40) != 0 ? RawEnd::kReset : RawEnd::kClose,
                       (how & 0x80) != 0 ? 11 : 0);
    Receive(how & 0x07, exchange);
    ground.peer.WaitForEnded(AllowedConnections());
}

}  // namespace
}  // namespace kvmpd::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    using kvmpd::test::ProcessFootprint;
    static size_t runs = 0;
    static std::optional<ProcessFootprint> before;
    kvmpd::test::Run({data, size});
    // The first runs open what stays: the trust store, the fuzzer's own files.
    if (++runs % 64 == 0) {
        const auto now = ProcessFootprint::Now();
        if (runs == 64) {
            before = now;
        }
        kvmpd::test::Require(!now || !before || now->descriptors <= before->descriptors + 4, "descriptors stay");
    }
    return 0;
}
