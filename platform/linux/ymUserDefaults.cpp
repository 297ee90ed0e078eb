#include "platform/ymUserDefaults.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include "platform/ymFileManager.h"

namespace ymUserDefaults {

std::optional<std::string> pathForDomain(const std::string &domain)
{
    const char *home = std::getenv("HOME");
    if (!home || !*home || domain.empty() || domain.find('/') != std::string::npos)
        return std::nullopt;
    return std::string(home) + "/Library/Preferences/" + domain + ".plist";
}

std::optional<ymValue> persistentDomain(const std::string &domain)
{
    std::optional<std::string> path = pathForDomain(domain);
    if (!path)
        return std::nullopt;
    std::optional<ymValue> root = ymPropertyList::readFile(*path);
    if (!root || root->type() != ymValue::Type::dictionary)
        return std::nullopt;
    return root;
}

std::shared_ptr<const ymValue> sharedDomain(const std::string &domain)
{
    std::optional<std::string> path = pathForDomain(domain);
    if (!path)
        return nullptr;
    std::shared_ptr<const ymValue> root = ymPropertyList::readFileShared(*path);
    if (!root || root->type() != ymValue::Type::dictionary)
        return nullptr;
    return root;
}

namespace {

// "de_DE.UTF-8@euro" reads "de-DE"; "C" and "POSIX" say nothing.
std::optional<std::string> languageTagOf(std::string locale)
{
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX")
        return std::nullopt;
    for (char &c : locale)
        if (c == '_')
            c = '-';
    return locale;
}

}  // namespace

std::optional<std::vector<std::string>> preferredLanguages()
{
    std::optional<ymValue> global = persistentDomain(".GlobalPreferences");
    const ymValue *languages = global ? global->find("AppleLanguages") : nullptr;
    if (languages && languages->type() == ymValue::Type::array) {
        std::vector<std::string> tags;
        for (const ymValue &language : languages->elements())
            if (std::optional<std::string> tag = ymPropertyList::textOf(language))
                tags.push_back(*tag);
        return tags;
    }
    std::vector<std::string> tags;
    if (const char *language = std::getenv("LANGUAGE")) {
        std::string list = language;
        for (size_t start = 0; start <= list.size();) {
            size_t colon = list.find(':', start);
            if (std::optional<std::string> tag = languageTagOf(list.substr(start, colon - start)))
                tags.push_back(*tag);
            if (colon == std::string::npos)
                break;
            start = colon + 1;
        }
    }
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(variable);
        if (!value || !*value)
            continue;
        if (std::optional<std::string> tag = languageTagOf(value))
            tags.push_back(*tag);
        break;  // the first one set is the one in force
    }
    if (tags.empty())
        return std::nullopt;
    return tags;
}

namespace {

// An exclusive flock held for the object's life. A writer that holds it only for one read and
// one write, so a lock that stays taken for seconds belongs to a process that was stopped: the
// wait is given up then, and the change is not made.
class DomainLock {
public:
    explicit DomainLock(const std::string &path)
    {
        _fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
        if (_fd < 0)
            return;
        auto deadline = std::chrono::steady_clock::now() + kLockWaitLimit;
        while (flock(_fd, LOCK_EX | LOCK_NB) != 0) {
            if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > deadline) {
                close(_fd);
                _fd = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    ~DomainLock()
    {
        if (_fd >= 0)
            close(_fd);  // releases the lock
    }
    bool held() const { return _fd >= 0; }

private:
    static constexpr std::chrono::seconds kLockWaitLimit{10};
    int _fd = -1;
};

}  // namespace

bool updateDomain(const std::string &domain, const std::function<std::optional<ymValue>(const ymValue &dictionary)> &change)
{
    std::optional<std::string> path = pathForDomain(domain);
    if (!path)
        return false;
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(*path).parent_path(), ignored);
    DomainLock lock(*path + ".lock");
    if (!lock.held())
        return false;
    // Only a domain that does not exist starts empty. One that cannot be read (no permission, an
    // I/O error, no descriptor left, not a regular file) or is not a dictionary is never
    // overwritten: what other processes stored in it would be lost.
    std::string bytes;
    std::optional<std::string> updated;
    switch (ymFileManager::readRegularFile(*path, bytes)) {
    case ymFileManager::ReadResult::missing:
        if (std::optional<ymValue> created = change(ymValue::dictionary({})))
            updated = ymPropertyList::serialize(*created, false);
        break;
    case ymFileManager::ReadResult::unreadable:
        return false;
    case ymFileManager::ReadResult::read: {
        bool dictionary = false;
        updated = ymPropertyList::update(bytes, [&](const ymValue &root) -> std::optional<ymValue> {
            dictionary = root.type() == ymValue::Type::dictionary;
            return dictionary ? change(root) : std::nullopt;
        });
        if (!dictionary)
            return false;
        break;
    }
    }
    if (!updated)
        return true;  // nothing to change
    // Under the lock no other write of the domain is under way: a temporary file of one is the
    // leftover of a writer that was killed.
    ymFileManager::removeLeftoverTemporaries(*path);
    return ymFileManager::writeFile(*path, *updated);
}

}  // namespace ymUserDefaults
