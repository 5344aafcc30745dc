#include "tests/support/TestCa.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace kvmpd::test {
namespace {

template <auto Free>
struct Deleter {
    template <class Type>
    void operator()(Type* object) const {
        Free(object);
    }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Context = std::unique_ptr<SSL_CTX, Deleter<SSL_CTX_free>>;

void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "TestCa: %s\n", what);
        std::abort();
    }
}

Key NewKey() {
    Key key(EVP_EC_gen("P-256"));
    Require(key != nullptr, "no key");
    return key;
}

void AddExtension(X509& certificate, X509& issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    Require(extension != nullptr && X509_add_ext(&certificate, extension, -1) == 1, "no extension");
    X509_EXTENSION_free(extension);
}

void NameSubject(X509& certificate, const std::string& name) {
    X509_NAME_add_entry_by_txt(X509_get_subject_name(&certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
}

/// A certificate for `key`, not signed yet.
Certificate Draft(EVP_PKEY& key, const std::string& name, int fromDays, int toDays) {
    static std::atomic<long> serial{1};
    constexpr long kDay = 24 * 60 * 60;
    Certificate certificate(X509_new());
    Require(certificate != nullptr, "no certificate");
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), fromDays * kDay);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), toDays * kDay);
    X509_set_pubkey(certificate.get(), &key);
    NameSubject(*certificate, name);
    return certificate;
}

/// OpenSSL's view of a Socket: its own would raise SIGPIPE when the client is gone.
int BioWrite(BIO* bio, const char* data, int size) {
    return static_cast<Socket*>(BIO_get_data(bio))->Send({data, static_cast<size_t>(size)}) ? size : -1;
}

int BioRead(BIO* bio, char* data, int size) {
    return static_cast<int>(static_cast<Socket*>(BIO_get_data(bio))->Receive(data, static_cast<size_t>(size)));
}

long BioControl(BIO* /*bio*/, int command, long /*number*/, void* /*pointer*/) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO* NewBio(Socket& socket) {
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_TYPE_SOURCE_SINK | BIO_get_new_index(), "test socket");
        BIO_meth_set_write(made, BioWrite);
        BIO_meth_set_read(made, BioRead);
        BIO_meth_set_ctrl(made, BioControl);
        return made;
    }();
    BIO* bio = BIO_new(method);
    BIO_set_data(bio, &socket);
    BIO_set_init(bio, 1);
    return bio;
}

class TlsConnection final : public ByteConnection {
  public:
    TlsConnection(SSL_CTX& context, Socket& socket) : m_socket(socket), m_ssl(SSL_new(&context)) {
        BIO* bio = NewBio(socket);
        SSL_set_bio(m_ssl.get(), bio, bio);
    }

    bool Accept() { return SSL_accept(m_ssl.get()) == 1; }

    size_t Receive(char* data, size_t size) override {
        const int count = SSL_read(m_ssl.get(), data, static_cast<int>(size));
        return count > 0 ? static_cast<size_t>(count) : 0;
    }
    bool Send(std::string_view bytes) override {
        return bytes.empty() || SSL_write(m_ssl.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
    }
    void Interrupt() override { m_socket.Interrupt(); }
    void Close(bool reset) override {
        if (!reset) {
            SSL_shutdown(m_ssl.get());
        }
        // The socket itself is its owner's to close: another thread may be about to interrupt it.
    }

  private:
    Socket& m_socket;
    std::unique_ptr<SSL, Deleter<SSL_free>> m_ssl;
};

/// No two authorities have the same name: a client would try the one's key on the other's certificates.
std::string AuthorityName() {
    static std::atomic<int> count{0};
    return "A test's own authority " + std::to_string(++count);
}

bool IsAddress(const std::string& host) {
    return !host.empty() && std::isdigit(static_cast<unsigned char>(host[0]));
}

}  // namespace

struct TestCa::Impl {
    Key key = NewKey();
    Certificate certificate = Draft(*key, AuthorityName(), -2, 2);
};

TestCa::TestCa() : m_impl(std::make_unique<Impl>()) {
    X509& certificate = *m_impl->certificate;
    X509_set_issuer_name(&certificate, X509_get_subject_name(&certificate));
    AddExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign");
    Require(X509_sign(&certificate, m_impl->key.get(), EVP_sha256()) != 0, "not signed");
}

TestCa::~TestCa() = default;

void TestCa::WriteCertificate(const std::filesystem::path& file) const {
    const std::unique_ptr<BIO, Deleter<BIO_free_all>> memory(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(memory.get(), m_impl->certificate.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    std::ofstream(file, std::ios::binary).write(text, size);
}

ConnectionWrap TestCa::ServerWrap(const ServerClaims& claims) const {
    const Key key = NewKey();
    const Certificate certificate = Draft(*key, claims.host, claims.validFromDays, claims.validToDays);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(m_impl->certificate.get()));
    AddExtension(*certificate, *m_impl->certificate, NID_subject_alt_name,
                 (IsAddress(claims.host) ? "IP:" : "DNS:") + claims.host);
    Require(X509_sign(certificate.get(), m_impl->key.get(), EVP_sha256()) != 0, "not signed");

    const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    Require(SSL_CTX_use_certificate(context.get(), certificate.get()) == 1 &&
                SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1,
            "certificate refused");
    return [context](Socket& socket) -> std::unique_ptr<ByteConnection> {
        auto connection = std::make_unique<TlsConnection>(*context, socket);
        return connection->Accept() ? std::move(connection) : nullptr;
    };
}

}  // namespace kvmpd::test
