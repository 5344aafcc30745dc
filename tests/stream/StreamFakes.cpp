#include "tests/stream/StreamFakes.h"

#include <algorithm>

#include "events/EventIds.h"

namespace kvmpd::test {

BYTE MediaByte(LONGLONG number, bool isVideo, size_t index) {
    // The finaliser of a 64-bit hash: a few bytes in a row name their segment, their stream and their place in it.
    std::uint64_t mixed = static_cast<std::uint64_t>(number) << 33 ^ static_cast<std::uint64_t>(index) << 1 ^
                          static_cast<std::uint64_t>(isVideo);
    mixed = (mixed ^ mixed >> 33) * 0xFF51AFD7ED558CCDULL;
    mixed = (mixed ^ mixed >> 33) * 0xC4CEB9FE1A85EC53ULL;
    return static_cast<BYTE>(mixed >> 56);
}

std::vector<BYTE> MediaBytes(LONGLONG number, bool isVideo, size_t size) {
    std::vector<BYTE> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = MediaByte(number, isVideo, i);
    }
    return bytes;
}

std::string VideoUrl(LONGLONG number) {
    return "http://media/v" + std::to_string(number);
}
std::string AudioUrl(LONGLONG number) {
    return "http://media/a" + std::to_string(number);
}

MPD MakeManifest(LONGLONG firstNumber, size_t count, DWORD duration) {
    MPD mpd;
    mpd.m_startNumber = firstNumber;
    mpd.m_segmentDurations.assign(count, duration);
    mpd.m_totalDuration = static_cast<DWORD>(count) * duration;
    const auto representation = [&](LONG id, LONG height, const std::string& base) {
        RepresentationInfo info;
        info.m_id = id;
        info.m_height = height;
        info.m_baseUrl = base;
        for (size_t i = 0; i < count; ++i) {
            info.m_mediaUrls.push_back(std::to_string(firstNumber + static_cast<LONGLONG>(i)));
        }
        return info;
    };
    AdaptationSetInfo video;
    video.m_mimeType = "video/mp4";
    video.m_representations = {representation(1, 360, "http://media/v"), representation(2, 720, "http://media/v")};
    AdaptationSetInfo audio;
    audio.m_mimeType = "audio/mp4";
    audio.m_representations = {representation(9, 0, "http://media/a")};
    mpd.m_adaptationSets = {video, audio};
    return mpd;
}

void ManifestScript::Set(MPD manifest) {
    const std::lock_guard lock(m_mutex);
    m_manifest = std::move(manifest);
    m_result = S_OK;
}

void ManifestScript::Fail(HRESULT code) {
    const std::lock_guard lock(m_mutex);
    m_result = code;
}

HRESULT ManifestScript::Answer(MPD& manifest) const {
    const std::lock_guard lock(m_mutex);
    manifest = m_manifest;
    return m_result;
}

HRESULT ScriptedManifests::parse(std::wstring /*url*/, std::shared_ptr<MPD> mpd) {
    m_script->gate.Pass();
    return m_script->Answer(*mpd);
}

void MediaScript::SetSizes(size_t video, size_t audio) {
    const std::lock_guard lock(m_mutex);
    m_videoSize = video;
    m_audioSize = audio;
}

void MediaScript::FailUrl(std::string url) {
    const std::lock_guard lock(m_mutex);
    m_failing.insert(std::move(url));
}

std::vector<std::string> MediaScript::Urls() const {
    const std::lock_guard lock(m_mutex);
    return m_urls;
}

HRESULT MediaScript::Answer(const std::string& url, std::vector<BYTE>& body) {
    const std::lock_guard lock(m_mutex);
    m_urls.push_back(url);
    if (m_failing.contains(url)) {
        return E_FAIL;
    }
    const std::string prefix = "http://media/";
    const bool isVideo = url[prefix.size()] == 'v';
    body = MediaBytes(std::stoll(url.substr(prefix.size() + 1)), isVideo, isVideo ? m_videoSize : m_audioSize);
    return S_OK;
}

HRESULT ScriptedHttp::OpenUrl(const char* url, const char*, const wchar_t*, BOOL, const char*, const wchar_t*,
                              const BYTE*, DWORD, INetKernelContentStream* stream) {
    m_script->gate.Pass();
    std::vector<BYTE> body;
    const HRESULT result = m_script->Answer(url, body);
    if (FAILED(result)) {
        return result;
    }
    if (!stream->WriteInputStream(body.data(), static_cast<DWORD>(body.size()))) {
        return E_FAIL;
    }
    stream->OnWriteComplete();
    return S_OK;
}

HRESULT RecordingHost::OnStreamEvent(DWORD id, void* param1, void* param2) {
    if (id == kEventQualityList) {
        Note("qualities");
        return S_OK;
    }
    Note(std::to_string(id) + "(" + std::to_string(*static_cast<LONG*>(param1)) + "," +
         std::to_string(*static_cast<LONG*>(param2)) + ")");
    return S_OK;
}

HRESULT RecordingHost::OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) {
    Note("buffering(" + std::to_string(play) + "," + std::to_string(buffered) + "," + std::to_string(total) + ")");
    return S_OK;
}

void RecordingHost::Note(std::string text) {
    const std::lock_guard lock(m_mutex);
    m_heard.push_back(std::move(text));
    m_changed.notify_all();
}

void RecordingHost::WaitFor(const std::string& text) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return std::find(m_heard.begin(), m_heard.end(), text) != m_heard.end(); });
}

std::vector<std::string> RecordingHost::Heard() const {
    const std::lock_guard lock(m_mutex);
    return m_heard;
}

void RecordingHost::Forget() {
    const std::lock_guard lock(m_mutex);
    m_heard.clear();
}

}  // namespace kvmpd::test
