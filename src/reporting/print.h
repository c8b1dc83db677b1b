// Console print routines: every message of the solver goes out through these three.
//
// Ordinary output is printTo(stream_override, output_stream, ...); errors and warnings
// are printTo(stream_override, stderr, ...). With stream_override 0, as always under the
// host link, both are formatted into a local buffer and printed on standard output in
// the order of the calls. Nothing here flushes, and nothing tests verbose: the callers
// decide what to print.
#pragma once

#include <cstdio>

namespace korvex {

#if defined(__GNUC__)
#define KORVEX_PRINTF_FORMAT(format_index, first_arg) __attribute__((format(printf, format_index, first_arg)))
#else
#define KORVEX_PRINTF_FORMAT(format_index, first_arg)
#endif

// Size of the buffer of the buffered path; a longer text is cut to one byte less.
constexpr int kPrintBufferSize = 4096;

// Formats straight to standard output, with no buffer of its own.
void printPlain(const char* format, ...) KORVEX_PRINTF_FORMAT(1, 2);

// stream_override non-zero: formats straight to stream. Otherwise formats into a local
// buffer of kPrintBufferSize bytes, cut at kPrintBufferSize - 1 characters and always
// zero-terminated, and prints it with printPlain("%s"); stream is not used on that path.
void printTo(int stream_override, std::FILE* stream, const char* format, ...) KORVEX_PRINTF_FORMAT(3, 4);

// Formats into buffer, which the caller has sized; returns the characters written or -1.
int formatInto(char* buffer, const char* format, ...) KORVEX_PRINTF_FORMAT(2, 3);

}  // namespace korvex
