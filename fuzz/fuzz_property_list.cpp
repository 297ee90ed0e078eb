// Property lists (XML and binary) as Info.plist files and defaults domains are read, the bundle
// version taken from them, and the version text read as the client's gates read it.
#include <YumoClientSdk/yStringUtils.h>

#include "FuzzSupport.h"
#include "platform/ymPropertyList.h"
#include "foundation/ymTextRules.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
    ymPropertyList::Node root = ymPropertyList::parse(bytes);
    std::string version;
    if (root) {
        ymPropertyList::toJSON(root.get()).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        version = ymPropertyList::textForKey(root.get(), "CFBundleVersion").value_or("");
        ymPropertyList::textForKey(root.get(), "installPath");
        ymPropertyList::serialize(root.get(), true);
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
