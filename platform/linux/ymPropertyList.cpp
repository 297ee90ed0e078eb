#include "platform/ymPropertyList.h"

#include "platform/linux/ymPlistNodes.h"
#include "platform/ymFileManager.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <mutex>

#include "platform/ymMutex.h"
#include <sys/stat.h>
#include <unordered_map>

namespace {

uint64_t bigEndian(const unsigned char *bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

// libplist aborts (an assertion) when it is asked for a key or text that holds a zero byte, so
// such lists are refused before they are parsed: in XML a raw zero byte (the parser itself
// refuses a character reference to 0), in the binary form a string object with a zero character.
// Anything else malformed is left to the parser.
bool holdsZeroInText(const std::string &bytes, bool binary)
{
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    const size_t size = bytes.size();
    if (!binary)
        return bytes.find('\0') != std::string::npos;
    if (size < 40)
        return false;
    const unsigned char *trailer = data + size - 32;
    size_t offsetSize = trailer[6];
    uint64_t objects = bigEndian(trailer + 8, 8);
    uint64_t table = bigEndian(trailer + 24, 8);
    if (offsetSize == 0 || offsetSize > 8 || table >= size || objects > (size - table) / offsetSize)
        return false;
    for (uint64_t object = 0; object < objects; ++object) {
        uint64_t offset = bigEndian(data + table + object * offsetSize, offsetSize);
        if (offset >= size)
            continue;
        unsigned char marker = data[offset];
        unsigned kind = marker >> 4;
        if (kind != 0x5 && kind != 0x6)
            continue;
        uint64_t count = marker & 0x0f;
        uint64_t start = offset + 1;
        if (count == 0x0f) {  // the length follows as an integer object
            if (start >= size || (data[start] >> 4) != 0x1)
                continue;
            size_t width = size_t{1} << (data[start] & 0x0f);
            if (width > 8 || start + 1 + width > size)
                continue;
            count = bigEndian(data + start + 1, width);
            start += 1 + width;
        }
        uint64_t unit = kind == 0x6 ? 2 : 1;
        if (count > (size - start) / unit)
            continue;
        for (uint64_t i = 0; i < count; ++i) {
            const unsigned char *character = data + start + i * unit;
            if (character[0] == 0 && (unit == 1 || character[1] == 0))
                return true;
        }
    }
    return false;
}

}  // namespace

namespace ymPlistNodes {

Node parse(const std::string &bytes, bool *isBinary)
{
    if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max())
        return nullptr;
    const uint32_t length = static_cast<uint32_t>(bytes.size());
    plist_t root = nullptr;
    bool binary = plist_is_binary(bytes.data(), length) != 0;
    if (holdsZeroInText(bytes, binary))
        return nullptr;
    if (binary)
        plist_from_bin(bytes.data(), length, &root);
    else
        plist_from_xml(bytes.data(), length, &root);
    if (isBinary)
        *isBinary = binary;
    return Node(root);
}

std::string serialize(plist_t node, bool binary)
{
    char *bytes = nullptr;
    uint32_t length = 0;
    std::string result;
    if (binary) {
        plist_to_bin(node, &bytes, &length);
        if (bytes)
            result.assign(bytes, length);
        plist_to_bin_free(bytes);
    } else {
        plist_to_xml(node, &bytes, &length);
        if (bytes)
            result.assign(bytes, length);
        plist_to_xml_free(bytes);
    }
    return result;
}

void forEachItem(plist_t dictionary, const std::function<void(const char *key, plist_t value)> &visit)
{
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(dictionary, &iterator);
    for (;;) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, iterator, &key, &value);
        if (!value) {
            free(key);
            break;
        }
        visit(key, value);
        free(key);
    }
    free(iterator);
}

std::string textOf(plist_t node)
{
    // Read with its length: libplist's copying getter aborts on a zero byte inside the text.
    uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return text ? std::string(text, static_cast<size_t>(length)) : std::string();
}

}  // namespace ymPlistNodes

namespace ymPropertyList {
namespace {

using ymPlistNodes::Node;

ymValue valueOf(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        ymValue::Members members;
        ymPlistNodes::forEachItem(node, [&members](const char *key, plist_t value) { members.emplace_back(key, valueOf(value)); });
        return ymValue::dictionary(std::move(members));
    }
    case PLIST_ARRAY: {
        std::vector<ymValue> elements;
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
            elements.push_back(valueOf(plist_array_get_item(node, i)));
        return ymValue::array(std::move(elements));
    }
    case PLIST_STRING:
        return ymValue(ymPlistNodes::textOf(node));
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return ymValue(static_cast<long long>(value));  // the binary form stores signed integers this way
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return ymValue(value);
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return ymValue(value != 0);
    }
    case PLIST_DATE: {
        int32_t seconds = 0, microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return ymValue(seconds + microseconds / 1e6);
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        std::string text(bytes ? bytes : "", bytes ? length : 0);
        free(bytes);
        return ymValue(std::move(text));
    }
    default:
        return ymValue(std::string());
    }
}

