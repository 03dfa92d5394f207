#include <algorithm>
#include <array>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <internal/ASCII.hpp>
#include <kestrin-profile-server/domain/Secrets.hpp>
#include <kestrin-profile-server/storage/Database.hpp>
#include <kestrin-profile-server/storage/PrivateFile.hpp>
#include <kestrin-profile-server/tls/DevelopmentCertificate.hpp>

namespace KestrinProfileServer {
namespace {

namespace fs = std::filesystem;

constexpr long secondsOfDay = 24L * 3600;
constexpr int daysOfAuthority = 3650;
/// Phones take none that is valid for longer than 825 days.
constexpr int daysOfCertificate = 397;
constexpr long daysBeforeRenewal = 30;
constexpr int versionThree = 2;
constexpr int bitsOfSerial = 127;

template <auto Free>
struct FreeWith {
    template <class Value>
    void operator()(Value* value) const {
        Free(value);
    }
};
using Certificate = std::unique_ptr<X509, FreeWith<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using Text = std::unique_ptr<BIO, FreeWith<BIO_free>>;

struct Signer {
    Certificate certificate;
    Key key;
};

/// What OpenSSL does not do, which is memory that is not there.
[[noreturn]] void fail() {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    throw std::runtime_error("OpenSSL cannot make a certificate: " + std::string(text.data()));
}

template <class Value>
Value* made(Value* value) {
    if (value == nullptr) fail();
    return value;
}

void check(int result) {
    if (result != 1) fail();
}

std::string textOf(BIO* memory) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory, &data);
    return {data, static_cast<std::size_t>(size)};
}

std::string pemOf(X509* certificate) {
    const Text memory(made(BIO_new(BIO_s_mem())));
    check(PEM_write_bio_X509(memory.get(), certificate));
    return textOf(memory.get());
}

std::string pemOf(EVP_PKEY* key) {
    const Text memory(made(BIO_new(BIO_s_mem())));
    check(PEM_write_bio_PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr));
    return textOf(memory.get());
}

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// What two files hold; absent unless they are a certificate and its key.
std::optional<Signer> signerIn(const fs::path& certificateFile, const fs::path& keyFile) {
    const std::string certificateText = contentOf(certificateFile);
    const std::string keyText = contentOf(keyFile);
    const Text certificate(
        made(BIO_new_mem_buf(certificateText.data(), static_cast<int>(certificateText.size()))));
    const Text key(made(BIO_new_mem_buf(keyText.data(), static_cast<int>(keyText.size()))));
    Signer signer{Certificate(PEM_read_bio_X509(certificate.get(), nullptr, nullptr, nullptr)),
                  Key(PEM_read_bio_PrivateKey(key.get(), nullptr, nullptr, nullptr))};
    const bool isOne = signer.certificate && signer.key &&
                       X509_check_private_key(signer.certificate.get(), signer.key.get()) == 1;
    ERR_clear_error();
    return isOne ? std::optional(std::move(signer)) : std::nullopt;
}

void setSerial(X509* certificate) {
    const std::unique_ptr<BIGNUM, FreeWith<BN_free>> number(made(BN_new()));
    check(BN_rand(number.get(), bitsOfSerial, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY));
    made(BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)));
}

void setName(X509_NAME* name, const std::string& text) {
    check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()), -1, 0));
}

/// A key, and a certificate of it that nobody has signed yet.
Signer begun(const std::string& name, std::time_t now, int days) {
    Signer signer{Certificate(made(X509_new())), Key(made(EVP_EC_gen("P-256")))};
    X509* const certificate = signer.certificate.get();
    check(X509_set_version(certificate, versionThree));
    setSerial(certificate);
    // The clocks of phones may be late.
    made(X509_time_adj_ex(X509_getm_notBefore(certificate), -1, 0, &now));
    made(X509_time_adj_ex(X509_getm_notAfter(certificate), days, 0, &now));
    setName(X509_get_subject_name(certificate), name);
    check(X509_set_pubkey(certificate, signer.key.get()));
    return signer;
}

void extend(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context{};
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, FreeWith<X509_EXTENSION_free>> extension(
        made(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str())));
    check(X509_add_ext(certificate, extension.get(), -1));
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* key) {
    check(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)));
    if (X509_sign(certificate, key, EVP_sha256()) == 0) fail();
}

bool isAddress(const std::string& name) {
    boost::system::error_code error;
    static_cast<void>(boost::asio::ip::make_address(name, error));
    return !error;
}

std::string alternativeNames(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ",") + std::string(isAddress(name) ? "IP:" : "DNS:") + name;
    return text;
}

/// What the authority may sign for.
std::string permittedNames(const std::set<std::string>& names) {
    constexpr std::string_view everyBit4 = "/255.255.255.255";
    constexpr std::string_view everyBit6 = "/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";
    std::string text =
        "critical,permitted;IP:127.0.0.0/255.0.0.0,permitted;IP:10.0.0.0/255.0.0.0,"
        "permitted;IP:172.16.0.0/255.240.0.0,permitted;IP:192.168.0.0/255.255.0.0,"
        "permitted;IP:fc00::/fe00::,permitted;IP:fe80::/ffc0::";
    for (const std::string& name : names) {
        if (!isAddress(name)) {
            text += ",permitted;DNS:" + name;
            continue;
        }
        const bool isOfSix = name.find(':') != std::string::npos;
        text += ",permitted;IP:" + name + std::string(isOfSix ? everyBit6 : everyBit4);
    }
    return text;
}

