// minimal-host URL FOLDER: follows the live manifest at URL, keeps its cache files in FOLDER, and writes the first 256
// KiB of video to standard output. Exit code 0: written.
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include <filter/KVMPDSrc.h>

struct Callback final : IKVMPDCallback {  // outlives the filter, so its references need no counting
    std::atomic<bool> failed{false};
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG, LONGLONG, LONGLONG) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void*) override {
        failed = failed || (id == kvmpd::kEventManifest && *static_cast<LONG*>(param1) != kvmpd::kManifestLoaded);
        return S_OK;
    }
};

int main(int argc, char** argv) {
    Callback callback;
    IKVMPDSource* source = nullptr;
    void** const out = reinterpret_cast<void**>(&source);
    if (argc != 3 || KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IKVMPDSource, out) != S_OK) {
        return std::fprintf(stderr, "usage: minimal-host URL FOLDER\n"), 2;
    }
    IBaseFilter* filter = nullptr;
    IPin* pin = nullptr;
    IAsyncReader* reader = nullptr;
    source->QueryInterface(IID_IBaseFilter, reinterpret_cast<void**>(&filter));
    filter->FindPin(L"Output", &pin);
    pin->QueryInterface(IID_IAsyncReader, reinterpret_cast<void**>(&reader));

    const std::string url = argv[1];
    source->Backdoor(kvmpd::kBackdoorCacheFolder, argv[2]);
    source->SetCallback(&callback);
    source->Load(std::wstring(url.begin(), url.end()).c_str());
    std::vector<BYTE> buffer(4096);
    LONGLONG position = 0;  // in the video stream; audio byte 0 is at 0x3FFFFFFFFFFFFFFF
    while (position < 256 * 1024 && !callback.failed) {
        if (reader->SyncRead(position, static_cast<LONG>(buffer.size()), buffer.data()) == S_OK) {
            position += static_cast<LONGLONG>(std::fwrite(buffer.data(), 1, buffer.size(), stdout));
        }
    }
    std::fprintf(stderr, callback.failed ? "manifest: failed\n" : "done\n");
    reader->Release();
    pin->Release();
    filter->Release();
    return source->Release(), callback.failed ? 1 : 0;  // the last reference: every thread of the stream ends here
}
