// A reader of xar archives (installer packages): the header, the zlib-compressed XML table of
// contents, and the X.509 certificates of the first signature, in order, as DER bytes.
//
// The header is big-endian: "xar!", the header size (16 bits, at least 28), the version (16 bits),
// the compressed and uncompressed sizes of the table of contents (64 bits each) and the checksum
// algorithm (32 bits). The table of contents follows the header. Nothing of a malformed file is
// trusted: sizes are checked against the file, inflation is bounded, and every failure is an
// answer, never a crash.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class ymXarArchive {
public:
    // Opens the archive and reads its table of contents; nothing when the file is missing, is
    // not a xar archive, or its table of contents does not inflate or parse.
    static std::optional<ymXarArchive> open(const std::string &path);

    // The same from bytes in memory.
    static std::optional<ymXarArchive> fromBytes(const std::string &bytes);

    // The first signature ("signature" or "x-signature" element of the table of contents, in
    // document order), or nothing for an unsigned archive.
    struct Signature {
        // The text of each X509Certificate element, in order (base64).
        std::vector<std::string> certificates;
    };
    const std::optional<Signature> &firstSignature() const { return _firstSignature; }

    // The DER bytes of certificate `index` of the first signature; nothing when there is no such
    // certificate or its base64 does not decode.
    std::optional<std::string> certificateData(size_t index) const;

private:
    ymXarArchive() = default;
    std::optional<Signature> _firstSignature;
};

// Decodes base64, passing over blanks and line breaks; nothing for any other stray character or
// bad padding.
std::optional<std::string> ymDecodeBase64(const std::string &text);
