// One stream followed through the component's public interfaces: the filter from its class factory, the host's
// callback, the connected output pin. Everything is called by the thread that opened the session, except Reader's
// reads.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "app/HostCallback.h"
#include "app/InputPin.h"
#include "app/StreamEvent.h"
#include "common/ComPtr.h"
#include "filter/IKVMPDSource.h"
#include "platform/com.h"

namespace kvmpd::app {

struct SourceOptions {
    std::string url;
    std::string cacheFolder;  // existing; absolute
    std::optional<std::uint32_t> maxCacheSeconds;
    std::optional<std::uint32_t> delaySegments;
    std::optional<std::uint32_t> preferHeight;
    std::optional<std::uint32_t> qualityId;
};

class SourceSession {
  public:
    // Loads the URL and runs the filter. The sink hears events from then on, until Close returns. Null, with error in
    // words, when a step fails.
    static std::unique_ptr<SourceSession> Open(const SourceOptions& options, EventSink& sink, std::string& error);

    ~SourceSession() { Close(); }
    SourceSession(const SourceSession&) = delete;
    SourceSession& operator=(const SourceSession&) = delete;

    kvmpd::ComPtr<IAsyncReader> Reader() const { return m_input->Reader(); }

    // After a failed reload the component waits to be told to try again; this tells it. Works once a manifest has been
    // loaded. A changed preferred delay is what wakes the manifest loader; a stream that plays is not moved by it.
    void AskForManifestAgain();

    // Reads that wait end now, and later ones fail.
    void EndReads();

    // Ends delivery and releases everything. May last as long as a transfer in progress; no event comes after it.
    void Close();

  private:
    SourceSession() { m_input.Attach(new InputPin); }

    bool CreateFilter(std::string& error);
    bool ApplyOptions(const SourceOptions& options, std::string& error);
    bool Connect(std::string& error);
    bool Start(const SourceOptions& options, std::string& error);

    kvmpd::ComPtr<IBaseFilter> m_filter;
    kvmpd::ComPtr<IKVMPDSource> m_control;
    kvmpd::ComPtr<IPin> m_output;
    kvmpd::ComPtr<InputPin> m_input;
    std::uint32_t m_delaySegments = 0;  // as last given to the component
};

}  // namespace kvmpd::app