Signer newAuthority(const std::set<std::string>& names, std::time_t now) {
    // Who trusts several can tell them apart.
    Signer signer = begun("kestrin-profile-server development " + hexadecimal(randomBytes(4)), now,
                          daysOfAuthority);
    X509* const certificate = signer.certificate.get();
    extend(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    extend(certificate, certificate, NID_key_usage, "critical,keyCertSign");
    extend(certificate, certificate, NID_name_constraints, permittedNames(names));
    extend(certificate, certificate, NID_subject_key_identifier, "hash");
    sign(certificate, certificate, signer.key.get());
    return signer;
}

Signer newCertificate(const Signer& authority, const std::set<std::string>& names,
                      std::time_t now) {
    Signer signer = begun("kestrin-profile-server", now, daysOfCertificate);
    X509* const certificate = signer.certificate.get();
    X509* const issuer = authority.certificate.get();
    extend(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    extend(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    extend(certificate, issuer, NID_ext_key_usage, "serverAuth");
    extend(certificate, issuer, NID_subject_alt_name, alternativeNames(names));
    extend(certificate, issuer, NID_subject_key_identifier, "hash");
    extend(certificate, issuer, NID_authority_key_identifier, "keyid:always");
    sign(certificate, issuer, authority.key.get());
    return signer;
}

/// Whether clients that trust the authority take the certificate, constraints included.
bool isTaken(const Signer& authority, X509* certificate, std::time_t now) {
    const std::unique_ptr<X509_STORE, FreeWith<X509_STORE_free>> store(made(X509_STORE_new()));
    check(X509_STORE_add_cert(store.get(), authority.certificate.get()));
    const std::unique_ptr<X509_STORE_CTX, FreeWith<X509_STORE_CTX_free>> context(
        made(X509_STORE_CTX_new()));
    check(X509_STORE_CTX_init(context.get(), store.get(), certificate, nullptr));
    check(X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER));
    X509_STORE_CTX_set_time(context.get(), 0, now);
    const bool isGood = X509_verify_cert(context.get()) == 1;
    ERR_clear_error();
    return isGood;
}

bool isForName(X509* certificate, const std::string& name) {
    return isAddress(name)
               ? X509_check_ip_asc(certificate, name.c_str(), 0) == 1
               : X509_check_host(certificate, name.data(), name.size(), 0, nullptr) == 1;
}

/// Whether it is for these names and no other.
bool isForNames(X509* certificate, const std::set<std::string>& names) {
    const std::unique_ptr<GENERAL_NAMES, FreeWith<GENERAL_NAMES_free>> present(
        static_cast<GENERAL_NAMES*>(
            X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    return present &&
           static_cast<std::size_t>(sk_GENERAL_NAME_num(present.get())) == names.size() &&
           std::ranges::all_of(
               names, [&](const std::string& name) { return isForName(certificate, name); });
}

bool endsSoon(X509* certificate, std::time_t now) {
    std::time_t then = now + daysBeforeRenewal * secondsOfDay;
    return X509_cmp_time(X509_get0_notAfter(certificate), &then) <= 0;
}

void checkName(const std::string& name) {
    const bool isHost = !name.empty() && std::ranges::all_of(name, [](char each) {
        return KestrinInternal::isDigit(each) || KestrinInternal::isLetter(each) || each == '.' ||
               each == '-' || each == '_';
    });
    // An address with a zone is one on this computer alone.
    if (isHost || (isAddress(name) && name.find('%') == std::string::npos)) return;
    throw StartError("'" + name +
                     "' cannot be in a certificate; expected is a host's name like phone.local, or"
                     " an address like 192.168.1.20.");
}

void keep(const Signer& signer, const fs::path& certificateFile, const fs::path& keyFile) {
    try {
        replacePrivateFile(keyFile, pemOf(signer.key.get()));
        replacePrivateFile(certificateFile, pemOf(signer.certificate.get()));
    } catch (const std::system_error& failure) {
        throw StartError("cannot write the certificate '" + certificateFile.string() +
                         "': " + failure.code().message() +
                         ". Name a folder that can be written with --data.");
    }
}

}  // namespace

DevelopmentCertificate developmentCertificate(const fs::path& folder,
                                              std::vector<std::string> names, Milliseconds now) {
    const std::time_t seconds = static_cast<std::time_t>(now / 1000);
    std::set<std::string> all{"localhost", "127.0.0.1", "::1"};
    for (std::string& name : names) {
        checkName(name);
        all.insert(std::move(name));
    }
    std::error_code ignored;
    fs::create_directories(folder, ignored);
    const fs::path authorityFile = authorityFileIn(folder);
    const fs::path certificateFile = folder / "certificate.pem";
    const fs::path authorityKeyFile = folder / "authority.key";
    const fs::path keyFile = folder / "certificate.key";
    auto authority = signerIn(authorityFile, authorityKeyFile);
    auto certificate = signerIn(certificateFile, keyFile);
    bool isNewAuthority = false;
    const auto isGood = [&] {
        return authority && certificate && isForNames(certificate->certificate.get(), all) &&
               !endsSoon(certificate->certificate.get(), seconds) &&
               isTaken(*authority, certificate->certificate.get(), seconds);
    };
    if (!isGood()) {
        if (authority) certificate = newCertificate(*authority, all, seconds);
        if (!isGood()) {
            authority = newAuthority(all, seconds);
            certificate = newCertificate(*authority, all, seconds);
            isNewAuthority = true;
            keep(*authority, authorityFile, authorityKeyFile);
        }
        keep(*certificate, certificateFile, keyFile);
    }
    return {{pemOf(certificate->certificate.get()), pemOf(certificate->key.get())},
            authorityFile,
            pemOf(authority->certificate.get()),
            isNewAuthority};
}

fs::path authorityFileIn(const fs::path& folder) {
    return folder / "authority.pem";
}

}  // namespace KestrinProfileServer
