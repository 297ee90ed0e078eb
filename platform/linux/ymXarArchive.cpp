#include "platform/ymXarArchive.h"

#include <cerrno>
#include <cstring>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <mutex>
#include <unistd.h>
#include <zlib.h>

#include "platform/ymFileManager.h"

namespace {

constexpr uint32_t kMagic = 0x78617221;  // "xar!"
constexpr size_t kMinimumHeaderSize = 28;
// A table of contents larger than this is not a package's: refuse it rather than inflate it.
constexpr uint64_t kMaximumTableOfContents = 64u << 20;

uint64_t bigEndian(const unsigned char *bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

// Inflates exactly `expected` bytes; nothing when the stream is broken, shorter or longer.
std::optional<std::string> inflateExactly(const unsigned char *input, size_t inputSize, uint64_t expected)
{
    std::string output(static_cast<size_t>(expected), '\0');
    z_stream stream;
    std::memset(&stream, 0, sizeof stream);
    if (inflateInit(&stream) != Z_OK)
        return std::nullopt;
    stream.next_in = const_cast<unsigned char *>(input);
    stream.avail_in = static_cast<uInt>(inputSize);
    stream.next_out = reinterpret_cast<unsigned char *>(output.data());
    stream.avail_out = static_cast<uInt>(output.size());
    int result = inflate(&stream, Z_FINISH);
    uint64_t produced = stream.total_out;
    inflateEnd(&stream);
    if (result != Z_STREAM_END || produced != expected)
        return std::nullopt;
    return output;
}

bool named(xmlNodePtr node, const char *name)
{
    return node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, reinterpret_cast<const xmlChar *>(name)) == 0;
}

void collectCertificates(xmlNodePtr node, std::vector<std::string> &certificates)
{
    for (xmlNodePtr child = node->children; child; child = child->next) {
        if (named(child, "X509Certificate")) {
            xmlChar *text = xmlNodeGetContent(child);
            certificates.emplace_back(text ? reinterpret_cast<const char *>(text) : "");
            xmlFree(text);
        } else if (child->type == XML_ELEMENT_NODE) {
            collectCertificates(child, certificates);
        }
    }
}

}  // namespace

namespace {

// Reads exactly `count` bytes at `offset`; false when the file is shorter or cannot be read.
bool readAt(int fd, std::string &into, size_t count, off_t offset)
{
    size_t start = into.size();
    into.resize(start + count);
    size_t done = 0;
    while (done < count) {
        ssize_t got = pread(fd, into.data() + start + done, count - done, offset + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

}  // namespace

std::optional<ymXarArchive> ymXarArchive::open(const std::string &path)
{
    // Only the header and the table of contents are read: an installer package may be large, and
    // its files are not looked at.
    int fd = ymFileManager::openRegularFile(path);
    if (fd < 0)
        return std::nullopt;
    std::string bytes;
    bool read = readAt(fd, bytes, kMinimumHeaderSize, 0);
    if (read) {
        const auto *header = reinterpret_cast<const unsigned char *>(bytes.data());
        uint64_t headerSize = bigEndian(header + 4, 2);
        uint64_t compressedSize = bigEndian(header + 8, 8);
        read = bigEndian(header, 4) == kMagic && headerSize >= kMinimumHeaderSize && compressedSize <= kMaximumTableOfContents &&
               readAt(fd, bytes, static_cast<size_t>(headerSize - kMinimumHeaderSize + compressedSize), kMinimumHeaderSize);
    }
    close(fd);
    if (!read)
        return std::nullopt;
    return fromBytes(bytes);
}

std::optional<ymXarArchive> ymXarArchive::fromBytes(const std::string &bytes)
{
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    if (bytes.size() < kMinimumHeaderSize || bigEndian(data, 4) != kMagic)
        return std::nullopt;
    uint64_t headerSize = bigEndian(data + 4, 2);
    uint64_t compressedSize = bigEndian(data + 8, 8);
    uint64_t uncompressedSize = bigEndian(data + 16, 8);
    if (headerSize < kMinimumHeaderSize || headerSize > bytes.size() || compressedSize > bytes.size() - headerSize ||
        compressedSize == 0 || uncompressedSize == 0 || uncompressedSize > kMaximumTableOfContents)
        return std::nullopt;
    std::optional<std::string> toc = inflateExactly(data + headerSize, static_cast<size_t>(compressedSize), uncompressedSize);
    if (!toc)
        return std::nullopt;

    // libxml2 wants its one-time set-up done before threads parse at once.
    static std::once_flag parserReady;
    std::call_once(parserReady, [] { xmlInitParser(); });
    // No network, no entity substitution, no DTD loading: the table of contents is only data.
    xmlDocPtr document = xmlReadMemory(toc->data(), static_cast<int>(toc->size()), "toc.xml", nullptr,
                                       XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (!document)
        return std::nullopt;
    ymXarArchive archive;
    xmlNodePtr root = xmlDocGetRootElement(document);
    xmlNodePtr tocElement = nullptr;
    if (root && named(root, "xar"))
        for (xmlNodePtr child = root->children; child && !tocElement; child = child->next)
            if (named(child, "toc"))
                tocElement = child;
    for (xmlNodePtr child = tocElement ? tocElement->children : nullptr; child; child = child->next) {
        if (!named(child, "signature") && !named(child, "x-signature"))
            continue;
        Signature signature;
        collectCertificates(child, signature.certificates);
        archive._firstSignature = std::move(signature);
        break;
    }
    xmlFreeDoc(document);
    return archive;
}

std::optional<std::string> ymXarArchive::certificateData(size_t index) const
{
    if (!_firstSignature || index >= _firstSignature->certificates.size())
        return std::nullopt;
    return ymDecodeBase64(_firstSignature->certificates[index]);
}

std::optional<std::string> ymDecodeBase64(const std::string &text)
{
    auto valueOf = [](unsigned char c) -> int {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        if (c == '+')
            return 62;
        if (c == '/')
            return 63;
        return -1;
    };
    std::string decoded;
    uint32_t group = 0;
    int filled = 0;
    int padding = 0;
    for (unsigned char c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
            continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        int value = valueOf(c);
        if (value < 0 || padding > 0)
            return std::nullopt;  // a stray character, or data after the padding
        group = (group << 6) | static_cast<uint32_t>(value);
        if (++filled == 4) {
            decoded.push_back(static_cast<char>(group >> 16));
            decoded.push_back(static_cast<char>(group >> 8));
            decoded.push_back(static_cast<char>(group));
            group = 0;
            filled = 0;
        }
    }
    if (padding > 2 || (filled + padding) % 4 != 0 || filled == 1)
        return std::nullopt;
    if (filled == 2)
        decoded.push_back(static_cast<char>(group >> 4));
    else if (filled == 3) {
        decoded.push_back(static_cast<char>(group >> 10));
        decoded.push_back(static_cast<char>(group >> 2));
    }
    return decoded;
}
