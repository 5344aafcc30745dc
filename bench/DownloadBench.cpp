// One request for an 8 MiB body over loopback into a new file: the component's client and file sink against a bare
// libcurl transfer into a file.

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdio>
#include <filesystem>

#include "bench/BenchOrigin.h"
#include "common/Text.h"
#include "download/FileDownloadStream.h"
#include "net/NetKernelBase.h"

namespace {

constexpr size_t kBody = 8 * 1024 * 1024;

struct Body {
    Body() : live(kvmpd::bench::MakeOrigin(kBody, 1000)) { url = live->BaseUrl(kvmpd::bench::kVideo) + "1.mp4"; }
    std::unique_ptr<kvmpd::origin::LiveOrigin> live;
    kvmpd::bench::Folder folder;
    std::string url;
};

size_t AppendToFile(char* data, size_t size, size_t count, void* file) {
    return std::fwrite(data, size, count, static_cast<std::FILE*>(file));
}

void BareLibcurlIntoFile(benchmark::State& state) {
    const Body body;
    const std::string path = body.folder.File("bare.mp4");
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        CURL* curl = curl_easy_init();
        curl_easy_setopt(curl, CURLOPT_URL, body.url.c_str());
        curl_easy_setopt(curl, CURLOPT_PROXY, "");
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, AppendToFile);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, file);
        const CURLcode result = curl_easy_perform(curl);
        curl_easy_cleanup(curl);
        std::fclose(file);
        state.PauseTiming();
        if (result != CURLE_OK || std::filesystem::file_size(path) != kBody) {
            state.SkipWithError("the transfer failed");
        }
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBody));
}
BENCHMARK(BareLibcurlIntoFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void OpenUrlIntoFileSink(benchmark::State& state) {
    const Body body;
    const std::string path = body.folder.File("sink.mp4");
    kvmpd::NetKernelBase client(nullptr, nullptr);
    for (auto _ : state) {
        HRESULT result = E_FAIL;
        {
            kvmpd::FileDownloadStream sink(kvmpd::Utf8ToWide(path));
            result = client.OpenUrl(body.url.c_str(), "GET", nullptr, FALSE, nullptr, nullptr, nullptr, 0, &sink);
        }
        state.PauseTiming();
        if (FAILED(result) || std::filesystem::file_size(path) != kBody) {
            state.SkipWithError("the transfer failed");
        }
        std::filesystem::remove(path);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBody));
}
BENCHMARK(OpenUrlIntoFileSink)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
