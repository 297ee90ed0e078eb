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

// The domain's dictionary as stored; null when there is no such domain, or its file is not a
// property list holding a dictionary.
ymPropertyList::Node persistentDomain(const std::string &domain);

// The domain's dictionary for reading only, shared and parsed again only when its file changed
// (see ymPropertyList::readFileShared); null as persistentDomain.
ymPropertyList::SharedNode sharedDomain(const std::string &domain);

// The user's preferred languages ("AppleLanguages"): the global domain's list when it is set,
// otherwise the locale of the environment (LANGUAGE, then LC_ALL, LC_MESSAGES, LANG) as language
// tags such as "en-US". Nothing when neither says anything.
std::optional<std::vector<std::string>> preferredLanguages();

// Changes a domain as one step that no other process interleaves with: under an exclusive lock
// on "<domain file>.lock" the domain is read (an empty dictionary when there is no file), `change`
// edits it in place and answers whether to write it, and the result is written as XML to a
// temporary file that is then renamed over the domain's file, so readers never see half a file;
// temporary files that killed writers left behind are removed. A domain file that exists but
// cannot be read, or is not a dictionary, is left as it is and nothing is written. Answers false
// when the domain cannot be locked, read or written.
bool updateDomain(const std::string &domain, const std::function<bool(plist_t dictionary)> &change);

}  // namespace ymUserDefaults
