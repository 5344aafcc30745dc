// The engine's media road: the thread that copies cached files into the ring buffers, and the reads by position that
// are served from the rings or, where these do not hold the range, from the cached files.

#include <algorithm>

#include "common/Log.h"
#include "download/FileSeek.h"
#include "stream/KVMPDStream.h"

namespace kvmpd {
namespace {

constexpr DWORD kFeedPauseMilliseconds = 100;
constexpr LONGLONG kMostPerWrite = 0xFFFFFFFF;

/// What is left of a file, at most what a buffer write can be asked for; nothing when more than the file was counted.
DWORD Remaining(LONGLONG size, LONGLONG written) {
    return written < size ? static_cast<DWORD>(std::min<LONGLONG>(size - written, kMostPerWrite)) : 0;
}

}  // namespace

DWORD KVMPDStream::ThreadProc() {
    Log(6, L" KVMPDStream::ThreadProc ");
    const HANDLE handles[] = {m_hBufferEvent.get(), m_hSegmentEvent.get()};
    while (!m_bClosing.load()) {
        ReadSegmentCacheToBuffer();
        WaitForMultipleObjects(2, handles, /*wait_all=*/TRUE, INFINITE);
        if (m_bClosing.load()) {
            break;
        }
        // While the events stay signalled the cache is looked at ten times a second: segments come far more slowly.
        Sleep(kFeedPauseMilliseconds);
    }
    Log(4, L" KVMPDStream::ThreadProc finish.");
    return 0;
}

DWORD KVMPDStream::ReadSegmentCacheToBuffer() {
    const CritSecLock cache(m_csCache);
    const CritSecLock buffer(m_csBuffer);
    // Behind bytes of a segment that is gone nothing may be copied: it would get positions that are not its own. The
    // stream starts anew, or a seek empties the buffers, before it goes on.
    while (!m_bFeedCutOff && m_nCacheIndex < m_cacheSegment.size() && !m_bClosing.load()) {
        const Segment& segment = *m_cacheSegment[m_nCacheIndex];
        if (!FeedVideo(segment) || !FeedAudio(segment)) {
            WaitForReader();
            return 0;
        }
        if (m_llVideoWritten >= segment.m_videoSize && m_llAudioWritten >= segment.m_audioSize) {
            Log(6, L" KVMPDStream::ReadSegmentCacheToBuffer read segment %lld complete", segment.m_segmentNumber);
            ++m_nCacheIndex;
            m_llVideoWritten = 0;
            m_llAudioWritten = 0;
        }
    }
    return 0;
}

/// Copies what fits of the segment's video; false when nothing was copied: there was no room, or the file could not be
/// read.
bool KVMPDStream::FeedVideo(const Segment& segment) {
    DWORD count = 0;
    const HRESULT result = m_videoBuffer.WriteBinaryFromFile(segment.m_videoFile, m_llVideoWritten,
                                                             Remaining(segment.m_videoSize, m_llVideoWritten), count);
    if (FAILED(result)) {
        Log(6, L" KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write. Segment remain data: %ull",
            segment.m_videoSize - m_llVideoWritten);
        return false;
    }
    m_llVideoWritten += count;
    Log(6,
        L" KVMPDStream::ReadSegmentCacheToBuffer %lld segment write video binary %d bytes from position %lld. result: "
        L"0x%08X.",
        segment.m_segmentNumber, count, m_llVideoWritten, result);
    return true;
}

/// The same for the audio; while the engine closes, a failure only leads to the loop's end.
bool KVMPDStream::FeedAudio(const Segment& segment) {
    if (m_bAudioRebase) {
        m_audioBuffer.StartAt(std::min(m_llAudioWritten, segment.m_audioSize));
        m_bAudioRebase = false;
    }
    DWORD count = 0;
    const HRESULT result = m_audioBuffer.WriteBinaryFromFile(segment.m_audioFile, m_llAudioWritten,
                                                             Remaining(segment.m_audioSize, m_llAudioWritten), count);
    if (FAILED(result)) {
        if (m_bClosing.load()) {
            return true;
        }
        Log(6, L" KVMPDStream::ReadSegmentCacheToBuffer wait next segment to write. Segment remain audio data: %ull.",
            segment.m_audioSize - m_llAudioWritten);
        return false;
    }
    m_llAudioWritten += count;
    Log(6,
        L" KVMPDStream::ReadSegmentCacheToBuffer %lld segment write audio binary %d bytes from position %lld. result: "
        L"0x%08X.",
        segment.m_segmentNumber, count, m_llAudioWritten, result);
    return true;
}

/// A ring is full of bytes not yet read, or a file could not be read: the thread sleeps until a read, which may have
/// made room and is the moment for another attempt, or a reset. A close that had signalled the event just before must
/// not be forgotten by resetting it.
void KVMPDStream::WaitForReader() {
    ResetEvent(m_hBufferEvent.get());
    if (m_bClosing.load()) {
        SetEvent(m_hBufferEvent.get());
    }
}

HRESULT KVMPDStream::ReadBuffer(BYTE* buffer, DWORD length) {
    return ReadStream(true, m_llVideoPosition.load(std::memory_order_relaxed), buffer, length);
}

HRESULT KVMPDStream::ReadAudioBuffer(BYTE* buffer, DWORD length) {
    return ReadStream(false, m_llAudioPosition.load(std::memory_order_relaxed), buffer, length);
}

HRESULT KVMPDStream::ReadStream(bool isVideo, LONGLONG position, BYTE* buffer, DWORD length) {
    if (ReadRing(isVideo, position, buffer, length)) {
        return S_OK;
    }
    const HRESULT result = ReadCacheFromByte(position, isVideo, buffer, static_cast<LONG>(length));
    // Between the two looks a feed pass may have copied the range and the cache have released it, because it was
    // copied: then it is in the ring now, and the reader is not behind.
    return result == E_ACCESSDENIED && ReadRing(isVideo, position, buffer, length) ? S_OK : result;
}

/// Whether the ring held the range.
bool KVMPDStream::ReadRing(bool isVideo, LONGLONG position, BYTE* buffer, DWORD length) {
    const CritSecLock lock(m_csBuffer);
    const DWORD count = (isVideo ? m_videoBuffer : m_audioBuffer).ReadBuffer(position, buffer, length);
    // Every attempt moves the last access, so the feed may find room, and a throttled downloader may go on.
    SetEvent(m_hBufferEvent.get());
    if (count > 0 && isVideo) {
        Log(6, L" KVMPDStream::ReadBuffer read %d bytes. First byte is 0x%08X", count, static_cast<DWORD>(buffer[0]));
    }
    return count > 0;
}

HRESULT KVMPDStream::ReadCacheFromByte(LONGLONG position, bool isVideo, BYTE* buffer, LONG length) {
    const CritSecLock cache(m_csCache);
    const LONGLONG end = isVideo ? m_llVideoEndByte : m_llAudioEndByte;
    if (end - length < position) {
        Log(3, L" KVMPDStream::ReadCacheFromByte data is not cached yet. The end position is in %lld", end);
        return S_FALSE;
    }
    const LONGLONG start = isVideo ? m_llVideoStartByte : m_llAudioStartByte;
    if (start > position) {
        Log(3,
            L"[Error] KVMPDStream::ReadCacheFromByte too early data which is released. Start from earliest cache data");
        return E_ACCESSDENIED;
    }
    LONGLONG offset = position - start;
    LONG done = 0;
    for (const std::shared_ptr<Segment>& segment : m_cacheSegment) {
        if (done >= length) {
            break;
        }
        const LONGLONG size = isVideo ? segment->m_videoSize : segment->m_audioSize;
        // At exactly a segment's end nothing is read of it, and the walk goes on at the next one's beginning.
        if (offset > size) {
            offset -= size;
            continue;
        }
        const auto count = static_cast<DWORD>(std::min<LONGLONG>(size - offset, length - done));
        const std::wstring& file = isVideo ? segment->m_videoFile : segment->m_audioFile;
        if (WriteBinaryFromFile(file, offset, buffer + done, count) < count) {
            Log(6, L"[Error] KVMPDStream::ReadCacheFromByte failed to read buffer from cache file");
            return S_FALSE;
        }
        done += static_cast<LONG>(count);
        offset = 0;
    }
    return done > 0 ? S_OK : E_FAIL;
}

/// Reads a range of a cache file into memory; the number of bytes obtained. Opens and closes the file each time, so
/// that no handle stands in the way of its deletion.
DWORD KVMPDStream::WriteBinaryFromFile(const std::wstring& fileName, LONGLONG offset, BYTE* buffer, DWORD length) {
    const UniqueFile file(CreateFileW(fileName.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      /*flags=*/0, /*template=*/nullptr));
    if (!file) {
        Log(3, L"[Error] KVMPDStream::WriteBinaryFromFile Create file fail, error code: %d", GetLastError());
        return 0;
    }
    // A file just opened stands at 0.
    if (offset != 0 && !SeekFilePosition(file.get(), offset)) {
        Log(3, L"[Error] KVMPDStream::WriteBinaryFromFile failed to seek file");
        return 0;
    }
    DWORD done = 0;
    while (done < length) {
        DWORD got = 0;
        if (!ReadFile(file.get(), buffer + done, length - done, &got, nullptr) || got == 0) {
            Log(3, L"[Error] KVMPDStream::WriteBinaryFromFile read file failed");
            break;
        }
        done += got;
    }
    return done;
}

}  // namespace kvmpd
