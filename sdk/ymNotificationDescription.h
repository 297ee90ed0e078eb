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

#include <YumoClientSdk/ymValue.h>
#include <optional>
#include <string>

namespace ymNotificationDescription {

// A dictionary's members as shown above, keys in ascending order; a number shows as its digits
// (quoted when not bare, as "-5" and "1.5" are), a Boolean as 1 or 0, an array or dictionary
// as "(null)"; user information that is no dictionary shows as an empty one.
std::string describe(const std::optional<ymValue> &userInfo);

}  // namespace ymNotificationDescription
