#include "support/FacadeFixture.h"

#include <filesystem>

#include "platform/ymPropertyList.h"

namespace ymtest {
namespace {
std::string home() { return std::getenv("HOME") ? std::getenv("HOME") : ""; }
std::string suitePath() { return home() + "/Library/Preferences/YumoClientSdk.ShareData.plist"; }
}  // namespace

std::string fieldsOf(const YMPresenceStatus_s &status)
{
    return "error=" + std::to_string(status.error) + " code=" + std::to_string(status.code) +
           " text=" + status.text.value_or("(nil)") + " presence=" + std::to_string(status.presenceStatus) +
           " reserved=" + std::to_string(status.reserved);
}

std::string fieldsOf(const YMAudioInfo_s &info)
{
    std::string reserved = std::to_string(info.reserved0);
    for (uint8_t byte : info.reserved1)
        reserved += std::to_string(byte);
    return "cmd=" + std::to_string(info.audioCmd) + " index=" + info.audioDevice.deviceIndex.value_or("(nil)") +
           " name=" + info.audioDevice.deviceName.value_or("(nil)") + " vid=" + std::to_string(info.audioDevice.usbVid) +
           " pid=" + std::to_string(info.audioDevice.usbPid) + " reserved=" + reserved;
}

std::vector<std::string> sharedDeviceTexts()
{
    std::vector<std::string> texts;
    std::optional<ymValue> suite = ymPropertyList::readFile(suitePath());
    const ymValue *array = suite ? suite->find("AudioDevice") : nullptr;
    for (const ymValue &element : array ? array->elements() : std::vector<ymValue>())
        texts.push_back(element.isText() ? element.text() : "(not a text)");
    return texts;
}

void writeSharedDeviceTexts(const std::vector<std::string> &texts)
{
    std::filesystem::create_directories(home() + "/Library/Preferences");
    std::vector<ymValue> elements(texts.begin(), texts.end());
    writeFile(suitePath(), ymPropertyList::serialize(ymValue::dictionary({{"AudioDevice", ymValue::array(elements)}}), false));
}

std::string sdkLog() { return readFile(home() + "/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd/yumoclientsdk.log"); }

}  // namespace ymtest
