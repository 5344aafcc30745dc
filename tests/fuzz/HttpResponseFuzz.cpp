// Any bytes as the answer to a request: a peer on loopback sends them, and the client with the platform's whole HTTP
// stack below it receives them into each kind of sink. Whatever they are, the request ends with one of its two results,
// what the sink has got is a part of what was sent, in its order, and nothing stays open. A body that is framed by its
// length or by the end of the connection alone arrives exactly as it was sent, or, if it is cut, as the front of it.
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
#include "tests/fuzz/PlainResponse.h"
#include "tests/fuzz/RawPeer.h"
#include "tests/support/Environment.h"
#include "tests/support/ProcessFootprint.h"
#include "tests/support/TempDir.h"

namespace kvmpd::test {
namespace {

constexpr DWORD kReceiveTimeout = 100;  // milliseconds
/// For a response that ends by itself: reached when the client waits for what does not come.
constexpr DWORD kReceiveTimeoutOfWhole = 10'000;
constexpr size_t kLargestBufferedWithoutLength = 4096;
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
    BOOL WantsHeaders() override { return 1; }
    std::vector<std::string> GetQueryHeaders() override { return {"Location", "Date", "", "Content-Length"}; }
    BOOL UseStreamBuffer() override { return 1; }
    BOOL WriteInputStream(const BYTE*, DWORD) override { return 0; }
    BOOL OnWriteComplete() override { return 1; }
    BOOL GetWriteBuffer(BYTE** area, DWORD offset, DWORD* size) override {
        m_taken = offset;
        m_bytes.resize(offset + kAreaSize);
        *area = reinterpret_cast<BYTE*>(m_bytes.data()) + offset;
        *size = kAreaSize;
        return 1;
    }
    /// What was there when the last area was asked for; what that one got is told to nobody.
    std::string_view Taken() const { return std::string_view(m_bytes).substr(0, m_taken); }
    std::string_view Areas() const { return m_bytes; }

  private:
    static constexpr DWORD kAreaSize = 7;
    std::string m_bytes;
    size_t m_taken = 0;
};

/// Takes over a body that was received into memory.
class BodyObserver final : public INetKernelProgress {
  public:
    BOOL OnProgress(const char*, std::uint64_t, std::uint64_t) override { return 0; }
    void OnComplete(DWORD, DWORD, BYTE* buffer, DWORD length) override {
        body.assign(reinterpret_cast<const char*>(buffer), length);
        delete[] buffer;
    }
    std::string body;
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
    bool isReset = false;
    std::optional<PlainResponse> plain = {};  // the only response, when it is

    bool IsWhole() const { return plain && !plain->IsCut() && !isReset; }

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
    /// What was received of a request with this result, in a sink that judges the length.
    void Check(HRESULT result, std::string_view body) const {
        if (plain) {
            Require(result == S_OK ? body == plain->Body() : plain->Body().starts_with(body),
                    "the body as it was sent");
            Require(result == S_OK || !IsWhole(), "a whole body succeeds");
            Require(result != S_OK || !plain->IsCut(), "a body that is cut fails");
        }
        Require(CameFromThePeer(body), "the body was sent");
    }
    /// The same in one that takes what there is.
    void CheckAnyLength(std::string_view body) const {
        if (plain) {
            Require(IsWhole() ? body == plain->Body() : plain->Body().starts_with(body), "the body as it was sent");
        }
        Require(CameFromThePeer(body), "the body was sent");
    }
};

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void ReceiveIntoMemory(const Exchange& exchange, NetKernelBase& client) {
    DownloadNetKernelStream sink;
    const HRESULT result = exchange.Fetch(client, &sink);
    Require(sink.Written() <= sink.Buffer().size(), "the memory holds the body");
    Require(result != S_OK || sink.ContentLength() == DownloadNetKernelStream::kAssumedLength ||
                sink.Written() == sink.ContentLength(),
            "a body that succeeds is as long as announced");
    const auto* bytes = reinterpret_cast<const char*>(sink.Buffer().data());
    exchange.Check(result, {bytes, static_cast<size_t>(sink.Written())});
}

void ReceiveIntoFile(const Exchange& exchange, NetKernelBase& client) {
    const std::filesystem::path& path = TheGround().file;
    {
        FileDownloadStream sink(Utf8ToWide(path.string()));
        const HRESULT result = exchange.Fetch(client, &sink);
        std::error_code absent;
        const std::uintmax_t size = std::filesystem::file_size(path, absent);
        Require((absent ? 0 : size) == sink.Written(), "the file holds what the sink counted");
        exchange.Check(result, ReadFile(path));
    }
    std::filesystem::remove(path);
}

void ReceiveIntoAreas(const Exchange& exchange, NetKernelBase& client) {
    AreaSink sink;
    const HRESULT result = exchange.Fetch(client, &sink);
    Require(!exchange.plain || exchange.plain->Body().starts_with(sink.Taken()), "the body as it was sent");
    if (exchange.plain && exchange.plain->length) {
        const bool success = result == S_OK;
        Require(success ? sink.Areas().starts_with(exchange.plain->Body()) : !exchange.IsWhole(), "the areas are full");
        Require(!success || !exchange.plain->IsCut(), "a body that is cut fails");
    }
}

void ReceiveIntoBuffer(const Exchange& exchange, NetKernelBase& client, const BodyObserver& observer) {
    const HRESULT result = exchange.Fetch(client, nullptr);
    // One without a length that fills the buffer keeps its first half.
    if (result == S_OK && exchange.plain &&
        (exchange.plain->length || exchange.plain->Body().size() < kLargestBufferedWithoutLength)) {
        exchange.CheckAnyLength(observer.body);
    }
}

void ReceiveIntoResponseFile(const Exchange& exchange, NetKernelBase& client) {
    const std::filesystem::path& path = TheGround().file;
    exchange.Fetch(client, nullptr, Utf8ToWide(path.string()).c_str());
    exchange.CheckAnyLength(ReadFile(path));
    std::error_code absent;
    std::filesystem::remove(path, absent);
}

void Receive(std::uint32_t kind, const Exchange& exchange) {
    BodyObserver observer;
    NetKernelBase client(nullptr, kind == 3 ? &observer : nullptr);
    client.SetReceiveTimeout(exchange.IsWhole() ? kReceiveTimeoutOfWhole : kReceiveTimeout);
    switch (kind) {
        case 1:
            return ReceiveIntoFile(exchange, client);
        case 2:
            return ReceiveIntoAreas(exchange, client);
        case 3:
            return ReceiveIntoBuffer(exchange, client, observer);
        case 4:
            return ReceiveIntoResponseFile(exchange, client);
        default:
            return ReceiveIntoMemory(exchange, client);
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
    exchange.isReset = (how & 0x40) != 0;
    exchange.replies = SplitReplies(input.Rest());
    exchange.plain = ReadPlainResponse(exchange.replies.front());
    ground.peer.Answer(exchange.replies, exchange.isReset ? RawEnd::kReset : RawEnd::kClose,
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
