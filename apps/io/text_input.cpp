#include "io/text_input.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

void failAt(const std::string& name, long line, const std::string& text) {
    if (line > 0) throw ReadError(name + ":" + std::to_string(line) + ": " + text);
    throw ReadError(name + ": " + text);
}

namespace {

bool endsWith(const std::string& text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string loadPlain(const std::string& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    if (!file) failAt(path, 0, std::string("cannot open: ") + std::strerror(errno));
    std::string bytes;
    if (std::fseek(file.get(), 0, SEEK_END) == 0) {
        long size = std::ftell(file.get());
        if (size > 0) bytes.reserve(static_cast<std::size_t>(size));
        std::rewind(file.get());
    }
    char chunk[1 << 16];
    std::size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) bytes.append(chunk, got);
    if (std::ferror(file.get())) failAt(path, 0, std::string("cannot read: ") + std::strerror(errno));
    return bytes;
}

std::string loadCompressed(const std::string& path) {
    gzFile file = gzopen(path.c_str(), "rb");
    if (file == nullptr) failAt(path, 0, std::string("cannot open: ") + std::strerror(errno));
    gzbuffer(file, 1 << 15);
    std::string bytes;
    char chunk[1 << 16];
    for (;;) {
        int got = gzread(file, chunk, sizeof chunk);
        if (got > 0) {
            bytes.append(chunk, static_cast<std::size_t>(got));
            continue;
        }
        int code = Z_OK;
        const char* message = gzerror(file, &code);
        if (got < 0 || (code != Z_OK && code != Z_BUF_ERROR)) {
            std::string text = std::string("damaged compressed data: ") + message;
            gzclose(file);
            failAt(path, 0, text);
        }
        // A stream cut short reads as a clean end with Z_BUF_ERROR pending.
        if (code == Z_BUF_ERROR) {
            gzclose(file);
            failAt(path, 0, "compressed data end early (truncated file)");
        }
        break;
    }
    gzclose(file);
    return bytes;
}

// Compressed by its content, whatever the name says: gzip's two magic bytes open the file.
bool startsLikeGzip(const std::string& path) {
    unsigned char magic[2] = {0, 0};
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    return file && std::fread(magic, 1, 2, file.get()) == 2 && magic[0] == 0x1f && magic[1] == 0x8b;
}

}  // namespace

std::string loadFileBytes(const std::string& path) {
    return endsWith(path, ".gz") || startsLikeGzip(path) ? loadCompressed(path) : loadPlain(path);
}

