// A byte stream whose results are the test's. Video byte p is VideoByte(p), audio byte p is AudioByte(p). It records
// every positioning and read, and fails the test when one happens outside Lock/Unlock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stream/CAsyncStream.h"

namespace kvmpd::test {

class FakeStream final : public CAsyncStream {
  public:
    static BYTE VideoByte(LONGLONG position) { return static_cast<BYTE>(position * 7 + 1); }
    static BYTE AudioByte(LONGLONG position) { return static_cast<BYTE>(position * 13 + 2); }

    HRESULT SetPointer(LONGLONG position) override {
        return Note("video at " + std::to_string(m_position = position), setPointerResult);
    }
    HRESULT SetAudioPointer(LONGLONG position) override {
        return Note("audio at " + std::to_string(m_position = position), setPointerResult);
    }
    HRESULT Read(BYTE* buffer, DWORD length, BOOL aligned, DWORD* actual) override {
        return Serve("video", &VideoByte, buffer, length, aligned, actual);
    }
    HRESULT ReadAudio(BYTE* buffer, DWORD length, BOOL aligned, DWORD* actual) override {
        return Serve("audio", &AudioByte, buffer, length, aligned, actual);
    }
    HRESULT Size(LONGLONG* start, LONGLONG* end) override { return Range(10, 20, start, end); }
    HRESULT SizeAudio(LONGLONG* start, LONGLONG* end) override { return Range(30, 40, start, end); }
    HRESULT Length(LONGLONG* total, LONGLONG* available) override {
        return Range(totalLength, totalLength, total, available);
    }
    DWORD Alignment() override { return alignment; }
    void Lock() override {
        m_lock.lock();
        m_locked = true;
    }
    void Unlock() override {
        m_locked = false;
        m_lock.unlock();
    }
    BOOL IsStopped() override { return stopped; }

    // What the next reads answer, in order; then `lastResult` for good.
    void Answer(std::deque<HRESULT> results) {
        const std::scoped_lock lock(m_state);
        m_results = std::move(results);
    }
    std::vector<std::string> Calls() {
        const std::scoped_lock lock(m_state);
        return m_calls;
    }
    size_t Reads() {
        const std::scoped_lock lock(m_state);
        return m_reads;
    }

    // Reads begin, and then wait until they are let go.
    void HoldReads() {
        const std::scoped_lock lock(m_state);
        m_held = true;
    }
    void LetReadsGo() {
        const std::scoped_lock lock(m_state);
        m_held = false;
        m_changed.notify_all();
    }
    void WaitForReads(size_t count) {
        std::unique_lock lock(m_state);
        m_changed.wait(lock, [&] { return m_reads >= count; });
    }

    HRESULT setPointerResult = S_OK;
    std::atomic<HRESULT> lastResult{S_OK};
    DWORD shortBy = 0;  // bytes fewer than asked for, of every read that does not fail
    LONGLONG totalLength = 0x7FFFFFFFFFFFFFFF;
    DWORD alignment = 1;
    std::atomic<BOOL> stopped{FALSE};

  private:
    HRESULT Note(std::string call, HRESULT result) {
        EXPECT_TRUE(m_locked) << call << " without the stream's lock";
        const std::scoped_lock lock(m_state);
        m_calls.push_back(std::move(call));
        return result;
    }
    HRESULT Serve(const char* name, BYTE (*byteAt)(LONGLONG), BYTE* buffer, DWORD count, BOOL aligned, DWORD* actual) {
        Note(std::string("read ") + name + " " + std::to_string(count) + (aligned ? " aligned" : ""), S_OK);
        HRESULT result = lastResult;
        {
            std::unique_lock lock(m_state);
            ++m_reads;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return !m_held; });
            if (!m_results.empty()) {
                result = m_results.front();
                m_results.pop_front();
            }
        }
        if (FAILED(result)) {
            return result;
        }
        *actual = count - shortBy;
        for (DWORD i = 0; i < *actual; ++i) {
            buffer[i] = byteAt(m_position + i);
        }
        return result;
    }
    static HRESULT Range(LONGLONG first, LONGLONG second, LONGLONG* firstOut, LONGLONG* secondOut) {
        *firstOut = first;
        *secondOut = second;
        return S_OK;
    }

    std::mutex m_lock;  // the stream's lock
    std::atomic<bool> m_locked{false};
    LONGLONG m_position = 0;  // under m_lock

    std::mutex m_state;  // the fields below
    std::condition_variable m_changed;
    std::deque<HRESULT> m_results;
    std::vector<std::string> m_calls;
    size_t m_reads = 0;
    bool m_held = false;
};

}  // namespace kvmpd::test
