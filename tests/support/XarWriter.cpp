#include "support/XarWriter.h"

#include <zlib.h>

namespace ymtest {
namespace {

void appendBigEndian(std::string &out, uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

}  // namespace

std::string base64(const std::string &bytes)
{
    static const char *const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        uint32_t group = (static_cast<unsigned char>(bytes[i]) << 16) | (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                         static_cast<unsigned char>(bytes[i + 2]);
        for (int shift : {18, 12, 6, 0})
            text.push_back(alphabet[(group >> shift) & 63]);
        if ((i / 3) % 19 == 18)
            text.push_back('\n');  // wrapped as the signing tools write it
    }
    if (i < bytes.size()) {
        uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
        if (i + 1 < bytes.size())
            group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        text.push_back(alphabet[(group >> 18) & 63]);
        text.push_back(alphabet[(group >> 12) & 63]);
        text.push_back(i + 1 < bytes.size() ? alphabet[(group >> 6) & 63] : '=');
        text.push_back('=');
    }
    return text;
}

std::string makeXarArchive(const std::vector<XarSignature> &signatures, bool compress)
{
    std::string toc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xar>\n <toc>\n"
                      "  <checksum style=\"sha1\"><offset>0</offset><size>20</size></checksum>\n"
                      "  <creation-time>2026-11-21T00:00:00</creation-time>\n";
    size_t offset = 20;
    for (const XarSignature &signature : signatures) {
        toc += "  <" + signature.element + " style=\"" + signature.style + "\"><offset>" + std::to_string(offset) +
               "</offset><size>256</size>\n   <KeyInfo xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><X509Data>\n";
        for (const std::string &text : signature.certificateTexts)
            toc += "    <X509Certificate>" + text + "</X509Certificate>\n";
        toc += "   </X509Data></KeyInfo>\n  </" + signature.element + ">\n";
        offset += 256;
    }
    toc += "  <file id=\"1\"><name>Distribution</name><type>file</type></file>\n </toc>\n</xar>\n";

    std::string stored = toc;
    if (compress) {
        uLongf size = compressBound(toc.size());
        stored.assign(size, '\0');
        compress2(reinterpret_cast<Bytef *>(stored.data()), &size, reinterpret_cast<const Bytef *>(toc.data()), toc.size(), 9);
        stored.resize(size);
    }
    std::string archive = "xar!";
    appendBigEndian(archive, 28, 2);             // header size
    appendBigEndian(archive, 1, 2);              // version
    appendBigEndian(archive, stored.size(), 8);  // table of contents, compressed
    appendBigEndian(archive, toc.size(), 8);     // and uncompressed
    appendBigEndian(archive, 1, 4);              // sha1
    archive += stored;
    archive += std::string(offset, '\x5a');      // the heap: checksum and signature bytes
    return archive;
}

}  // namespace ymtest
