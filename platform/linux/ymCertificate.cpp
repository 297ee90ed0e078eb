#include "platform/ymCertificate.h"

#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

void ymCertificate::Free::operator()(void *certificate) const { X509_free(static_cast<X509 *>(certificate)); }

std::optional<ymCertificate> ymCertificate::fromDER(const std::string &der)
{
    const auto *cursor = reinterpret_cast<const unsigned char *>(der.data());
    X509 *parsed = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    if (!parsed)
        return std::nullopt;
    if (cursor != reinterpret_cast<const unsigned char *>(der.data()) + der.size()) {
        X509_free(parsed);
        return std::nullopt;
    }
    ymCertificate certificate;
    certificate._certificate = std::shared_ptr<void>(parsed, Free());
    return certificate;
}

std::optional<std::string> ymCertificate::longDescription() const
{
    X509_NAME *subject = X509_get_subject_name(static_cast<X509 *>(_certificate.get()));
    int position = subject ? X509_NAME_get_index_by_NID(subject, NID_commonName, -1) : -1;
    if (position < 0)
        return std::nullopt;
    ASN1_STRING *value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, position));
    unsigned char *utf8 = nullptr;
    int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0)
        return std::nullopt;
    std::string name(reinterpret_cast<const char *>(utf8), static_cast<size_t>(length));
    OPENSSL_free(utf8);
    return name;
}
