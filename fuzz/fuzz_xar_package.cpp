// Installer packages: the xar header, the table of contents and its inflation, the signature's
// certificates in base64, and each certificate's parsing and name. The whole check also runs on
// the bytes as a file.
#include <YumoClientSdk/ymAppHelper.h>
#include <sys/mman.h>
#include <unistd.h>

#include "FuzzSupport.h"
#include "platform/ymCertificate.h"
#include "platform/ymXarArchive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
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
    if (file >= 0 && ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size))
        ymAppHelper::sharedInstance()->checkCodeSignForYumoPkg("/proc/self/fd/" + std::to_string(file));
    return 0;
}
