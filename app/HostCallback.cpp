#include "app/HostCallback.h"

#include "app/Text.h"
#include "events/EventIds.h"

namespace kvmpd::app {

StreamEvent MakeStreamEvent(DWORD id, const void* param1, const void* param2) {
    const auto number = [](const void* param) {
        return param != nullptr ? static_cast<std::int32_t>(*static_cast<const LONG*>(param)) : 0;
    };
    switch (id) {
        case kEventManifest: {
            const std::int32_t result = number(param1);
            return ManifestEvent{result == kManifestLoaded      ? ManifestEvent::Result::kLoaded
                                 : result == kManifestMalformed ? ManifestEvent::Result::kMalformed
                                                                : ManifestEvent::Result::kFailed,
                                 number(param2)};
        }
        case kEventQualityList:
            return QualityListEvent{param1 != nullptr ? Utf8FromWide(static_cast<const wchar_t*>(param1)) : ""};
        case kEventQualityChosen:
            return QualityChosenEvent{number(param1)};
        case kEventPosition:
            return PositionEvent{number(param1) != 0, number(param2) != 0};
        case kEventDownloadFailed:
            return DownloadFailedEvent{};
        default:
            return UnknownEvent{static_cast<std::uint32_t>(id)};
    }
}

HRESULT HostCallback::OnStreamEvent(DWORD id, void* param1, void* param2) {
    m_sink.OnEvent(MakeStreamEvent(id, param1, param2));
    return S_OK;
}

HRESULT HostCallback::OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) {
    m_sink.OnEvent(BufferingEvent{play, buffered, total});
    return S_OK;
}

}  // namespace kvmpd::app
