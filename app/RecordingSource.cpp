#include "app/RecordingSource.h"

#include <utility>

namespace kvmpd::app {

std::unique_ptr<RecordingSource> RecordingSource::Open(std::uint64_t id, SourceOptions options,
                                                       const CacheFolder& parent, PinReader& reader,
                                                       SourceListener& listener, std::string& error) {
    std::unique_ptr<RecordingSource> source(new RecordingSource(id, reader, listener));
    source->m_cache = CacheFolder::Create(parent.Path(), error);
    if (!source->m_cache) {
        return nullptr;
    }
    options.cacheFolder = source->m_cache->Path();
    EventSink& sink = *source;
    source->m_session = SourceSession::Open(options, sink, error);
    return source->m_session ? std::move(source) : nullptr;
}

RecordingSource::~RecordingSource() {
    if (m_session) {
        m_pinReader.WaitUntilLeft(m_session->Reader().get());
        m_session->Close();
    }
}

}  // namespace kvmpd::app
