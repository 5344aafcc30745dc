// Parsing a manifest as a two-hour window really looks (3,600 segments, 15 representations) into a record, against
// TinyXML-2's bare parse of the same bytes.

#include <benchmark/benchmark.h>
#include <tinyxml2.h>

#include <memory>
#include <string>

#include "manifest/MpdParser.h"
#include "origin/ManifestWriter.h"

namespace {

const std::string& Manifest() {
    static const std::string text = kvmpd::origin::MakeLargeManifest();
    return text;
}

/// Hands the manifest to the sink as a transfer would, in blocks, without a network.
class MemoryClient final : public kvmpd::INetKernelBase {
  public:
    void SetReceiveChunkSize(DWORD) override {}
    HRESULT OpenUrl(const char*, const char*, const wchar_t*, BOOL, const char*, const wchar_t*, const BYTE*, DWORD,
                    kvmpd::INetKernelContentStream* stream) override {
        return Deliver(stream);
    }
    HRESULT OpenUrlW(const wchar_t*, const wchar_t*, const wchar_t*, BOOL, const wchar_t*, const wchar_t*, const BYTE*,
                     DWORD, kvmpd::INetKernelContentStream* stream) override {
        return Deliver(stream);
    }
    void Close() override {}
    DWORD Reset() override { return 0; }
    DWORD GetErrorType() override { return 0; }
    void SetReceiveTimeout(DWORD) override {}
    void SetSendTimeout(DWORD) override {}
    DWORD Reserved8() override { return 0; }
    DWORD Reserved9() override { return 0; }

  private:
    static HRESULT Deliver(kvmpd::INetKernelContentStream* stream) {
        constexpr size_t kBlock = 0x20000;
        const std::string& text = Manifest();
        stream->OnContentLength(text.size());
        for (size_t at = 0; at < text.size(); at += kBlock) {
            const size_t size = std::min(kBlock, text.size() - at);
            stream->WriteInputStream(reinterpret_cast<const BYTE*>(text.data() + at), static_cast<DWORD>(size));
        }
        stream->OnWriteComplete();
        return S_OK;
    }
};

void TinyXml2BareParse(benchmark::State& state) {
    for (auto _ : state) {
        tinyxml2::XMLDocument document;
        if (document.Parse(Manifest().data(), Manifest().size()) != tinyxml2::XML_SUCCESS) {
            state.SkipWithError("the manifest does not parse");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Manifest().size()));
}
BENCHMARK(TinyXml2BareParse)->Unit(benchmark::kMillisecond);

void ParseIntoRecord(benchmark::State& state) {
    kvmpd::MpdParser parser(std::make_unique<MemoryClient>());
    for (auto _ : state) {
        auto mpd = std::make_shared<kvmpd::MPD>();
        if (FAILED(parser.parse(L"http://127.0.0.1/live.mpd", mpd)) || mpd->m_segmentDurations.size() != 3600) {
            state.SkipWithError("the manifest does not parse");
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Manifest().size()));
}
BENCHMARK(ParseIntoRecord)->Unit(benchmark::kMillisecond);

}  // namespace
