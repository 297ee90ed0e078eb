#include "MessageStream.h"

std::vector<std::string> splitMessages(std::string_view text, std::string *rest)
{
    std::vector<std::string> messages;
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
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
    if (rest)
        rest->assign(depth > 0 ? text.substr(start) : std::string_view());
    return messages;
}
