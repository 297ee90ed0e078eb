// A reading of a JSON object's text without building its values: its members' keys and where
// their values lie, found in one strict pass. Only plain texts are indexed (no escape in any
// string, no number but an integer of 64 bits, signed or not, no key given twice, at most
// kMaximumMembers members, nesting no deeper than kMaximumDepth); anything else, JSON or not, is
// left to a full parser. A text indexed is JSON:
// the pass accepts nothing RFC 8259 refuses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

class ymJSONIndex {
public:
    static constexpr size_t kMaximumMembers = 16;
    static constexpr int kMaximumDepth = 32;

    enum class Kind : uint8_t { string, number, object, array, literalTrue, literalFalse, null };

    struct Member {
        std::string_view key;    // as written between its quotes
        std::string_view value;  // the value's text; a string's without its quotes
        Kind kind = Kind::null;
    };

    // Indexes `text`, a JSON object with blanks around it allowed; nothing when it is not plainly
    // one (see above).
    static std::optional<ymJSONIndex> ofObject(std::string_view text) { return of(text, Kind::object); }

    // The elements of an array's text (a member's value of kind array), each indexed as a
    // member with an empty key, in order; nothing past kMaximumMembers elements.
    static std::optional<ymJSONIndex> ofArray(std::string_view text) { return of(text, Kind::array); }

    // The member with this key, or null.
    const Member *find(std::string_view key) const;

    const Member *begin() const { return _members.data(); }
    const Member *end() const { return _members.data() + _count; }

private:
    static std::optional<ymJSONIndex> of(std::string_view text, Kind kind);

    std::array<Member, kMaximumMembers> _members{};
    size_t _count = 0;
};

// What a number's text holds as the 64 bits of an integer, the way a JSON parser keeping integers
// as signed or unsigned 64-bit values would cast it to int64_t; nothing when the number has a
// fraction or an exponent, or lies outside both ranges (such a parser keeps it as a real).
std::optional<int64_t> ymJSONIntegerBits(std::string_view number);
