// The message envelope: the two texts the SDK sends and the readings of what comes back.
//
// Outbound texts are filled by plain substitution into fixed formats, never by a JSON writer:
// device texts go in escaped as JSON strings require (a quote, a backslash or a control character
// is written as its escape; every other byte as it is, so a plain name is sent unchanged), a
// missing text prints "(null)", and the USB identifiers print as signed decimals.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace ymIPCMessage {

// The message-format version the SDK writes into every message.
inline constexpr const char *kVersion = "1.0.0";

inline constexpr int32_t kCommandPresenceStatus = 1;
inline constexpr int32_t kCommandAudio = 2;

// {"commandId":1,"from":1,"version":"1.0.0","data":""}
std::string presenceRequest(const char *version = kVersion);

// {"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":<cmd>}],"deviceIndex":"<index>",
//  "deviceName":"<name>","usbVid":"<vid>","usbPid":"<pid>"}
std::string audioCommand(int32_t audioCmd, const std::optional<std::string> &deviceIndex,
                         const std::optional<std::string> &deviceName, uint32_t usbVid, uint32_t usbPid,
                         const char *version = kVersion);

// The "commandId" read as an integer and taken as 32 bits; 0 when missing or when the message is
// not an object.
int32_t commandId(const nlohmann::json &message);

// The "result" of a presence answer, "code:text". Used only when it splits into exactly two
// parts; otherwise error is NO, code 0 and the text missing.
struct ResultReading {
    bool error = false;
    int32_t code = 0;
    std::optional<std::string> text;
};
ResultReading result(const nlohmann::json &message);

// The last "PresenceStatus" in the "data" array; 0 when none.
int32_t presenceStatus(const nlohmann::json &message);

// The last "AudioCmd" in the "data" array; 0 when none.
int32_t audioCmd(const nlohmann::json &message);

// "deviceName"; missing when absent or not a string.
std::optional<std::string> deviceName(const nlohmann::json &message);

// "deviceIndex"; "0" when the key is absent, missing when it holds something other than a string.
std::optional<std::string> deviceIndex(const nlohmann::json &message);

// All of the above at once, as the facade reads a message it receives.
struct Reading {
    int32_t commandId = 0;
    ResultReading result;
    int32_t presenceStatus = 0;
    int32_t audioCmd = 0;
    std::optional<std::string> deviceName;
    std::optional<std::string> deviceIndex;
};
Reading read(const nlohmann::json &message);

// The same from the message's text, without parsing it into values: the same readings, or
// nothing when the text is not plainly a JSON object (an escape in one of its strings, a key given
// twice, a number kept as a real, or not JSON at all). The text is then parsed.
std::optional<Reading> read(std::string_view text);

}  // namespace ymIPCMessage
