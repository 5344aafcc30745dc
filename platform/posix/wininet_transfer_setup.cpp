// How a request is described to curl.
#include <openssl/ssl.h>

#include <string_view>
#include <utility>

#include "platform/posix/win32_api.h"
#include "platform/posix/wininet_errors.h"
#include "platform/posix/wininet_limits.h"
#include "platform/posix/wininet_transfer.h"

namespace kvmpd::platform::internet {
namespace {

/// Sets options until one is refused.
class Options {
  public:
    explicit Options(CURL* easy) : m_easy(easy) {}

    template <class Value>
    Options& Set(CURLoption option, Value value) {
        if (m_result == CURLE_OK) {
            m_result = curl_easy_setopt(m_easy, option, value);
        }
        return *this;
    }
    CURLcode Result() const { return m_result; }

  private:
    CURL* m_easy;
    CURLcode m_result = CURLE_OK;
};

}  // namespace

DWORD Transfer::Start(TransferPlan plan) {
    m_plan = std::move(plan);
    m_headerList = RequestHeaders(m_plan.headers);
    for (const auto step :
         {&Transfer::SetAddress, &Transfer::SetRequest, &Transfer::SetBody, &Transfer::SetProxy, &Transfer::SetTrust}) {
        if (const CURLcode result = (this->*step)(); result != CURLE_OK) {
            return Fail(ErrorOfTransfer(m_easy.get(), result));
        }
    }
    if (curl_multi_add_handle(m_multi.get(), m_easy.get()) != CURLM_OK) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    m_started = true;
    return 0;
}

CURLcode Transfer::SetAddress() {
    return Options(m_easy.get())
        .Set(CURLOPT_URL, m_plan.url.c_str())
        .Set(CURLOPT_PATH_AS_IS, 1L)
        .Set(CURLOPT_PROTOCOLS_STR, "http,https")
        .Set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https")
        .Set(CURLOPT_FOLLOWLOCATION, 1L)
        .Set(CURLOPT_MAXREDIRS, kMostRedirects)
        .Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1))
        .Set(CURLOPT_FRESH_CONNECT, 1L)
        .Set(CURLOPT_FORBID_REUSE, 1L)
        .Set(CURLOPT_NOSIGNAL, 1L)
        .Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(kConnectTimeout.count()))
        .Set(CURLOPT_BUFFERSIZE, kSocketRead)
        .Result();
}

CURLcode Transfer::SetRequest() {
    Options options(m_easy.get());
    if (!m_plan.agent.empty()) {
        options.Set(CURLOPT_USERAGENT, m_plan.agent.c_str());
    }
    return options.Set(CURLOPT_HTTPHEADER, m_headerList.get())
        .Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L)
        .Set(CURLOPT_HEADERFUNCTION, &Transfer::OnHeader)
        .Set(CURLOPT_HEADERDATA, static_cast<void*>(this))
        .Set(CURLOPT_WRITEFUNCTION, &Transfer::OnBody)
        .Set(CURLOPT_WRITEDATA, static_cast<void*>(this))
        .Set(CURLOPT_READFUNCTION, &Transfer::OnUpload)
        .Set(CURLOPT_READDATA, static_cast<void*>(this))
        .Result();
}

CURLcode Transfer::SetBody() {
    Options options(m_easy.get());
    const std::string& verb = m_plan.verb;
    if (m_plan.total) {
        options.Set(CURLOPT_POST, 1L).Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(*m_plan.total));
    } else if (!m_plan.body.empty() || verb == "POST") {
        options.Set(CURLOPT_POST, 1L)
            .Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_plan.body.size()))
            .Set(CURLOPT_POSTFIELDS, m_plan.body.c_str());
    } else if (verb == "HEAD") {
        options.Set(CURLOPT_NOBODY, 1L);
        return options.Result();
    } else if (verb == "GET") {
        options.Set(CURLOPT_HTTPGET, 1L);
        return options.Result();
    }
    if (verb != "POST") {
        options.Set(CURLOPT_CUSTOMREQUEST, verb.c_str());
    }
    return options.Result();
}

CURLcode Transfer::SetProxy() {
    Options options(m_easy.get());
    if (m_plan.proxy) {
        // Both are given, or curl would take what is missing from the environment.
        options.Set(CURLOPT_PROXY, m_plan.proxy->c_str()).Set(CURLOPT_NOPROXY, m_plan.proxyBypass.c_str());
    }
    return options.Result();
}

CURLcode Transfer::SetTrust() {
    // A redirect may lead to https, so every request has the store at hand.
    m_trust = TrustStore();
    if (m_trust == nullptr && m_plan.secure) {
        return CURLE_SSL_CACERT_BADFILE;
    }
    return Options(m_easy.get())
        .Set(CURLOPT_CAINFO, static_cast<const char*>(nullptr))
        .Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr))
        .Set(CURLOPT_SSL_VERIFYPEER, 1L)
        .Set(CURLOPT_SSL_VERIFYHOST, 2L)
        .Set(CURLOPT_SSL_CTX_FUNCTION, &Transfer::OnTlsContext)
        .Set(CURLOPT_SSL_CTX_DATA, static_cast<void*>(this))
        .Result();
}

CURLcode Transfer::OnTlsContext(CURL* /*easy*/, void* context, void* self) {
    Transfer& transfer = *static_cast<Transfer*>(self);
    transfer.m_handshaking = true;
    if (transfer.m_trust == nullptr) {
        return CURLE_SSL_CACERT_BADFILE;
    }
    SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context), transfer.m_trust.get());
    return CURLE_OK;
}

}  // namespace kvmpd::platform::internet
