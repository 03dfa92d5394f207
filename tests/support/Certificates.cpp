#include "support/Certificates.hpp"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace TestSupport {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using X509Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
struct Close {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Close>;

void addExtension(X509* certificate, int kind, const std::string& value) {
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()), &X509_EXTENSION_free);
    X509_add_ext(certificate, extension.get(), -1);
}

X509Certificate selfSigned(EVP_PKEY* key, const std::string& hostName) {
    constexpr long day = 24L * 60 * 60;
    X509Certificate certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -day);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), day);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME* const name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(hostName.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    addExtension(certificate.get(), NID_subject_alt_name, "DNS:" + hostName);
    addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    if (X509_sign(certificate.get(), key, EVP_sha256()) == 0)
        throw std::runtime_error("the test certificate cannot be signed");
    return certificate;
}

File created(const std::string& path) {
    File file(std::fopen(path.c_str(), "w"));
    if (!file) throw std::runtime_error("the test certificate cannot be written");
    return file;
}

}  // namespace

Certificate::Certificate(const std::string& hostName) {
    const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const X509Certificate certificate = selfSigned(key.get(), hostName);
    PEM_write_X509(created(certificateFile()).get(), certificate.get());
    PEM_write_PrivateKey(created(keyFile()).get(), key.get(), nullptr, nullptr, 0, nullptr,
                         nullptr);
}

std::string Certificate::certificateFile() const {
    return directory_.path() / "certificate.pem";
}

std::string Certificate::keyFile() const {
    return directory_.path() / "key.pem";
}

}  // namespace TestSupport
