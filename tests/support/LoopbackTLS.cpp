#include "tests/support/LoopbackTLS.h"

#include <openssl/conf.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "base/system/ReleaseWith.h"

namespace glintmark::test {

namespace {

using Key = std::unique_ptr<EVP_PKEY, ReleaseWith<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, ReleaseWith<X509_free>>;
using Context = std::unique_ptr<SSL_CTX, ReleaseWith<SSL_CTX_free>>;
using Connection = std::unique_ptr<SSL, ReleaseWith<SSL_free>>;

constexpr long validSeconds = 24L * 60 * 60;

void addExtension(X509* certificate, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Certificate selfSigned(EVP_PKEY* key, const std::string& address) {
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -validSeconds);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validSeconds);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    const std::string title = "loopback test server";
    X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(title.data()),
                               static_cast<int>(title.size()), -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate.get(), NID_subject_alt_name, "IP:" + address);
    X509_sign(certificate.get(), key, EVP_sha256());
    return certificate;
}

std::string writeToFile(X509* certificate) {
    std::string path = std::filesystem::temp_directory_path() / "loopback-XXXXXX";
    const int descriptor = ::mkstemp(path.data());
    FILE* file = ::fdopen(descriptor, "w");
    if (file == nullptr) {
        throw std::runtime_error("cannot write " + path);
    }
    PEM_write_X509(file, certificate);
    std::fclose(file);
    return path;
}

/// Each name after its length, as in the lists of ALPN (RFC 7301, section 3.1).
std::string wireList(const std::vector<std::string>& protocols) {
    std::string list;
    for (const std::string& name : protocols) {
        list += static_cast<char>(name.size());
        list += name;
    }
    return list;
}

int chooseProtocol(SSL* /*connection*/, const unsigned char** chosen, unsigned char* length,
                   const unsigned char* offered, unsigned int offeredLength, void* ours) {
    const auto& list = *static_cast<const std::string*>(ours);
    unsigned char* found = nullptr;
    const int outcome =
        SSL_select_next_proto(&found, length, reinterpret_cast<const unsigned char*>(list.data()),
                              static_cast<unsigned int>(list.size()), offered, offeredLength);
    *chosen = found;
    return outcome == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

class TLSChannel final : public LoopbackChannel {
public:
    TLSChannel(int socket, Connection connection)
        : LoopbackChannel(socket), connection_(std::move(connection)) {}

    std::string read() override {
        std::array<char, 16384> buffer{};
        const int count = SSL_read(connection_.get(), buffer.data(), buffer.size());
        return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : "";
    }

    bool write(std::string_view bytes) override {
        return bytes.empty() ||
               SSL_write(connection_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
    }

    void close() override {
        SSL_shutdown(connection_.get());
        ::shutdown(socket(), SHUT_WR);
    }

    bool isResumed() const override { return SSL_session_reused(connection_.get()) == 1; }

    std::string protocol() const override {
        const unsigned char* name = nullptr;
        unsigned int length = 0;
        SSL_get0_alpn_selected(connection_.get(), &name, &length);
        return name == nullptr ? "" : std::string(reinterpret_cast<const char*>(name), length);
    }

private:
    Connection connection_;
};

}  // namespace

void allowOutdatedTLS() {
    std::string path = std::filesystem::temp_directory_path() / "openssl-XXXXXX";
    FILE* file = ::fdopen(::mkstemp(path.data()), "w");
    std::fputs(
        "openssl_conf = all\n[all]\nssl_conf = programs\n[programs]\nsystem_default = any\n"
        "[any]\nMinProtocol = TLSv1\nCipherString = ALL:@SECLEVEL=0\n",
        file);
    std::fclose(file);
    CONF_modules_load_file(path.c_str(), nullptr, 0);
    std::filesystem::remove(path);
}

struct LoopbackTLS::State {
    Context context{SSL_CTX_new(TLS_server_method())};
    std::string protocols;
};

LoopbackTLS::LoopbackTLS(const std::string& address, const std::vector<std::string>& protocols,
                         bool isOutdated)
    : state_(std::make_unique<State>()) {
    const Key key(EVP_EC_gen("P-256"));
    const Certificate certificate = selfSigned(key.get(), address);
    certificateFile_ = writeToFile(certificate.get());
    std::array<char, sizeof("12345678.0")> name{};
    std::snprintf(name.data(), name.size(), "%08lx.0", X509_subject_name_hash(certificate.get()));
    certificateName_ = name.data();
    state_->protocols = wireList(protocols);
    SSL_CTX* context = state_->context.get();
    SSL_CTX_use_certificate(context, certificate.get());
    SSL_CTX_use_PrivateKey(context, key.get());
    SSL_CTX_set_alpn_select_cb(context, chooseProtocol, &state_->protocols);
    if (isOutdated) {
        SSL_CTX_set_max_proto_version(context, TLS1_1_VERSION);
        SSL_CTX_set_cipher_list(context, "ALL:@SECLEVEL=0");
    }
}

LoopbackTLS::~LoopbackTLS() { ::unlink(certificateFile_.c_str()); }

std::unique_ptr<LoopbackChannel> LoopbackTLS::accept(int socket) {
    Connection connection(SSL_new(state_->context.get()));
    SSL_set_fd(connection.get(), socket);
    if (SSL_accept(connection.get()) != 1) {
        return nullptr;
    }
    return std::make_unique<TLSChannel>(socket, std::move(connection));
}

}  // namespace glintmark::test
