#include "support/test_certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>

namespace testing_support {
namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const { Free(p); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using CertPtr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;

void require(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string("generating a test certificate: ") + what);
}

std::string pemOf(const std::function<int(BIO*)>& write) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    require(bio && write(bio.get()) == 1, "PEM encoding");
    BUF_MEM* memory = nullptr;
    BIO_get_mem_ptr(bio.get(), &memory);
    return std::string(memory->data, memory->length);
}

void addExtension(X509* cert, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    require(extension != nullptr, "extension");
    X509_add_ext(cert, extension, -1);
    X509_EXTENSION_free(extension);
}

}  // namespace

TestCertificate TestCertificate::generate(const CertificateOptions& options) {
    KeyPtr key(EVP_EC_gen("P-256"));
    require(key != nullptr, "key");

    CertPtr cert(X509_new());
    require(cert != nullptr, "certificate");
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(
        X509_get_serialNumber(cert.get()),
        long(std::chrono::steady_clock::now().time_since_epoch().count() & 0x7fffffff));
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), long(options.validFrom.count()));
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), long(options.validUntil.count()));
    X509_set_pubkey(cert.get(), key.get());

    X509_NAME* name = X509_get_subject_name(cert.get());
    const std::string commonName =
        options.dnsNames.empty()
            ? (options.ipAddresses.empty() ? std::string("test") : options.ipAddresses[0])
            : options.dnsNames[0];
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(cert.get(), name);

    std::string alternativeNames;
    for (const std::string& ip : options.ipAddresses) {
        alternativeNames += (alternativeNames.empty() ? "" : ",") + std::string("IP:") + ip;
    }
    for (const std::string& dns : options.dnsNames) {
        alternativeNames += (alternativeNames.empty() ? "" : ",") + std::string("DNS:") + dns;
    }
    if (!alternativeNames.empty()) addExtension(cert.get(), NID_subject_alt_name, alternativeNames);
    addExtension(cert.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(cert.get(), NID_key_usage, "critical,digitalSignature,keyCertSign");
    addExtension(cert.get(), NID_ext_key_usage, "serverAuth");
    require(X509_sign(cert.get(), key.get(), EVP_sha256()) > 0, "signature");

    TestCertificate result;
    result.certificatePem = pemOf([&](BIO* bio) { return PEM_write_bio_X509(bio, cert.get()); });
    result.privateKeyPem = pemOf([&](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    return result;
}

QSslCertificate TestCertificate::qtCertificate() const {
    return QSslCertificate(QByteArray::fromStdString(certificatePem), QSsl::Pem);
}

}  // namespace testing_support
