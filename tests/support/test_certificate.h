#pragma once

#include <QSslCertificate>
#include <chrono>
#include <string>
#include <vector>

namespace testing_support {

/// What a generated certificate is for and when it is valid.
struct CertificateOptions {
    std::vector<std::string> ipAddresses{"127.0.0.1"};
    std::vector<std::string> dnsNames{};
    std::chrono::seconds validFrom{-3600};  // relative to now
    std::chrono::seconds validUntil{24 * 3600};
};

/// A self-signed certificate and its private key, made with OpenSSL at test time, so that no
/// key material lives in the repository.
struct TestCertificate {
    std::string certificatePem;
    std::string privateKeyPem;

    static TestCertificate generate(const CertificateOptions& options = {});

    /// The certificate as Qt's TLS configuration takes it.
    QSslCertificate qtCertificate() const;
};

}  // namespace testing_support