plist_t nodeOf(const ymValue &value)
{
    switch (value.type()) {
    case ymValue::Type::dictionary: {
        plist_t dictionary = plist_new_dict();
        for (const auto &[key, member] : value.members())
            plist_dict_set_item(dictionary, key.c_str(), nodeOf(member));
        return dictionary;
    }
    case ymValue::Type::array: {
        plist_t array = plist_new_array();
        for (const ymValue &element : value.elements())
            plist_array_append_item(array, nodeOf(element));
        return array;
    }
    case ymValue::Type::boolean:
        return plist_new_bool(value.booleanValue() ? 1 : 0);
    case ymValue::Type::integer:
        return plist_new_uint(static_cast<uint64_t>(value.integerValue()));
    case ymValue::Type::real:
        return plist_new_real(value.realValue());
    case ymValue::Type::text:
        return plist_new_string(value.text().c_str());
    case ymValue::Type::null:
        break;
    }
    return plist_new_string("");
}

// The new value as a node, keeping the original's nodes wherever the value left them as they were.
plist_t merged(plist_t original, const ymValue &value)
{
    if (original && valueOf(original) == value)
        return plist_copy(original);
    if (original && value.type() == ymValue::Type::dictionary && plist_get_node_type(original) == PLIST_DICT) {
        plist_t dictionary = plist_new_dict();
        for (const auto &[key, member] : value.members())
            plist_dict_set_item(dictionary, key.c_str(), merged(plist_dict_get_item(original, key.c_str()), member));
        return dictionary;
    }
    if (original && value.type() == ymValue::Type::array && plist_get_node_type(original) == PLIST_ARRAY) {
        plist_t array = plist_new_array();
        const std::vector<ymValue> &elements = value.elements();
        for (uint32_t i = 0; i < elements.size(); ++i)
            plist_array_append_item(array, merged(i < plist_array_get_size(original) ? plist_array_get_item(original, i) : nullptr, elements[i]));
        return array;
    }
    return nodeOf(value);
}

}  // namespace

std::optional<ymValue> parse(const std::string &bytes, bool *isBinary)
{
    Node root = ymPlistNodes::parse(bytes, isBinary);
    if (!root)
        return std::nullopt;
    return valueOf(root.get());
}

std::optional<ymValue> readFile(const std::string &path, bool *isBinary)
{
    std::string bytes;
    if (ymFileManager::readRegularFile(path, bytes) != ymFileManager::ReadResult::read)
        return std::nullopt;
    return parse(bytes, isBinary);
}

namespace {

struct FileIdentity {
    dev_t device;
    ino_t inode;
    off_t size;
    struct timespec modified;
    struct timespec changed;
    bool operator==(const FileIdentity &other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

struct CachedFile {
    FileIdentity identity;
    std::shared_ptr<const ymValue> root;
};

constexpr size_t kMaximumCachedFiles = 128;

}  // namespace

std::shared_ptr<const ymValue> readFileShared(const std::string &path)
{
    // Never destroyed: any thread may read while the process exits.
    static auto *lock = new ymMutex();
    static auto *cache = new std::unordered_map<std::string, CachedFile>();
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    FileIdentity identity{status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
    {
        std::lock_guard<ymMutex> guard(*lock);
        auto found = cache->find(path);
        if (found != cache->end() && found->second.identity == identity)
            return found->second.root;
    }
    std::optional<ymValue> parsed = readFile(path);
    if (!parsed)
        return nullptr;
    auto root = std::make_shared<const ymValue>(std::move(*parsed));
    std::lock_guard<ymMutex> guard(*lock);
    if (cache->size() >= kMaximumCachedFiles)
        cache->clear();
    (*cache)[path] = CachedFile{identity, root};
    return root;
}

std::string serialize(const ymValue &value, bool binary)
{
    Node root(nodeOf(value));
    return ymPlistNodes::serialize(root.get(), binary);
}

std::optional<std::string> textOf(const ymValue &value)
{
    char number[64];
    switch (value.type()) {
    case ymValue::Type::text:
        return value.text();
    case ymValue::Type::integer:
        snprintf(number, sizeof number, "%" PRId64, value.integerValue());
        return std::string(number);
    case ymValue::Type::real:
        snprintf(number, sizeof number, "%.17g", value.realValue());
        return std::string(number);
    case ymValue::Type::boolean:
        return std::string(value.booleanValue() ? "1" : "0");
    default:
        return std::nullopt;
    }
}

std::optional<std::string> textForKey(const ymValue *dictionary, const char *key)
{
    if (!dictionary || !key)
        return std::nullopt;
    const ymValue *member = dictionary->find(key);
    return member ? textOf(*member) : std::nullopt;
}

std::optional<std::string> update(const std::string &bytes,
                                  const std::function<std::optional<ymValue>(const ymValue &root)> &change)
{
    Node original = ymPlistNodes::parse(bytes, nullptr);
    if (!original)
        return std::nullopt;
    std::optional<ymValue> changed = change(valueOf(original.get()));
    if (!changed)
        return std::nullopt;
    Node root(merged(original.get(), *changed));
    return ymPlistNodes::serialize(root.get(), false);
}

}  // namespace ymPropertyList
