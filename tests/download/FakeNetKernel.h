#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/InertHttpClient.h"

namespace kvmpd::test {

/// What the fake client does with one request.
struct FakeAnswer {
    HRESULT result = E_FAIL;
    std::vector<std::string> blocks;    ///< handed to the sink one after the other; a refusal fails the request
    bool endsBody = true;               ///< whether the sink hears of the body's end, as after any response
    std::function<void()> before = {};  ///< called first, on the thread of the request
};

inline FakeAnswer Body(std::string body) {
    return {S_OK, {std::move(body)}};
}
/// No response came: not a byte reaches the sink.
inline FakeAnswer NoResponse(HRESULT result = E_FAIL) {
    return {result, {}, false};
}
/// The body ended before its announced length.
inline FakeAnswer ShortBody(std::string body) {
    return {E_FAIL, {std::move(body)}};
}

/// An HTTP client that answers from a script. Its owner is the downloader; the test keeps a plain pointer, for as long
/// as the downloader lives.
class FakeNetKernel final : public InertHttpClient {
  public:
    struct Call {
        std::string url;
        INetKernelContentStream* sink;
        bool plain;  // a GET without proxy, headers, response file and post data
    };

    /// Answers the next request of `url`; several wait in a queue. Without an answer there is no response.
    void Once(const std::string& url, FakeAnswer answer) {
        const std::lock_guard lock(m_mutex);
        m_answers[url].push_back(std::move(answer));
    }

    std::vector<Call> Calls() const {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }
    std::vector<std::string> Urls() const {
        std::vector<std::string> urls;
        for (const Call& call : Calls()) {
            urls.push_back(call.url);
        }
        return urls;
    }

    // INetKernelBase
    HRESULT OpenUrl(const char* url, const char* verb, const wchar_t* proxy, BOOL disableProxy, const char* headers,
                    const wchar_t* responseFile, const BYTE* postData, DWORD postLength,
                    INetKernelContentStream* stream) override {
        const bool plain = std::string(verb) == "GET" && !proxy && disableProxy == 0 && !headers && !responseFile &&
                           !postData && postLength == 0;
        const FakeAnswer answer = Take({url, stream, plain});
        if (answer.before) {
            answer.before();
        }
        for (const std::string& block : answer.blocks) {
            if (stream->WriteInputStream(reinterpret_cast<const BYTE*>(block.data()),
                                         static_cast<DWORD>(block.size())) == 0) {
                return E_FAIL;
            }
        }
        if (answer.endsBody) {
            stream->OnWriteComplete();
        }
        return answer.result;
    }

  private:
    FakeAnswer Take(Call call) {
        const std::lock_guard lock(m_mutex);
        std::deque<FakeAnswer>& waiting = m_answers[call.url];
        m_calls.push_back(std::move(call));
        if (waiting.empty()) {
            return NoResponse();
        }
        FakeAnswer answer = std::move(waiting.front());
        waiting.pop_front();
        return answer;
    }

    mutable std::mutex m_mutex;
    std::map<std::string, std::deque<FakeAnswer>> m_answers;
    std::vector<Call> m_calls;
};

}  // namespace kvmpd::test
