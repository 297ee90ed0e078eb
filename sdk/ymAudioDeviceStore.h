// The shared list of audio devices: in the defaults suite YMCLIENTSDK_SHAREDATA under the key
// AUDIODEVICE, an array of JSON texts, one four-key object per device ({"deviceIndex",
// "deviceName", "usbPid", "usbVid"}, pretty-printed). Every process of the user reads and writes
// it; each change is made whole under the suite's lock, so none is lost.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace ymAudioDeviceStore {

// Appends the device unless an entry with the same name and index is there. Answers false
// only when the suite could not be written.
bool registerDevice(const std::string &deviceName, const std::string &deviceIndex, const nlohmann::json &usbVid,
                    const nlohmann::json &usbPid);

// A device of this process, as the in-memory list holds it.
struct Device {
    std::optional<std::string> deviceName;
    std::optional<std::string> deviceIndex;
};

// A device removed from the shared list, to be released.
struct Release {
    std::string deviceIndex;  // the index, or "0" when the in-memory entry has none
    std::optional<std::string> deviceName;
};

struct CleanupResult {
    bool nothingStored = false;    // the list was missing or empty: nothing was written
    std::vector<Release> released; // in the order removed
};

// Removes this process's devices. For each device, in order, the list is walked once from its
// start: an entry matches when its name equals the device's and, if the entry has an index,
// that index equals the device's. A matching entry is removed and the walk steps on, so the
// entry that moved into its place is not looked at in that walk. Entries of other processes
// stay. The list is written back unless it was missing or empty.
CleanupResult removeDevices(const std::vector<Device> &devices);

// The stored texts, in order; nothing when there is no list. Elements that are not texts are
// left out.
std::optional<std::vector<std::string>> storedTexts();

}  // namespace ymAudioDeviceStore
