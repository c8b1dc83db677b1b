// Reading problem files: the whole file into memory (through zlib for names ending in
// ".gz"), then a cursor over its lines with strict number parsing. Every complaint about
// a file is a ReadError whose text is "FILE:LINE: what is wrong".
#pragma once

#include <cstdint>
#include <stdexcept>
#include <memory>
#include <string>
#include <string_view>

// A file that cannot be read or does not follow its format. what() is the full message.
class ReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "name:line: text" as a ReadError; line 0 gives "name: text".
[[noreturn]] void failAt(const std::string& name, long line, const std::string& text);

// The bytes of the file at path, inflated when the name ends in ".gz". Throws ReadError
// when the file cannot be opened or its compressed stream is damaged.
std::string loadFileBytes(const std::string& path);

// Whether c separates fields: blank, tab, carriage return, vertical tab or form feed.
inline bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

// Where a reader's lines come from: text in memory, or (with a path) a file streamed
// from disk a megabyte at a time, inflated on the way when its content is gzip's, so that
// reading needs memory for the problem and not for the file.
struct TextSource {
    std::string name;       // used in messages and kept as the problem's source
    std::string_view text;  // when path is empty
    std::string path;
};

// Lines of a text source. The line ends at '\n'; a trailing '\r' and all trailing blanks
// are cut. Line numbers count from 1. A line stays valid until the next advance.
class LineCursor {
public:
    LineCursor(std::string_view text, std::string name) : next_(text.data()), end_(text.data() + text.size()), name_(std::move(name)) {}
    // Opens the source's file when it has a path; throws ReadError when it cannot.
    explicit LineCursor(const TextSource& source);
    ~LineCursor();
    LineCursor(const LineCursor&) = delete;
    LineCursor& operator=(const LineCursor&) = delete;

    // The bytes of the text, or of the file on disk (compressed when it is): a bound for
    // what a reader may reserve up front.
    std::size_t sizeHint() const { return size_hint_; }

    // Moves to the next line; false at the end of the text.
    bool advance();

    // Moves to the next line that is neither empty nor all blanks nor starts with one of
    // the comment characters; false at the end of the text.
    bool advanceSkipping(std::string_view comment_chars);

    std::string_view line() const { return line_; }
    long lineNumber() const { return number_; }
    const std::string& name() const { return name_; }

    // A ReadError at the current line.
    [[noreturn]] void fail(const std::string& text) const { failAt(name_, number_, text); }

private:
    // Streaming: keeps the unread rest of the buffer and reads more behind it; false when
    // the file has no more.
    bool refill();

    const char* next_;
    const char* end_;
    std::string_view line_;
    long number_ = 0;
    std::string name_;
    std::size_t size_hint_ = static_cast<std::size_t>(end_ - next_);
    void* stream_ = nullptr;  // the zlib stream of a file, or null for text in memory
    std::unique_ptr<char[]> buffer_;  // not zero-filled: every byte used was read
    std::size_t buffer_size_ = 0;
    std::size_t chunk_ = 0;  // the size of the last read
};

// Fields of one line, split on blanks.
class FieldReader {
public:
    FieldReader(std::string_view line, const LineCursor& cursor) : rest_(line), cursor_(cursor) {}

    // The next field, or an empty view when none is left.
    std::string_view next();
    bool atEnd();

    // The next field as a number; failures name what was expected.
    double real(const char* what);
    std::int64_t integer(const char* what);
    // An integer in [low, high].
    std::int32_t index(const char* what, std::int64_t low, std::int64_t high);

    // Fails when anything but blanks is left on the line.
    void finish(const char* what);

private:
    std::string_view rest_;
    const LineCursor& cursor_;
};

// Parses all of text as a finite double in the C locale (a leading '+' allowed). False
// for anything else, NaN and infinities included; values too small for a double give 0.
bool parseReal(std::string_view text, double* value);

// Parses all of text as a decimal integer (a leading '+' allowed).
bool parseInteger(std::string_view text, std::int64_t* value);

// text cut to at most 40 characters, for quoting in a message.
std::string quoted(std::string_view text);
