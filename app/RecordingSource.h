// One source of a recording, as the supervisor replaces it: a session with a cache folder of its own, because the files
// of a source that is still closing would stand in the way of the next one's.

#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "app/CacheFolder.h"
#include "app/PinReader.h"
#include "app/SourceSession.h"
#include "app/SourceSupervisor.h"

namespace kvmpd::app {

// Receives a source's events on the component's delivery thread; must not block for long.
class SourceListener {
  public:
    virtual void OnSourceEvent(std::uint64_t id, const StreamEvent& event) = 0;

  protected:
    ~SourceListener() = default;
};

class RecordingSource final : public SupervisedSource, private EventSink {
  public:
    // options: all but the cache folder, which is made inside of `parent`. reader: who reads the pin; it is waited for
    // before the source is closed. Null, with error in words, when a step fails.
    static std::unique_ptr<RecordingSource> Open(std::uint64_t id, SourceOptions options, const CacheFolder& parent,
                                                 PinReader& reader, SourceListener& listener, std::string& error);
    ~RecordingSource() override;

    void AskForManifestAgain() override { m_session->AskForManifestAgain(); }
    void EndReads() override { m_session->EndReads(); }

    kvmpd::ComPtr<IAsyncReader> Reader() const { return m_session->Reader(); }
    const std::shared_ptr<const CacheFolder>& Cache() const { return m_cache; }

  private:
    RecordingSource(std::uint64_t id, PinReader& reader, SourceListener& listener)
        : m_id(id), m_pinReader(reader), m_listener(listener) {}
    void OnEvent(const StreamEvent& event) override { m_listener.OnSourceEvent(m_id, event); }

    const std::uint64_t m_id;
    PinReader& m_pinReader;
    SourceListener& m_listener;
    std::shared_ptr<const CacheFolder> m_cache;
    std::unique_ptr<SourceSession> m_session;
};

}  // namespace kvmpd::app
