#include "reporting/print.h"

#include <cstdarg>

namespace korvex {

void printPlain(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
}

void printTo(int stream_override, std::FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    if (stream_override != 0) {
        std::vfprintf(stream, format, args);
    } else {
        char buffer[kPrintBufferSize];
        std::vsnprintf(buffer, sizeof buffer, format, args);  // cuts and zero-terminates
        printPlain("%s", buffer);
    }
    va_end(args);
}

int formatInto(char* buffer, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int written = std::vsprintf(buffer, format, args);
    va_end(args);
    return written < 0 ? -1 : written;
}

}  // namespace korvex
