#include "platform/posix/wininet_errors.h"

#include <openssl/x509_vfy.h>

#include <cerrno>

namespace kvmpd::platform::internet {
namespace {

/// Why a certificate was refused. A host name that does not match is found by curl itself, after a chain that verified.
DWORD ErrorOfCertificate(CURL* easy) {
    long verdict = X509_V_OK;
    curl_easy_getinfo(easy, CURLINFO_SSL_VERIFYRESULT, &verdict);
    switch (verdict) {
        case X509_V_OK:
        case X509_V_ERR_UNSPECIFIED:  // what curl begins with and keeps until the name has matched
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return ERROR_INTERNET_SEC_CERT_CN_INVALID;
        case X509_V_ERR_CERT_NOT_YET_VALID:
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
        case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
            return ERROR_INTERNET_SEC_CERT_DATE_INVALID;
        case X509_V_ERR_CERT_REVOKED:
            return ERROR_INTERNET_SEC_CERT_REVOKED;
        default:
            return ERROR_INTERNET_INVALID_CA;
    }
}

/// A connection that broke: by a reset, or in another way.
DWORD ErrorOfBrokenConnection(CURL* easy) {
    long error = 0;
    curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &error);
    return error == ECONNRESET || error == EPIPE ? ERROR_INTERNET_CONNECTION_RESET : ERROR_INTERNET_CONNECTION_ABORTED;
}

bool WasRedirected(CURL* easy) {
    long count = 0;
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_COUNT, &count);
    return count > 0;
}

bool HadStatusLine(CURL* easy) {
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    return status != 0;
}

/// curl says "unsupported protocol" for a scheme, for a redirect to a scheme that is not allowed, and for a response
/// that begins with no status line (which it would have to take for HTTP/0.9).
DWORD ErrorOfUnsupportedProtocol(CURL* easy) {
    if (HadStatusLine(easy)) {
        return ERROR_HTTP_REDIRECT_FAILED;
    }
    curl_off_t sent = 0;
    curl_easy_getinfo(easy, CURLINFO_PRETRANSFER_TIME_T, &sent);
    return sent != 0 || WasRedirected(easy) ? ERROR_HTTP_INVALID_SERVER_RESPONSE : ERROR_INTERNET_UNRECOGNIZED_SCHEME;
}

}  // namespace

DWORD ErrorOfTransfer(CURL* easy, CURLcode result) {
    switch (result) {
        case CURLE_OK:
            return 0;
        case CURLE_UNSUPPORTED_PROTOCOL:
            return ErrorOfUnsupportedProtocol(easy);
        case CURLE_URL_MALFORMAT:
            return HadStatusLine(easy) ? ERROR_HTTP_REDIRECT_FAILED : ERROR_INTERNET_INVALID_URL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return ERROR_INTERNET_NAME_NOT_RESOLVED;
        case CURLE_COULDNT_CONNECT:
        case CURLE_PROXY:
            return ERROR_INTERNET_CANNOT_CONNECT;
        case CURLE_OPERATION_TIMEDOUT:
            return ERROR_INTERNET_TIMEOUT;
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_WRITE_ERROR:  // our header callback refuses headers without end
        case CURLE_BAD_CONTENT_ENCODING:
            return ERROR_HTTP_INVALID_SERVER_RESPONSE;
        case CURLE_TOO_MANY_REDIRECTS:
        case CURLE_SEND_FAIL_REWIND:  // a redirect asks for an upload that cannot be sent again
            return ERROR_HTTP_REDIRECT_FAILED;
        case CURLE_PEER_FAILED_VERIFICATION:
            return ErrorOfCertificate(easy);
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
            return ERROR_INTERNET_INVALID_CA;
        case CURLE_SSL_CERTPROBLEM:
            return ERROR_INTERNET_CLIENT_AUTH_CERT_NEEDED;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CIPHER:
        case CURLE_USE_SSL_FAILED:
            return ERROR_INTERNET_SECURITY_CHANNEL_ERROR;
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
            return ErrorOfBrokenConnection(easy);
        case CURLE_OUT_OF_MEMORY:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_INTERNET_INTERNAL_ERROR;
    }
}

}  // namespace kvmpd::platform::internet
