// How a notification's user information prints in the log, in the shape of the platform's
// dictionary description:
//
//     {
//         content = "{\"commandId\":1}";
//     }
//
// A value made only of letters, digits and "_" prints bare; any other is quoted, with quotes,
// backslashes and line breaks escaped. Missing user information prints "(null)".
#pragma once

#include <map>
#include <optional>
#include <string>

namespace ymNotificationDescription {

std::string describe(const std::optional<std::map<std::string, std::string>> &userInfo);

}  // namespace ymNotificationDescription
