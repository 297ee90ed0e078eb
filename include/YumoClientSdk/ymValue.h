/// @file
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ymBase.h"

/// ymValue: a value as the SDK's property lists and registrations hold it: nothing (null), a
/// Boolean, a whole number, a real number, a text, a list or a dictionary.
///
/// It stands where the meeting client's own SDK takes or answers "an object": the USB identifiers
/// given at registration (a number or a text, stored as given) and the values read from a
/// property list. A value is immutable and cheap to copy. Any thread may use it.
///
/// sdk->RegisterAudioDevice("Headset", "1", 2830, "0x3");   // a number and a text
/// std::optional<ymValue> version = helper->objectForPropertyListKey(key, path);
/// if (version && version->isText()) puts(version->text().c_str());
class YM_EXPORT ymValue {
public:
    /// What a value holds.
    enum class Type { null, boolean, integer, real, text, array, dictionary };
    /// The members of a dictionary, in the order they were stored.
    using Members = std::vector<std::pair<std::string, ymValue>>;

    /// Null.
    ymValue();
    /// Null.
    ymValue(std::nullptr_t);
    /// A Boolean.
    ymValue(bool value);
    /// A whole number.
    ymValue(int value);
    /// A whole number.
    ymValue(unsigned value);
    /// A whole number.
    ymValue(long value);
    /// A whole number.
    ymValue(unsigned long value);
    /// A whole number.
    ymValue(long long value);
    /// A whole number (values above the largest signed 64-bit number wrap, as they are stored).
    ymValue(unsigned long long value);
    /// A real number.
    ymValue(double value);
    /// A text (UTF-8); a null pointer makes null.
    ymValue(const char *text);
    /// A text (UTF-8).
    ymValue(std::string text);
    /// A list of values.
    static ymValue array(std::vector<ymValue> elements);
    /// A dictionary: texts to values, in the given order.
    static ymValue dictionary(Members members);

    /// What the value holds.
    Type type() const;
    /// YES when the value is null.
    bool isNull() const;
    /// YES when the value is a text.
    bool isText() const;
    /// YES when the value is a number (whole or real).
    bool isNumber() const;
    /// The Boolean; false unless the value is a Boolean.
    bool booleanValue() const;
    /// The whole number (a real number cut towards zero, a Boolean as 1 or 0); 0 otherwise.
    int64_t integerValue() const;
    /// The real number (a whole number converted); 0.0 otherwise.
    double realValue() const;
    /// The text; the empty text unless the value is a text.
    const std::string &text() const;
    /// The elements of a list; none unless the value is a list.
    const std::vector<ymValue> &elements() const;
    /// The members of a dictionary; none unless the value is a dictionary.
    const Members &members() const;
    /// The value of a dictionary's member; nullptr when there is no such member (or the value is
    /// no dictionary).
    const ymValue *find(const std::string &key) const;

    /// Equal type and contents (1 and 1.0 are not equal: one is whole, one real).
    bool operator==(const ymValue &other) const;
    /// Not equal.
    bool operator!=(const ymValue &other) const { return !(*this == other); }

    /// What a value holds, inside the SDK.
    struct YM_HIDDEN Storage;

private:
    YM_HIDDEN explicit ymValue(std::shared_ptr<const Storage> storage);
    std::shared_ptr<const Storage> _storage;
};
