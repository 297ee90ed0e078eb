// Property lists (XML and binary) as Info.plist files and defaults domains are read, the bundle
// version taken from them, and the version text read as the client's gates read it.
#include <YumoClientSdk/yStringUtils.h>

#include "FuzzSupport.h"
#include "platform/ymPropertyList.h"
#include "foundation/ymTextRules.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
    std::optional<ymValue> root = ymPropertyList::parse(bytes);
    std::string version;
    if (root) {
        version = ymPropertyList::textForKey(&*root, "CFBundleVersion").value_or("");
        ymPropertyList::textForKey(&*root, "installPath");
        // Written again as XML (the form the SDK writes) it reads back. (libplist's binary writer
        // turns text that is not UTF-8 into an empty UTF-16 string its reader refuses: the binary
        // form is only written, not asked to read back.)
        std::optional<ymValue> again = ymPropertyList::parse(ymPropertyList::serialize(*root, false));
        if (!again)
            __builtin_trap();
        ymPropertyList::serialize(*root, true);
        ymPropertyList::update(bytes, [](const ymValue &value) { return value; });
    } else {
        version = bytes;  // the version readings on any text
    }
    std::vector<std::string> parts = ymText::componentsSeparatedBy(version, ".");
    for (const std::string &part : parts) {
        ymText::intValue(part);
        ymText::boolValue(part);
    }
    ymText::utf16Length(version);
    ymText::trimmingWhitespaceAndNewlines(version);
    ymText::standardizingPath(version);
    yStringUtils::toArrayOrNSDictionary(version);
    return 0;
}
