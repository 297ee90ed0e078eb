#include "support/Certificates.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <stdexcept>

namespace ymtest {
namespace {

struct KeyFree {
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;

Key makeKey()
{
    Key key(EVP_EC_gen("P-256"));
    if (!key)
        throw std::runtime_error("no EC key");
    return key;
}

std::string der(X509 *certificate)
{
    unsigned char *bytes = nullptr;
    int length = i2d_X509(certificate, &bytes);
    std::string result(reinterpret_cast<char *>(bytes), static_cast<size_t>(length));
    OPENSSL_free(bytes);
    return result;
}

}  // namespace

std::vector<std::string> makeCertificateChain(const std::vector<std::string> &commonNames)
{
    std::vector<Key> keys;
    for (size_t i = 0; i < commonNames.size(); ++i)
        keys.push_back(makeKey());
    std::vector<std::string> chain;
    for (size_t i = 0; i < commonNames.size(); ++i) {
        size_t issuer = i + 1 < commonNames.size() ? i + 1 : i;
        X509 *certificate = X509_new();
        X509_set_version(certificate, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), static_cast<long>(i + 1));
        X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
        X509_set_pubkey(certificate, keys[i].get());
        X509_NAME *subject = X509_get_subject_name(certificate);
        X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_UTF8, reinterpret_cast<const unsigned char *>("Test"), -1, -1, 0);
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char *>(commonNames[i].c_str()), -1, -1, 0);
        X509_NAME *issuerName = X509_NAME_new();
        X509_NAME_add_entry_by_txt(issuerName, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char *>(commonNames[issuer].c_str()), -1, -1, 0);
        X509_set_issuer_name(certificate, issuerName);
        X509_NAME_free(issuerName);
        X509_sign(certificate, keys[issuer].get(), EVP_sha256());
        chain.push_back(der(certificate));
        X509_free(certificate);
    }
    return chain;
}

}  // namespace ymtest
