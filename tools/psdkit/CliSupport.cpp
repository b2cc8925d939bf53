#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Cli.hpp"

namespace psdkit::cli {

namespace {

bool contains(const std::vector<std::string>& list, const std::string& item)
{
    return std::find(list.begin(), list.end(), item) != list.end();
}

std::string systemMessage(int error)
{
    return std::strerror(error);
}

} // namespace

Arguments::Arguments(std::span<const std::string> args, std::vector<std::string> valueOptions,
                     std::vector<std::string> flagOptions)
{
    bool optionsEnded = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 3 || arg.compare(0, 2, "--") != 0) {
            if (arg == "--") {
                optionsEnded = true;
                continue;
            }
            positional_.push_back(arg);
            continue;
        }
        std::string name = arg.substr(2);
        std::optional<std::string> inlineValue;
        if (const auto eq = name.find('='); eq != std::string::npos) {
            inlineValue = name.substr(eq + 1);
            name.resize(eq);
        }
        if (contains(flagOptions, name)) {
            if (inlineValue) {
                throw UsageError("option --" + name + " takes no value");
            }
            flags_.push_back(name);
        } else if (contains(valueOptions, name)) {
            if (!inlineValue) {
                if (i + 1 >= args.size()) {
                    throw UsageError("option --" + name + " needs a value");
                }
                inlineValue = args[++i];
            }
            values_.emplace_back(name, *inlineValue);
        } else {
            throw UsageError("unknown option --" + name);
        }
    }
}

bool Arguments::flag(const std::string& name) const
{
    return contains(flags_, name);
}

std::optional<std::string> Arguments::value(const std::string& name) const
{
    std::optional<std::string> found;
    for (const auto& [key, value] : values_) {
        if (key == name) {
            found = value; // the last one wins
        }
    }
    return found;
}

void Arguments::expectPositional(std::size_t min, std::size_t max) const
{
    if (positional_.size() < min) {
        throw UsageError("missing arguments");
    }
    if (positional_.size() > max) {
        throw UsageError("unexpected argument '" + positional_[max] + "'");
    }
}

std::optional<std::int64_t> parseInteger(const std::string& text, std::int64_t min, std::int64_t max)
{
    std::int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end || value < min || value > max) {
        return std::nullopt;
    }
    return value;
}

unsigned threadCountOption(const Arguments& arguments)
{
    const auto text = arguments.value("threads");
    if (!text) {
        return 0;
    }
    const auto count = parseInteger(*text, 1, 1024);
    if (!count) {
        throw UsageError("--threads takes a whole number from 1 to 1024");
    }
    return static_cast<unsigned>(*count);
}

std::vector<std::uint8_t> readFile(const std::filesystem::path& path)
{
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        throw IoError("is a directory");
    }
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        throw IoError(systemMessage(errno));
    }
    std::vector<std::uint8_t> bytes;
    std::uint8_t chunk[1 << 16];
    std::size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        throw IoError("read error");
    }
    return bytes;
}

namespace {

/// A file's bytes, and whether they are a read-only mapping of it (rather than a copy in memory).
struct FileContents {
    PSDSharedBytes bytes;
    bool mapped = false;
};

FileContents mapOrRead(const std::filesystem::path& path)
{
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        throw IoError("is a directory");
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw IoError(systemMessage(errno));
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size == 0) {
        ::close(fd);
        return {PSDSharedBytes(readFile(path))}; // not a plain file, or nothing to map
    }
    const auto size = static_cast<std::size_t>(info.st_size);
    void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    ::close(fd);
    if (mapped == MAP_FAILED) {
        return {PSDSharedBytes(readFile(path))};
    }
    std::shared_ptr<const void> mapping(mapped,
                                        [size](const void* p) { ::munmap(const_cast<void*>(p), size); });
    return {PSDSharedBytes(std::move(mapping), {static_cast<const std::uint8_t*>(mapped), size}), true};
}

} // namespace

PSDSharedBytes mapFile(const std::filesystem::path& path)
{
    return mapOrRead(path).bytes;
}

PSDWrapper readDocument(const std::filesystem::path& path, const PSDReadOptions& options)
{
    const FileContents file = mapOrRead(path);
    PSDWrapper document(file.bytes, options);
    if (file.mapped && options.imageDecoding == PSDImageDecoding::eager) {
        // Every image is decoded: what is left of the file (kept blocks, the composite's planes) is
        // read rarely, so its pages leave this process's memory. They stay in the file cache and
        // come back on access; a read-only private mapping of a file loses nothing by this.
        const auto bytes = file.bytes.span();
        (void)::madvise(const_cast<std::uint8_t*>(bytes.data()), bytes.size(), MADV_DONTNEED);
    }
    return document;
}

void writeFileAtomically(const std::filesystem::path& path,
                         const std::function<void(PSDOutputSink&)>& produce)
{
    const std::filesystem::path temporary =
        path.parent_path() /
        ("." + path.filename().string() + ".psdkit-" + std::to_string(::getpid()) + ".tmp");
    const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) {
        throw IoError(systemMessage(errno));
    }
    std::error_code ec;
    try {
        PSDFileDescriptorOutputSink sink(file);
        produce(sink);
    } catch (...) {
        ::close(file);
        std::filesystem::remove(temporary, ec);
        try {
            throw;
        } catch (const std::system_error& error) {
            // The sink's failures (a full disk, an I/O error) are the tool's own kind of failure.
            throw IoError(systemMessage(error.code().value()));
        }
    }
    if (::close(file) != 0) {
        const int closeError = errno;
        std::filesystem::remove(temporary, ec);
        throw IoError(systemMessage(closeError));
    }
    std::filesystem::rename(temporary, path, ec);
    if (ec) {
        const std::string reason = ec.message();
        std::filesystem::remove(temporary, ec);
        throw IoError("cannot replace the file: " + reason);
    }
}

void writeFileAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes)
{
    writeFileAtomically(path, [&](PSDOutputSink& sink) { sink.write(bytes); });
}

std::string printable(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == 0) {
            out += "\\0";
        } else if (c < 0x20 || c == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        } else if (c == '\\') {
            out += "\\\\";
        } else if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            // Copy a well-formed UTF-8 sequence whole; escape a stray byte.
            const std::size_t length = c >= 0xF0 && c < 0xF5   ? 4
                                       : c >= 0xE0             ? 3
                                       : c >= 0xC2 && c < 0xE0 ? 2
                                                               : 0;
            bool wellFormed = length > 0 && i + length <= text.size();
            for (std::size_t k = 1; wellFormed && k < length; ++k) {
                wellFormed = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
            }
            if (wellFormed) {
                out.append(text, i, length);
                i += length - 1;
            } else {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
                out += escaped;
            }
        }
    }
    return out;
}

} // namespace psdkit::cli
