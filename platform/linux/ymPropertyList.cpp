#include "platform/ymPropertyList.h"

#include "platform/ymFileManager.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <sys/stat.h>
#include <unordered_map>

namespace ymPropertyList {

namespace {

uint64_t bigEndian(const unsigned char *bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

// libplist aborts (an assertion) when it is asked for a key or text that holds a zero byte, so
// such lists are refused before they are parsed. In XML that is a raw zero byte or a character
// reference to 0; in the binary form, a string object with a zero character. Anything else
// malformed is left to the parser.
bool holdsZeroInText(const std::string &bytes, bool binary)
{
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    const size_t size = bytes.size();
    if (!binary) {
        if (bytes.find('\0') != std::string::npos)
            return true;
        for (size_t at = bytes.find("&#"); at != std::string::npos; at = bytes.find("&#", at + 2)) {
            size_t i = at + 2;
            bool hex = i < size && (bytes[i] == 'x' || bytes[i] == 'X');
            if (hex)
                ++i;
            size_t digits = i;
            while (i < size && bytes[i] == '0')
                ++i;
            if (i > digits && i < size && bytes[i] == ';')
                return true;
        }
        return false;
    }
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

Node readFile(const std::string &path, bool *isBinary)
{
    std::string bytes;
    if (ymFileManager::readRegularFile(path, bytes) != ymFileManager::ReadResult::read)
        return nullptr;
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
    SharedNode root;
};

constexpr size_t kMaximumCachedFiles = 128;

}  // namespace

SharedNode readFileShared(const std::string &path)
{
    static std::mutex lock;
    static auto *cache = new std::unordered_map<std::string, CachedFile>();
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    FileIdentity identity{status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
    {
        std::lock_guard<std::mutex> guard(lock);
        auto found = cache->find(path);
        if (found != cache->end() && found->second.identity == identity)
            return found->second.root;
    }
    Node parsed = readFile(path);
    if (!parsed)
        return nullptr;
    SharedNode root(parsed.release(), NodeFree());
    std::lock_guard<std::mutex> guard(lock);
    if (cache->size() >= kMaximumCachedFiles)
        cache->clear();
    (*cache)[path] = CachedFile{identity, root};
    return root;
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

std::optional<std::string> textOf(plist_t node)
{
    if (!node)
        return std::nullopt;
    char number[64];
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        // Read with its length: libplist's copying getter aborts on a zero byte inside the text.
        uint64_t length = 0;
        const char *value = plist_get_string_ptr(node, &length);
        if (!value)
            return std::nullopt;
        return std::string(value, static_cast<size_t>(length));
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        snprintf(number, sizeof number, "%" PRIu64, value);
        return std::string(number);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        snprintf(number, sizeof number, "%.17g", value);
        return std::string(number);
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return std::string(value ? "1" : "0");
    }
    default:
        return std::nullopt;
    }
}

std::optional<std::string> textForKey(plist_t dictionary, const char *key)
{
    if (!dictionary || plist_get_node_type(dictionary) != PLIST_DICT)
        return std::nullopt;
    return textOf(plist_dict_get_item(dictionary, key));
}

void forEachItem(plist_t dictionary, const std::function<void(const char *key, plist_t value)> &visit)
{
    if (!dictionary || plist_get_node_type(dictionary) != PLIST_DICT)
        return;
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

nlohmann::json toJSON(plist_t node)
{
    if (!node)
        return nullptr;
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        nlohmann::json object = nlohmann::json::object();
        forEachItem(node, [&object](const char *key, plist_t value) { object[key] = toJSON(value); });
        return object;
    }
    case PLIST_ARRAY: {
        nlohmann::json array = nlohmann::json::array();
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
            array.push_back(toJSON(plist_array_get_item(node, i)));
        return array;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return static_cast<int64_t>(value);  // the binary form stores signed integers this way
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    case PLIST_DATE: {
        int32_t seconds = 0, microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return seconds + microseconds / 1e6;
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        std::string text(bytes ? bytes : "", bytes ? length : 0);
        free(bytes);
        return text;
    }
    default:
        return textOf(node).value_or("");
    }
}

}  // namespace ymPropertyList
