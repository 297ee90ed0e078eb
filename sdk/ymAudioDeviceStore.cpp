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

// The name and index of one stored entry: a text holding a JSON object. A value that is there
// but is not a text (another program wrote a number) is present all the same, and equals no
// text; an entry that does not parse has neither.
struct StoredValue {
    bool present = false;
    std::optional<std::string> text;
    bool equals(const std::optional<std::string> &other) const { return text && other && *text == *other; }
};

struct StoredDevice {
    StoredValue deviceName;
    StoredValue deviceIndex;
};

StoredValue storedValue(const nlohmann::json &object, const char *key)
{
    StoredValue value;
    auto found = object.find(key);
    if (found == object.end())
        return value;
    value.present = true;
    if (found->is_string())
        value.text = found->get<std::string>();
    return value;
}

StoredDevice parseEntry(plist_t element)
{
    StoredDevice device;
    std::optional<std::string> text = ymPropertyList::textOf(element);
    if (!text || plist_get_node_type(element) != PLIST_STRING)
        return device;
    std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(text);
    if (!parsed || !parsed->is_object())
        return device;
    device.deviceName = storedValue(*parsed, "deviceName");
    device.deviceIndex = storedValue(*parsed, "deviceIndex");
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
                if (stored.deviceName.equals(deviceName) && stored.deviceIndex.equals(deviceIndex))
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
        // Each stored entry is read once, not once per device: the list may be long, and it is
        // locked against every other companion meanwhile.
        std::vector<StoredDevice> stored;
        for (uint32_t j = 0; j < plist_array_get_size(array); ++j)
            stored.push_back(parseEntry(plist_array_get_item(array, j)));
        for (const Device &device : devices) {
            for (size_t j = 0; j < stored.size(); ++j) {
                // An entry without an index matches on the name alone.
                bool sameName = stored[j].deviceName.equals(device.deviceName);
                bool sameIndex = !stored[j].deviceIndex.present || stored[j].deviceIndex.equals(device.deviceIndex);
                if (!sameName || !sameIndex)
                    continue;
                // The next entry moves into place j and is passed over by this walk: j steps on.
                plist_array_remove_item(array, static_cast<uint32_t>(j));
                stored.erase(stored.begin() + static_cast<long>(j));
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
