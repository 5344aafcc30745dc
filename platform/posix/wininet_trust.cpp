#include "platform/posix/wininet_trust.h"

#include <openssl/err.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "platform/posix/annotated_lock.h"
#include "platform/posix/immortal.h"

namespace kvmpd::platform::internet {
namespace {

/// Which file, in which version: what a store was built from.
std::string SourceOf(const char* file) {
    struct stat info {};
    if (file == nullptr || stat(file, &info) != 0) {
        return file == nullptr ? std::string() : std::string(file);
    }
    return std::string(file) + '\n' + std::to_string(info.st_ino) + '\n' + std::to_string(info.st_size) + '\n' +
           std::to_string(info.st_mtim.tv_sec) + '.' + std::to_string(info.st_mtim.tv_nsec);
}

std::shared_ptr<X509_STORE> Build(const char* file) {
    std::shared_ptr<X509_STORE> store(X509_STORE_new(), &X509_STORE_free);
    if (store == nullptr) {
        return {};
    }
    // The default folder is looked up by name, one authority at a time, as servers present them.
    X509_STORE_set_default_paths(store.get());
    // An authority that the store holds is trusted also when it is not self-signed, as curl has it.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN);
    const bool complete = file == nullptr || X509_STORE_load_file(store.get(), file) == 1;
    ERR_clear_error();
    return complete ? store : nullptr;
}

struct Cache {
    Lock lock;
    bool known PLATFORM_GUARDED_BY(lock) = false;
    std::string source PLATFORM_GUARDED_BY(lock);
    std::shared_ptr<X509_STORE> store PLATFORM_GUARDED_BY(lock);
};

}  // namespace

std::shared_ptr<X509_STORE> TrustStore() {
    static Immortal<Cache> immortal;
    Cache& cache = *immortal;
    const char* file = std::getenv("KAVOTRA_MPDSOURCE_CA_FILE");
    if (file != nullptr && *file == '\0') {
        file = nullptr;
    }
    std::string source = SourceOf(file);
    const LockHold hold(cache.lock);
    if (!cache.known || cache.source != source || cache.store == nullptr) {
        cache.store = Build(file);
        cache.source = std::move(source);
        cache.known = true;
    }
    return cache.store;
}

}  // namespace kvmpd::platform::internet
