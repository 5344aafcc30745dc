// kvmpd-graph URL --video FILE --audio FILE --for SECONDS: a DirectShow host for the source filter. Follows the live
// manifest at URL in a filter graph for so many seconds and writes the two streams to files. The cache files are kept
// in a folder of its own below the system's temporary one.
//
// The module is loaded by its file, KVMPDSrc.ax beside this program, and not registered. Nothing of the component is
// linked; of its headers only the interfaces and ids are used.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <filter/KVMPDSrc.h>

namespace {

constexpr LONGLONG kAudioBase = 0x3FFFFFFFFFFFFFFF;

template <class Interface>
struct Releaser {
    void operator()(Interface* object) const { object->Release(); }
};
template <class Interface>
using Ref = std::unique_ptr<Interface, Releaser<Interface>>;

[[noreturn]] void Fail(const char* what, HRESULT result = S_OK) {
    std::fprintf(stderr, "kvmpd-graph: %s", what);
    std::fprintf(stderr, FAILED(result) ? " (0x%08lX)\n" : "\n", static_cast<unsigned long>(result));
    std::exit(2);
}

template <class Interface>
Ref<Interface> Query(IUnknown& object, REFIID iid) {
    void* out = nullptr;
    if (const HRESULT result = object.QueryInterface(iid, &out); FAILED(result)) {
        Fail("an interface is missing", result);
    }
    return Ref<Interface>(static_cast<Interface*>(out));
}

/// What the component tells. Outlives the filter, so its references need no counting.
struct Callback final : IKVMPDCallback {
    std::atomic<bool> failed{false};  // until a manifest is loaded again
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG, LONGLONG, LONGLONG) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void*) override {
        if (id == kvmpd::kEventManifest) {
            failed = *static_cast<LONG*>(param1) != kvmpd::kManifestLoaded;
        }
        return S_OK;
    }
};

/// The source filter, from the module's class factory.
Ref<IBaseFilter> MakeSource(HMODULE module) {
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto get =
        reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    void* out = nullptr;
    if (get == nullptr || FAILED(get(CLSID_KVMPDFilter, IID_IClassFactory, &out))) {
        Fail("KVMPDSrc.ax has no class factory for the source");
    }
    const Ref<IClassFactory> factory(static_cast<IClassFactory*>(out));
    if (const HRESULT result = factory->CreateInstance(nullptr, IID_IBaseFilter, &out); FAILED(result)) {
        Fail("the source filter cannot be made", result);
    }
    return Ref<IBaseFilter>(static_cast<IBaseFilter*>(out));
}

/// One of the pin's two byte streams, read box by box (ISO/IEC 14496-12, 4.2), so that its file always ends with a
/// whole one.
class BoxStream {
  public:
    BoxStream(LONGLONG base, const char* path) : m_position(base), m_file(path, std::ios::binary) {
        if (!m_file) {
            Fail("an output file cannot be written");
        }
    }

    /// Appends boxes up to the next segment's first, for which it waits; false when the stream was stopped, cannot be
    /// read or is no MP4, or when the file cannot be written.
    bool NextSegment(IAsyncReader& reader) {
        for (bool first = true;; first = false) {
            BYTE header[16];
            if (!Read(reader, m_position, header, 8)) {
                return false;
            }
            if (!first && (std::memcmp(header + 4, "ftyp", 4) == 0 || std::memcmp(header + 4, "styp", 4) == 0)) {
                return true;
            }
            LONGLONG size = BigEndian(header, 4);
            if (size == 1) {  // a 64-bit size follows the type
                if (!Read(reader, m_position + 8, header + 8, 8)) {
                    return false;
                }
                size = BigEndian(header + 8, 8);
            }
            if (!AppendBox(reader, size)) {
                return false;
            }
        }
    }
    LONGLONG Written() const { return m_written; }

  private:
    bool AppendBox(IAsyncReader& reader, LONGLONG size) {
        if (size < 8 || size > 256 * 1024 * 1024) {
            std::fprintf(stderr, "kvmpd-graph: what came is no fragmented MP4\n");
            return false;
        }
        m_box.resize(static_cast<size_t>(size));
        if (!Read(reader, m_position, m_box.data(), static_cast<LONG>(size))) {
            return false;
        }
        m_file.write(reinterpret_cast<const char*>(m_box.data()), size);
        m_position += size;
        m_written += size;
        return static_cast<bool>(m_file);
    }
    static LONGLONG BigEndian(const BYTE* bytes, int count) {
        ULONGLONG value = 0;
        for (int i = 0; i < count; ++i) {
            value = value << 8 | bytes[i];
        }
        return static_cast<LONGLONG>(value);
    }
    /// S_FALSE says that the bytes have not arrived yet: the next segment brings them.
    static bool Read(IAsyncReader& reader, LONGLONG position, BYTE* buffer, LONG length) {
        HRESULT result = S_FALSE;
        while (result == S_FALSE) {
            result = reader.SyncRead(position, length, buffer);
        }
        return result == S_OK;
    }

    LONGLONG m_position;
    std::ofstream m_file;
    std::vector<BYTE> m_box;
    std::atomic<LONGLONG> m_written{0};
};

std::wstring Wide(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                                        wide.data(), static_cast<int>(wide.size()))));
    return wide;
}

