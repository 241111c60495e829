#include "platform/text_format.h"

#include <cstdio>

std::string vformat(const char* format, va_list args)
{
    char buffer[1024];
    va_list again;
    va_copy(again, args);
    int n = vsnprintf(buffer, sizeof buffer, format, args);
    std::string text;
    if (n < 0) {
        text.clear();
    } else if (static_cast<size_t>(n) < sizeof buffer) {
        text.assign(buffer, static_cast<size_t>(n));
    } else {
        text.resize(static_cast<size_t>(n) + 1);
        vsnprintf(text.data(), text.size(), format, again);
        text.resize(static_cast<size_t>(n));
    }
    va_end(again);
    return text;
}

std::string format(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    return text;
}
