#include "MessageStream.h"

#include <nlohmann/json.hpp>

namespace {

const std::string_view kMessageStart = "{\"commandId\"";

// Appends the top-level objects of text[from..] that close; answers where an object begins that
// does not close by the end of the text (npos when every one does).
size_t takeClosedObjects(std::string_view text, size_t from, std::vector<std::string> &messages)
{
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    size_t start = 0;
    for (size_t i = from; i < text.size(); ++i) {
        char c = text[i];
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"' && depth > 0) {
            inString = true;
        } else if (c == '{') {
            if (depth++ == 0)
                start = i;
        } else if (c == '}' && depth > 0) {
            if (--depth == 0)
                messages.emplace_back(text.substr(start, i - start + 1));
        }
    }
    return depth > 0 ? start : std::string_view::npos;
}

// Where JSON text goes wrong: the offset of the first character that no JSON text can have
// there; npos when the text is only cut short (more of it could still make it whole).
size_t firstErrorIn(std::string_view text)
{
    try {
        nlohmann::json parsed = nlohmann::json::parse(text);
        (void)parsed;
    } catch (const nlohmann::json::parse_error &error) {
        if (error.byte <= text.size())
            return error.byte - 1;
    }
    return std::string_view::npos;
}

}  // namespace

std::vector<std::string> splitMessages(std::string_view text, std::string *rest)
{
    std::vector<std::string> messages;
    size_t from = 0;
    for (;;) {
        size_t unclosed = takeClosedObjects(text, from, messages);
        if (unclosed == std::string_view::npos) {
            if (rest)
                rest->clear();
            return messages;
        }
        // An object that is only cut short waits for the rest of it. One that goes wrong (a peer
        // sent something that is not JSON) is passed over, and reading goes on from the next
        // message that begins before the place it went wrong (the SDK's messages begin with
        // {"commandId"), or else from that place: one bad message costs no good one after it,
        // even when both came in one read.
        size_t error = firstErrorIn(text.substr(unclosed));
        if (error == std::string_view::npos) {
            if (rest)
                rest->assign(text.substr(unclosed));
            return messages;
        }
        size_t next = text.find(kMessageStart, unclosed + 1);
        from = next < unclosed + error ? next : unclosed + error;
    }
}