LineCursor::LineCursor(const TextSource& source) : LineCursor(source.text, source.name) {
    if (source.path.empty()) return;
    struct stat status;
    if (stat(source.path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) failAt(source.path, 0, "is a folder, not a file");
    size_hint_ = stat(source.path.c_str(), &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
    gzFile file = gzopen(source.path.c_str(), "rb");
    if (file == nullptr) failAt(source.path, 0, std::string("cannot open: ") + std::strerror(errno));
    gzbuffer(file, 1 << 15);
    stream_ = file;
    next_ = end_ = nullptr;
}

LineCursor::~LineCursor() {
    if (stream_ != nullptr) gzclose(static_cast<gzFile>(stream_));
}

bool LineCursor::refill() {
    // Reads start at 16 KiB and double up to 1 MiB, so that a small file costs no large
    // buffer. A line longer than the buffer grows it; otherwise it stays at two chunks.
    chunk_ = chunk_ == 0 ? std::size_t{1} << 14 : std::min(2 * chunk_, std::size_t{1} << 20);
    const std::size_t kept = static_cast<std::size_t>(end_ - next_);
    if (buffer_size_ < kept + chunk_) {
        std::unique_ptr<char[]> bigger(new char[kept + chunk_]);
        if (kept > 0) std::memcpy(bigger.get(), next_, kept);
        buffer_ = std::move(bigger);
        buffer_size_ = kept + chunk_;
    } else if (kept > 0) {
        std::memmove(buffer_.get(), next_, kept);
    }
    gzFile file = static_cast<gzFile>(stream_);
    const int got = gzread(file, buffer_.get() + kept, static_cast<unsigned>(buffer_size_ - kept));
    int code = Z_OK;
    const char* message = gzerror(file, &code);
    if (got < 0 || (code != Z_OK && code != Z_BUF_ERROR)) {
        failAt(name_, 0, code == Z_ERRNO ? std::string("cannot read: ") + std::strerror(errno)
                                         : std::string("damaged compressed data: ") + message);
    }
    // A compressed stream cut short reads as a clean end with Z_BUF_ERROR pending.
    if (got == 0 && code == Z_BUF_ERROR) failAt(name_, 0, "compressed data end early (truncated file)");
    next_ = buffer_.get();
    end_ = next_ + kept + static_cast<std::size_t>(got);
    return got > 0;
}

bool LineCursor::advance() {
    const char* stop = next_ < end_ ? static_cast<const char*>(std::memchr(next_, '\n', static_cast<std::size_t>(end_ - next_))) : nullptr;
    while (stop == nullptr && stream_ != nullptr) {
        const std::size_t searched = static_cast<std::size_t>(end_ - next_);
        if (!refill()) break;
        stop = static_cast<const char*>(std::memchr(next_ + searched, '\n', static_cast<std::size_t>(end_ - next_) - searched));
    }
    if (next_ >= end_) return false;
    const char* start = next_;
    if (stop == nullptr) stop = end_;
    next_ = stop < end_ ? stop + 1 : end_;
    while (stop > start && isBlank(stop[-1])) --stop;
    line_ = std::string_view(start, static_cast<std::size_t>(stop - start));
    ++number_;
    return true;
}

bool LineCursor::advanceSkipping(std::string_view comment_chars) {
    while (advance()) {
        std::size_t first = 0;
        while (first < line_.size() && isBlank(line_[first])) ++first;
        if (first == line_.size()) continue;
        if (comment_chars.find(line_[0]) != std::string_view::npos) continue;
        return true;
    }
    return false;
}

std::string_view FieldReader::next() {
    std::size_t start = 0;
    while (start < rest_.size() && isBlank(rest_[start])) ++start;
    std::size_t stop = start;
    while (stop < rest_.size() && !isBlank(rest_[stop])) ++stop;
    std::string_view field = rest_.substr(start, stop - start);
    rest_.remove_prefix(stop);
    return field;
}

bool FieldReader::atEnd() {
    while (!rest_.empty() && isBlank(rest_.front())) rest_.remove_prefix(1);
    return rest_.empty();
}

double FieldReader::real(const char* what) {
    std::string_view field = next();
    if (field.empty()) cursor_.fail(std::string("missing ") + what);
    double value;
    if (!parseReal(field, &value)) cursor_.fail(std::string(what) + " is not a finite number: " + quoted(field));
    return value;
}

std::int64_t FieldReader::integer(const char* what) {
    std::string_view field = next();
    if (field.empty()) cursor_.fail(std::string("missing ") + what);
    std::int64_t value;
    if (!parseInteger(field, &value)) cursor_.fail(std::string(what) + " is not an integer: " + quoted(field));
    return value;
}

std::int32_t FieldReader::index(const char* what, std::int64_t low, std::int64_t high) {
    std::int64_t value = integer(what);
    if (high < low) cursor_.fail(std::string(what) + " " + std::to_string(value) + " refers to nothing: none are declared");
    if (value < low || value > high) {
        cursor_.fail(std::string(what) + " " + std::to_string(value) + " out of range " + std::to_string(low) + ".." +
                     std::to_string(high));
    }
    return static_cast<std::int32_t>(value);
}

void FieldReader::finish(const char* what) {
    if (!atEnd()) cursor_.fail(std::string("unexpected text after ") + what + ": " + quoted(rest_));
}

bool parseReal(std::string_view text, double* value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return false;
    const char* first = text.data();
    const char* last = first + text.size();
    // from_chars does not read a leading '+', and would read "inf" and "nan": refuse
    // letters other than an exponent up front.
    for (const char* c = first; c != last; ++c) {
        char ch = *c;
        if (!((ch >= '0' && ch <= '9') || ch == '.' || ch == '-' || ch == '+' || ch == 'e' || ch == 'E')) return false;
    }
    if (text.front() == '+') return false;
    auto [end, error] = std::from_chars(first, last, *value);
    if (end != last) return false;
    if (error == std::errc::result_out_of_range) {
        // Too large is an error; too small becomes the nearest double (0 or subnormal).
        std::string copy(text);
        errno = 0;
        double parsed = std::strtod(copy.c_str(), nullptr);
        if (!std::isfinite(parsed) || std::fabs(parsed) > 1.0) return false;
        *value = parsed;
        return true;
    }
    return error == std::errc() && std::isfinite(*value);
}

bool parseInteger(std::string_view text, std::int64_t* value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty() || text.front() == '+') return false;
    const char* last = text.data() + text.size();
    auto [end, error] = std::from_chars(text.data(), last, *value);
    return error == std::errc() && end == last;
}

std::string quoted(std::string_view text) {
    std::string out = "'";
    const bool cut = text.size() > 40;
    for (unsigned char c : cut ? text.substr(0, 37) : text) {
        if (c < 0x20 || c >= 0x7f) {  // bytes that would not print, as \xNN
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            out += escape;
        } else {
            out += static_cast<char>(c);
        }
    }
    if (cut) out += "...";
    out += '\'';
    return out;
}
