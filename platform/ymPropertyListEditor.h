// A property-list file opened for editing by entry, as the PlistBuddy tool edits it: entries are
// keys separated by ":" (an array element named by its index), what is set keeps its type, and the
// file is written back in the form it was read in (XML or binary), with every other entry exactly
// as it was.
//
// Each operation answers nothing when it succeeded, or the message the tool prints when it did not
// ("Entry, ":Key", Does Not Exist", ...).
#pragma once

#include <memory>
#include <optional>
#include <string>

class ymPropertyListEditor {
public:
    // Reads the file; null when it is missing, unreadable or not a property list.
    static std::unique_ptr<ymPropertyListEditor> open(const std::string &path);
    ~ymPropertyListEditor();

    // The entry as the tool prints it, with a line break at the end: the whole list for an empty
    // entry. `failure` receives the message when there is no such entry.
    std::string print(const std::string &entry, std::optional<std::string> &failure) const;

    // Sets an existing entry to the value, read as the entry's type.
    std::optional<std::string> set(const std::string &entry, const std::string &value);

    // Adds an entry of a type (string, integer, real, bool, date, data, array or dict) holding the
    // value: a member of a dictionary, or an element appended to an array.
    std::optional<std::string> add(const std::string &entry, const std::string &type, const std::string &value);

    // Removes an entry.
    std::optional<std::string> remove(const std::string &entry);

    // Writes the list back to its file, in the form it was read in; false when it cannot.
    bool save() const;

    ymPropertyListEditor(const ymPropertyListEditor &) = delete;
    ymPropertyListEditor &operator=(const ymPropertyListEditor &) = delete;

private:
    struct State;
    explicit ymPropertyListEditor(std::unique_ptr<State> state);
    std::unique_ptr<State> _state;
};