/// A folder for the cache files, below the system's temporary one.
class CacheFolder {
  public:
    CacheFolder() {
        wchar_t root[MAX_PATH];
        GetTempPathW(MAX_PATH, root);
        m_path = std::wstring(root) + L"kvmpd-graph-" + std::to_wstring(GetCurrentProcessId());
        if (!CreateDirectoryW(m_path.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
            Fail("no folder for the cache files can be made");
        }
    }
    ~CacheFolder() { RemoveDirectoryW(m_path.c_str()); }  // the component has deleted its files
    CacheFolder(const CacheFolder&) = delete;
    CacheFolder& operator=(const CacheFolder&) = delete;

    std::string Utf8() const {
        std::string text(m_path.size() * 3, '\0');
        text.resize(
            static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, m_path.data(), static_cast<int>(m_path.size()),
                                                    text.data(), static_cast<int>(text.size()), nullptr, nullptr)));
        return text;
    }

  private:
    std::wstring m_path;
};

struct Options {
    std::string url;
    std::string video;
    std::string audio;
    int seconds = 0;
};

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--video") == 0 && hasValue) {
            options.video = argv[++i];
        } else if (std::strcmp(argv[i], "--audio") == 0 && hasValue) {
            options.audio = argv[++i];
        } else if (std::strcmp(argv[i], "--for") == 0 && hasValue) {
            options.seconds = std::atoi(argv[++i]);
        } else if (argv[i][0] != '-' && options.url.empty()) {
            options.url = argv[i];
        } else {
            options.url.clear();
            break;
        }
    }
    if (options.url.empty() || options.video.empty() || options.audio.empty() || options.seconds <= 0) {
        std::fprintf(stderr, "usage: kvmpd-graph URL --video FILE --audio FILE --for SECONDS\n");
        std::exit(1);
    }
    return options;
}

/// Follows the stream in a graph; false when no media came.
bool Follow(const Options& options, HMODULE module) {
    CacheFolder folder;
    Callback callback;
    BoxStream video(0, options.video.c_str());
    BoxStream audio(kAudioBase, options.audio.c_str());

    void* out = nullptr;
    if (const HRESULT result =
            CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, &out);
        FAILED(result)) {
        Fail("there is no filter graph manager", result);
    }
    const Ref<IGraphBuilder> graph(static_cast<IGraphBuilder*>(out));
    const Ref<IBaseFilter> source = MakeSource(module);
    graph->AddFilter(source.get(), L"Kavotra MPD Source");
    const auto control = Query<IKVMPDSource>(*source, IID_IKVMPDSource);
    const auto file = Query<IFileSourceFilter>(*source, IID_IFileSourceFilter);
    const auto media = Query<IMediaControl>(*graph, IID_IMediaControl);
    IPin* pin = nullptr;
    source->FindPin(L"Output", &pin);
    const Ref<IPin> output(pin);
    // A splitter would be connected here and ask the pin for its reader; this host is its own splitter.
    const auto reader = Query<IAsyncReader>(*output, IID_IAsyncReader);

    std::string path = folder.Utf8();
    control->Backdoor(kvmpd::kBackdoorCacheFolder, path.data());
    control->SetCallback(&callback);
    file->Load(Wide(options.url).c_str(), nullptr);
    media->Run();

    // One segment of each in turn: both files end with the same one.
    std::atomic<bool> enough{false};
    std::atomic<bool> ended{false};
    std::thread pump([&] {
        while (!enough && video.NextSegment(*reader) && audio.NextSegment(*reader)) {
        }
        ended = true;
    });
    const auto waitUntil = [&](std::chrono::steady_clock::time_point end) {
        // The component does not try a failed manifest again by itself. What was there before it can still be had.
        while (!ended && !(callback.failed && video.Written() == 0) && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    };
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    waitUntil(end);
    enough = true;
    waitUntil(end + std::chrono::seconds(10));         // the segments that are on their way
    control->Backdoor(kvmpd::kBackdoorStop, nullptr);  // ends a read that waits all the same
    pump.join();
    media->Stop();
    control->SetCallback(nullptr);
    std::printf("video: %lld bytes, audio: %lld bytes\n", static_cast<long long>(video.Written()),
                static_cast<long long>(audio.Written()));
    if (callback.failed) {
        std::fprintf(stderr, video.Written() == 0 ? "kvmpd-graph: the manifest could not be loaded\n"
                                                  : "kvmpd-graph: the manifest could not be loaded again\n");
    }
    return video.Written() > 0 && audio.Written() > 0;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = Parse(argc, argv);
    const HMODULE module = LoadLibraryW(L"KVMPDSrc.ax");
    if (module == nullptr) {
        Fail("KVMPDSrc.ax cannot be loaded; it belongs beside this program");
    }
    if (const HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED); FAILED(result)) {
        Fail("COM is not to be had", result);
    }
    const bool gotMedia = Follow(options, module);
    CoUninitialize();
    using CanUnloadNow = HRESULT(STDAPICALLTYPE*)();
    const auto canUnload =
        reinterpret_cast<CanUnloadNow>(reinterpret_cast<void*>(GetProcAddress(module, "DllCanUnloadNow")));
    if (canUnload != nullptr && canUnload() == S_OK) {
        FreeLibrary(module);
    }
    return gotMedia ? 0 : 2;
}
