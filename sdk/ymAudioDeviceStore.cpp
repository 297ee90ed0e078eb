#include "sdk/ymAudioDeviceStore.h"

#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>

#include "platform/ymUserDefaults.h"

namespace ymAudioDeviceStore {
namespace {

std::string suiteName() { return YMCLIENTSDK_SHAREDATA ? YMCLIENTSDK_SHAREDATA : ""; }
const char *keyName() { return AUDIODEVICE ? AUDIODEVICE : ""; }

// The stored array, or null when the key is missing or holds something else.
const ymValue *storedArray(const ymValue &dictionary)
{
    const ymValue *array = dictionary.find(keyName());
    return array && array->type() == ymValue::Type::array ? array : nullptr;
}

// The dictionary with the key's array replaced, every other member as it was.
ymValue withArray(const ymValue &dictionary, std::vector<ymValue> elements)
{
    ymValue::Members members;
    bool replaced = false;
    for (const auto &[key, value] : dictionary.members()) {
        if (key == keyName()) {
            members.emplace_back(key, ymValue::array(elements));
            replaced = true;
        } else {
            members.emplace_back(key, value);
        }
    }
    if (!replaced)
        members.emplace_back(keyName(), ymValue::array(std::move(elements)));
    return ymValue::dictionary(std::move(members));
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

StoredDevice parseEntry(const ymValue &element)
{
    if (!element.isText())
        return {};
    std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(element.text());
    if (!parsed || !parsed->is_object())
        return {};
    StoredDevice device;
    device.deviceName = storedValue(*parsed, "deviceName");
    device.deviceIndex = storedValue(*parsed, "deviceIndex");
    return device;
}

}  // namespace

bool registerDevice(const std::string &deviceName, const std::string &deviceIndex, const nlohmann::json &usbVid,
                    const nlohmann::json &usbPid)
{
    return ymUserDefaults::updateDomain(suiteName(), [&](const ymValue &dictionary) -> std::optional<ymValue> {
        std::vector<ymValue> elements;
        if (const ymValue *array = storedArray(dictionary)) {
            for (const ymValue &element : array->elements()) {
                StoredDevice stored = parseEntry(element);
                if (stored.deviceName.equals(deviceName) && stored.deviceIndex.equals(deviceIndex))
                    return std::nullopt;  // already known: nothing is written
            }
            elements = array->elements();
        }
        nlohmann::json entry = {{"deviceName", deviceName}, {"deviceIndex", deviceIndex}, {"usbPid", usbPid}, {"usbVid", usbVid}};
        elements.emplace_back(yStringUtils::toJSONString(entry).value_or(""));
        return withArray(dictionary, std::move(elements));
    });
}

CleanupResult removeDevices(const std::vector<Device> &devices)
{
    CleanupResult result;
    ymUserDefaults::updateDomain(suiteName(), [&](const ymValue &dictionary) -> std::optional<ymValue> {
        const ymValue *array = storedArray(dictionary);
        if (!array || array->elements().empty()) {
            result.nothingStored = true;
            return std::nullopt;
        }
        // Each stored entry is read once, not once per device: the list may be long, and it is
        // locked against every other companion meanwhile.
        std::vector<ymValue> elements = array->elements();
        std::vector<StoredDevice> stored;
        for (const ymValue &element : elements)
            stored.push_back(parseEntry(element));
        for (const Device &device : devices) {
            for (size_t j = 0; j < stored.size(); ++j) {
                // An entry without an index matches on the name alone.
                bool sameName = stored[j].deviceName.equals(device.deviceName);
                bool sameIndex = !stored[j].deviceIndex.present || stored[j].deviceIndex.equals(device.deviceIndex);
                if (!sameName || !sameIndex)
                    continue;
                // The next entry moves into place j and is passed over by this walk: j steps on.
                elements.erase(elements.begin() + static_cast<long>(j));
                stored.erase(stored.begin() + static_cast<long>(j));
                result.released.push_back({device.deviceIndex.value_or("0"), device.deviceName});
            }
        }
        return withArray(dictionary, std::move(elements));
    });
    return result;
}

std::optional<std::vector<std::string>> storedTexts()
{
    std::optional<ymValue> dictionary = ymUserDefaults::persistentDomain(suiteName());
    const ymValue *array = dictionary ? storedArray(*dictionary) : nullptr;
    if (!array)
        return std::nullopt;
    std::vector<std::string> texts;
    for (const ymValue &element : array->elements())
        if (element.isText())
            texts.push_back(element.text());
    return texts;
}

}  // namespace ymAudioDeviceStore
