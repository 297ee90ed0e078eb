#include "sdk/ymAudioDeviceStore.h"

#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>

#include "platform/ymUserDefaults.h"

namespace ymAudioDeviceStore {
namespace {

std::string suiteName() { return YMCLIENTSDK_SHAREDATA ? YMCLIENTSDK_SHAREDATA : ""; }
const char *keyName() { return AUDIODEVICE ? AUDIODEVICE : ""; }

// The stored array, or null when the key is missing or holds something else.
plist_t storedArray(plist_t dictionary)
{
    plist_t array = plist_dict_get_item(dictionary, keyName());
    return array && plist_get_node_type(array) == PLIST_ARRAY ? array : nullptr;
}

// The name and index of one stored entry: a text holding a JSON object. Values that are not
// texts read as missing; so does everything of an entry that does not parse.
struct StoredDevice {
    std::optional<std::string> deviceName;
    std::optional<std::string> deviceIndex;
};

StoredDevice parseEntry(plist_t element)
{
    StoredDevice device;
    std::optional<std::string> text = ymPropertyList::textOf(element);
    if (!text || plist_get_node_type(element) != PLIST_STRING)
        return device;
    std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(text);
    if (!parsed || !parsed->is_object())
        return device;
    auto name = parsed->find("deviceName");
    if (name != parsed->end() && name->is_string())
        device.deviceName = name->get<std::string>();
    auto index = parsed->find("deviceIndex");
    if (index != parsed->end() && index->is_string())
        device.deviceIndex = index->get<std::string>();
    return device;
}

}  // namespace

bool registerDevice(const std::string &deviceName, const std::string &deviceIndex, const nlohmann::json &usbVid,
                    const nlohmann::json &usbPid)
{
    return ymUserDefaults::updateDomain(suiteName(), [&](plist_t dictionary) {
        plist_t array = storedArray(dictionary);
        if (array) {
            for (uint32_t i = 0; i < plist_array_get_size(array); ++i) {
                StoredDevice stored = parseEntry(plist_array_get_item(array, i));
                if (stored.deviceName == deviceName && stored.deviceIndex == deviceIndex)
                    return false;  // already known: nothing is written
            }
        } else {
            array = plist_new_array();
            plist_dict_set_item(dictionary, keyName(), array);
        }
        nlohmann::json entry = {{"deviceName", deviceName}, {"deviceIndex", deviceIndex}, {"usbPid", usbPid}, {"usbVid", usbVid}};
        std::optional<std::string> text = yStringUtils::toJSONString(entry);
        plist_array_append_item(array, plist_new_string(text.value_or("").c_str()));
        return true;
    });
}

CleanupResult removeDevices(const std::vector<Device> &devices)
{
    CleanupResult result;
    ymUserDefaults::updateDomain(suiteName(), [&](plist_t dictionary) {
        plist_t array = storedArray(dictionary);
        if (!array || plist_array_get_size(array) == 0) {
            result.nothingStored = true;
            return false;
        }
        for (const Device &device : devices) {
            if (plist_array_get_size(array) == 0)
                continue;
            for (uint32_t j = 0; j < plist_array_get_size(array); ++j) {
                StoredDevice stored = parseEntry(plist_array_get_item(array, j));
                bool sameName = device.deviceName && stored.deviceName && *device.deviceName == *stored.deviceName;
                bool sameIndex = !stored.deviceIndex || (device.deviceIndex && *device.deviceIndex == *stored.deviceIndex);
                if (!sameName || !sameIndex)
                    continue;
                // The next entry moves into place j and is passed over by this walk: j steps on.
                plist_array_remove_item(array, j);
                result.released.push_back({device.deviceIndex.value_or("0"), device.deviceName});
            }
        }
        return true;
    });
    return result;
}

std::optional<std::vector<std::string>> storedTexts()
{
    ymPropertyList::Node dictionary = ymUserDefaults::persistentDomain(suiteName());
    if (!dictionary)
        return std::nullopt;
    plist_t array = storedArray(dictionary.get());
    if (!array)
        return std::nullopt;
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < plist_array_get_size(array); ++i) {
        plist_t element = plist_array_get_item(array, i);
        if (plist_get_node_type(element) == PLIST_STRING)
            texts.push_back(ymPropertyList::textOf(element).value_or(""));
    }
    return texts;
}

}  // namespace ymAudioDeviceStore
