#include "foundation/ymLog.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace ymlog {

PreparedLine prepare(const char *fileName, int line, const char *format, ...)
{
    PreparedLine prepared;
    prepared.text = std::string(fileName) + "(" + std::to_string(line) + ") ";
    size_t head = prepared.text.size();
    va_list arguments;
    va_start(arguments, format);
    va_list copy;
    va_copy(copy, arguments);
    int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length > 0) {
        prepared.text.resize(head + static_cast<size_t>(length) + 1);
        vsnprintf(prepared.text.data() + head, static_cast<size_t>(length) + 1, format, arguments);
        prepared.text.resize(head + static_cast<size_t>(length));
    }
    va_end(arguments);
    return prepared;
}

}  // namespace ymlog
