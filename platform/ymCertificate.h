// X.509 certificates on OpenSSL, for the signature checks: a certificate made from DER bytes, and
// its long description, which is the common name of its subject.
#pragma once

#include <memory>
#include <optional>
#include <string>

class ymCertificate {
public:
    // Parses DER bytes; nothing when they are not a certificate (trailing bytes included).
    static std::optional<ymCertificate> fromDER(const std::string &der);

    // The subject's common name as UTF-8; nothing when the subject has none.
    std::optional<std::string> longDescription() const;

private:
    struct Free {
        void operator()(void *certificate) const;
    };
    std::shared_ptr<void> _certificate;
};
