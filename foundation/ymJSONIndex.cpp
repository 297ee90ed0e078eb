#include "foundation/ymJSONIndex.h"

#include "foundation/ymTextRules.h"

namespace {

// One pass over a text; every scan answers false when what it meets is not plain JSON.
class Scanner {
public:
    explicit Scanner(std::string_view text) : _text(text) {}

    void skipBlanks()
    {
        while (_at < _text.size() && ymText::isJSONBlank(_text[_at]))
            ++_at;
    }
    bool atEnd() const { return _at == _text.size(); }
    bool take(char c)
    {
        if (_at < _text.size() && _text[_at] == c) {
            ++_at;
            return true;
        }
        return false;
    }

    // A string, its opening quote next; `content` is what lies between the quotes.
    bool string(std::string_view &content)
    {
        if (!take('"'))
            return false;
        size_t start = _at;
        bool wide = false;
        for (; _at < _text.size(); ++_at) {
            _at += ymText::plainJSONStringBytes(_text, _at);
            if (_at == _text.size())
                break;
            unsigned char c = static_cast<unsigned char>(_text[_at]);
            if (c == '"')
                break;
            if (c < 0x20 || c == '\\')
                return false;  // not JSON, or an escape: the full parser's
            wide = wide || c >= 0x80;
        }
        if (_at == _text.size())
            return false;
        content = _text.substr(start, _at - start);
        ++_at;
        return !wide || ymText::isValidUtf8(content);
    }

    bool number()
    {
        take('-');
        if (take('0')) {
        } else if (_at < _text.size() && ymText::isDigit(_text[_at])) {
            while (_at < _text.size() && ymText::isDigit(_text[_at]))
                ++_at;
        } else {
            return false;
        }
        if (take('.') && !digits())
            return false;
        if (take('e') || take('E')) {
            if (!take('+'))
                take('-');
            if (!digits())
                return false;
        }
        return true;
    }

    bool literal(std::string_view word)
    {
        if (_text.substr(_at, word.size()) != word)
            return false;
        _at += word.size();
        return true;
    }

    // Any value; `member` (when given) gets its kind and text.
    bool value(int depth, ymJSONIndex::Member *member)
    {
        if (_at >= _text.size())
            return false;
        size_t start = _at;
        ymJSONIndex::Kind kind;
        std::string_view content;
        switch (_text[_at]) {
        case '"':
            if (!string(content))
                return false;
            if (member) {
                member->kind = ymJSONIndex::Kind::string;
                member->value = content;
            }
            return true;
        case '{':
        case '[':
            kind = _text[_at] == '{' ? ymJSONIndex::Kind::object : ymJSONIndex::Kind::array;
            if (!container(depth + 1, _text[_at], nullptr, nullptr))
                return false;
            break;
        case 't':
        case 'f':
        case 'n': {
            const char first = _text[_at];
            kind = first == 't' ? ymJSONIndex::Kind::literalTrue : first == 'f' ? ymJSONIndex::Kind::literalFalse : ymJSONIndex::Kind::null;
            if (!literal(first == 't' ? "true" : first == 'f' ? "false" : "null"))
                return false;
            break;
        }
        default:
            // Only integers a parser keeps as such: a real may lie beyond what a double holds,
            // which a parser refuses.
            kind = ymJSONIndex::Kind::number;
            if (!number() || !ymJSONIntegerBits(_text.substr(start, _at - start)))
                return false;
        }
        if (member) {
            member->kind = kind;
            member->value = _text.substr(start, _at - start);
        }
        return true;
    }

    // An object or an array, its "{" or "[" next. With `items`, its members or elements are kept
    // there (`count` of them; an element's key empty).
    bool container(int depth, char open, ymJSONIndex::Member *items, size_t *count)
    {
        const bool isObject = open == '{';
        const char close = isObject ? '}' : ']';
        if (depth > ymJSONIndex::kMaximumDepth || !take(open))
            return false;
        skipBlanks();
        if (take(close))
            return true;
        for (;;) {
            std::string_view key;
            if (isObject) {
                if (!string(key))
                    return false;
                skipBlanks();
                if (!take(':'))
                    return false;
                skipBlanks();
            }
            ymJSONIndex::Member *item = nullptr;
            if (items) {
                if (*count == ymJSONIndex::kMaximumMembers)
                    return false;
                for (size_t i = 0; isObject && i < *count; ++i)
                    if (items[i].key == key)
                        return false;  // which of the two counts is the full parser's choice
                item = &items[(*count)++];
                item->key = key;
            }
            if (!value(depth, item))
                return false;
            skipBlanks();
            if (take(close))
                return true;
            if (!take(','))
                return false;
            skipBlanks();
        }
    }

private:
    bool digits()
    {
        size_t start = _at;
        while (_at < _text.size() && ymText::isDigit(_text[_at]))
            ++_at;
        return _at > start;
    }

    std::string_view _text;
    size_t _at = 0;
};

}  // namespace

std::optional<ymJSONIndex> ymJSONIndex::of(std::string_view text, Kind kind)
{
    ymJSONIndex index;
    Scanner scanner(text);
    scanner.skipBlanks();
    bool scanned = scanner.container(1, kind == Kind::object ? '{' : '[', index._members.data(), &index._count);
    scanner.skipBlanks();
    if (!scanned || !scanner.atEnd())
        return std::nullopt;
    return index;
}

const ymJSONIndex::Member *ymJSONIndex::find(std::string_view key) const
{
    for (const Member &member : *this)
        if (member.key == key)
            return &member;
    return nullptr;
}

std::optional<int64_t> ymJSONIntegerBits(std::string_view number)
{
    bool negative = !number.empty() && number[0] == '-';
    std::string_view digits = number.substr(negative ? 1 : 0);
    if (digits.empty())
        return std::nullopt;
    uint64_t magnitude = 0;
    for (char c : digits) {
        if (!ymText::isDigit(c))
            return std::nullopt;  // a fraction or an exponent: a real
        uint64_t digit = static_cast<uint64_t>(c - '0');
        if (magnitude > (UINT64_MAX - digit) / 10)
            return std::nullopt;  // past the unsigned range: a real
        magnitude = magnitude * 10 + digit;
    }
    if (negative) {
        if (magnitude > (uint64_t{1} << 63))
            return std::nullopt;  // past the signed range: a real
        return static_cast<int64_t>(0 - magnitude);
    }
    return static_cast<int64_t>(magnitude);  // an unsigned value past the signed range keeps its bits
}
