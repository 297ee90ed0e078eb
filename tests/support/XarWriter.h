// Writes xar archives for the signature tests: a header, a zlib-compressed XML table of contents
// holding the signature elements asked for, and a small heap.
#pragma once

#include <string>
#include <vector>

namespace ymtest {

struct XarSignature {
    std::string element = "signature";  // or "x-signature"
    std::string style = "RSA";
    std::vector<std::string> certificateTexts;  // base64 as it stands in the XML
};

// The archive's bytes. With `compress` false the table of contents is stored as it is, which a
// reader cannot inflate.
std::string makeXarArchive(const std::vector<XarSignature> &signatures, bool compress = true);

std::string base64(const std::string &bytes);

}  // namespace ymtest
