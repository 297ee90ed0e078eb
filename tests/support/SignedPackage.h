// Signed installer packages for the signature tests: certificate chains made with OpenSSL, and
// xar archives (a header, a zlib-compressed XML table of contents holding the signature elements
// asked for, and a small heap).
#pragma once

#include <string>
#include <vector>

namespace ymtest {

// DER certificates with the given subject common names, leaf first: each is signed by the one
// after it, and the last signs itself. An empty name makes a certificate without a common name.
std::vector<std::string> makeCertificateChain(const std::vector<std::string> &commonNames);

struct XarSignature {
    std::string element = "signature";  // or "x-signature"
    std::string style = "RSA";
    std::vector<std::string> certificateTexts;  // base64 as it stands in the XML
};

// The archive's bytes. With `compress` false the table of contents is stored as it is, which a
// reader cannot inflate.
std::string makeXarArchive(const std::vector<XarSignature> &signatures, bool compress = true);

// Base64 wrapped at 76 characters, as the signing tools write it.
std::string base64(const std::string &bytes);

}  // namespace ymtest
