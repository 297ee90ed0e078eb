// User defaults: one property list per domain, "$HOME/Library/Preferences/<domain>.plist".
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/ymPropertyList.h"

namespace ymUserDefaults {

// The file that holds a domain.
std::optional<std::string> pathForDomain(const std::string &domain);

// The domain's dictionary as stored; nothing when there is no such domain, or its file is not a
// property list holding a dictionary.
std::optional<ymValue> persistentDomain(const std::string &domain);

// The domain's dictionary, shared and parsed again only when its file changed (see
// ymPropertyList::readFileShared); null as persistentDomain.
std::shared_ptr<const ymValue> sharedDomain(const std::string &domain);

// The user's preferred languages ("AppleLanguages"): the global domain's list when it is set,
// otherwise the locale of the environment (LANGUAGE, then LC_ALL, LC_MESSAGES, LANG) as language
// tags such as "en-US". Nothing when neither says anything.
std::optional<std::vector<std::string>> preferredLanguages();

// Changes a domain as one step that no other process interleaves with: under an exclusive lock
// on "<domain file>.lock" the domain is read (an empty dictionary when there is no file), `change`
// answers the dictionary to store (or nothing, to store nothing), and the result is written as XML
// to a temporary file that is then renamed over the domain's file, so readers never see half a
// file; temporary files that killed writers left behind are removed. Members `change` leaves as
// they were keep their exact form. A domain file that exists but cannot be read, or is not a
// dictionary, is left as it is and nothing is written. Answers false when the domain cannot be
// locked, read or written.
bool updateDomain(const std::string &domain, const std::function<std::optional<ymValue>(const ymValue &dictionary)> &change);

}  // namespace ymUserDefaults
