// Installer packages: the xar header, the table of contents and its inflation, the signature's
// certificates in base64, and each certificate's parsing and name. The whole check also runs on
// the bytes as a file. Inputs starting with byte 0 are one certificate; with byte 1, a table of
// contents in plain XML that is wrapped into an archive here.
#include <YumoClientSdk/ymAppHelper.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include "FuzzSupport.h"
#include "platform/ymCertificate.h"
#include "platform/ymXarArchive.h"

namespace {

// A well-formed archive around a table of contents given as plain XML, so that mutations reach the
// XML, base64 and certificate code instead of dying in the compressed stream.
std::string archiveAround(const std::string &tableOfContents)
{
    uLongf size = compressBound(tableOfContents.size());
    std::string compressed(size, '\0');
    if (compress2(reinterpret_cast<Bytef *>(compressed.data()), &size, reinterpret_cast<const Bytef *>(tableOfContents.data()),
                  tableOfContents.size(), 1) != Z_OK)
        return std::string();
    compressed.resize(size);
    std::string archive = "xar!";
    auto append = [&archive](uint64_t value, int bytes) {
        for (int i = bytes - 1; i >= 0; --i)
            archive.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
    };
    append(28, 2);
    append(1, 2);
    append(compressed.size(), 8);
    append(tableOfContents.size(), 8);
    append(1, 4);
    return archive + compressed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
    // Inputs that start with byte 1 are a table of contents, wrapped here into an archive.
    if (!bytes.empty() && bytes[0] == '\1')
        bytes = archiveAround(bytes.substr(1));
    // Inputs that start with a zero byte are a certificate on their own.
    if (!bytes.empty() && bytes[0] == '\0') {
        if (std::optional<ymCertificate> certificate = ymCertificate::fromDER(bytes.substr(1)))
            certificate->longDescription();
        return 0;
    }
    if (std::optional<ymXarArchive> archive = ymXarArchive::fromBytes(bytes)) {
        if (archive->firstSignature())
            for (size_t i = 0; i < archive->firstSignature()->certificates.size(); ++i)
                if (std::optional<std::string> der = archive->certificateData(i))
                    if (std::optional<ymCertificate> certificate = ymCertificate::fromDER(*der))
                        certificate->longDescription();
    }
    static int file = memfd_create("package", 0);
    if (file >= 0 && ftruncate(file, 0) == 0 &&
        pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()))
        ymAppHelper::sharedInstance()->checkCodeSignForYumoPkg("/proc/self/fd/" + std::to_string(file));
    return 0;
}
