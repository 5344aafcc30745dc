#include "app/SourceSession.h"

#include "app/PinReader.h"
#include "app/Text.h"
#include "filter/KVMPDSrc.h"

namespace kvmpd::app {
namespace {

bool Check(HRESULT result, const char* what, std::string& error) {
    if (SUCCEEDED(result)) {
        return true;
    }
    error = std::string("the source component cannot ") + what + ": " + ResultText(result);
    return false;
}

bool SetNumber(IKVMPDSource& control, DWORD id, std::optional<std::uint32_t> value, const char* what,
               std::string& error) {
    if (!value) {
        return true;
    }
    DWORD number = *value;
    return Check(control.Backdoor(id, &number), what, error);
}

}  // namespace

std::unique_ptr<SourceSession> SourceSession::Open(const SourceOptions& options, EventSink& sink, std::string& error) {
    std::unique_ptr<SourceSession> session(new SourceSession);
    if (!session->CreateFilter(error)) {
        return nullptr;
    }
    kvmpd::ComPtr<HostCallback> callback;
    callback.Attach(new HostCallback(sink));
    if (!Check(session->m_control->SetCallback(callback.get()), "take the host's callback", error) ||
        !session->ApplyOptions(options, error) || !session->Connect(error) || !session->Start(options, error)) {
        return nullptr;
    }
    return session;
}

bool SourceSession::CreateFilter(std::string& error) {
    kvmpd::ComPtr<IClassFactory> factory;
    return Check(DllGetClassObject(CLSID_KVMPDFilter, IID_IClassFactory, factory.putVoid()), "be found", error) &&
           Check(factory->CreateInstance(nullptr, IID_IBaseFilter, m_filter.putVoid()), "be created", error) &&
           Check(m_filter->QueryInterface(IID_IKVMPDSource, m_control.putVoid()), "be controlled", error);
}

// Before the URL is loaded: a quality or a start that is asked for later would move a stream that has begun.
bool SourceSession::ApplyOptions(const SourceOptions& options, std::string& error) {
    std::string folder = options.cacheFolder;
    m_delaySegments = options.delaySegments.value_or(0);
    return Check(m_control->Backdoor(kBackdoorCacheFolder, folder.data()), "use the cache folder", error) &&
           SetNumber(*m_control, kBackdoorMaxCacheTime, options.maxCacheSeconds, "set the cache's length", error) &&
           SetNumber(*m_control, kBackdoorPreferDelaySegments, options.delaySegments, "set the delay", error) &&
           SetNumber(*m_control, kBackdoorPreferQuality, options.preferHeight, "set the preferred height", error) &&
           SetNumber(*m_control, kBackdoorTargetQuality, options.qualityId, "set the quality", error);
}

bool SourceSession::Connect(std::string& error) {
    return Check(m_filter->FindPin(L"Output", m_output.put()), "give its output pin", error) &&
           Check(m_output->Connect(m_input.get(), nullptr), "connect its output pin", error) &&
           Check(m_input->Reader() ? S_OK : VFW_E_NO_TRANSPORT, "be read from", error);
}

bool SourceSession::Start(const SourceOptions& options, std::string& error) {
    kvmpd::ComPtr<IFileSourceFilter> file;
    return Check(m_filter->QueryInterface(IID_IFileSourceFilter, file.putVoid()), "take a URL", error) &&
           Check(file->Load(WideFromUtf8(options.url).c_str(), nullptr), "load the URL", error) &&
           Check(m_filter->Run(0), "run", error);
}

void SourceSession::AskForManifestAgain() {
    m_delaySegments ^= 1u;
    DWORD count = m_delaySegments;
    m_control->Backdoor(kBackdoorPreferDelaySegments, &count);
}

void SourceSession::EndReads() {
    if (m_control) {
        m_control->Backdoor(kBackdoorStop, nullptr);
    }
}

void SourceSession::Close() {
    if (!m_filter) {
        return;
    }
    EndReads();
    m_filter->Stop();
    if (m_output) {
        m_output->Disconnect();
    }
    m_input->Disconnect();
    if (m_control) {
        m_control->SetCallback(nullptr);
    }
    m_output.Reset();
    m_control.Reset();
    m_filter.Reset();
}

}  // namespace kvmpd::app
