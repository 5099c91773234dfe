#include "whole_file.h"

#include "../scenario/problem.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace cli {
namespace {

/// Bytes of the well-formed UTF-8 character that `text` begins with; 0 when there is none.
std::size_t characterLength(std::string_view text) {
    const auto at = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned lead = at(0);
    if (lead < 0x80) {
        return lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r' ? 1 : 0;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t index = 1; index < length; ++index) {
        if ((at(index) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (lead == 0xE0 && at(1) < 0xA0) || (lead == 0xF0 && at(1) < 0x90);
    const bool surrogate = lead == 0xED && at(1) >= 0xA0;
    const bool tooHigh = lead == 0xF4 && at(1) >= 0x90;
    return overlong || surrogate || tooHigh ? 0 : length;
}

} // namespace

std::string readWholeFile(const std::string &path, std::uintmax_t most) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    const auto unreadable = [&] {
        return UnusableFile({path, 0}, fmt::format("cannot be read: {}", std::strerror(errno)));
    };
    if (!file) {
        throw unreadable();
    }
    std::string bytes;
    std::array<char, 65536> piece;
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get())) {
        bytes.append(piece.data(), count);
        if (bytes.size() > most) {
            throw UnusableFile({path, 0}, fmt::format("is larger than {} MiB", most >> 20));
        }
    }
    if (std::ferror(file.get()) != 0) {
        throw unreadable();
    }
    return bytes;
}

std::optional<std::size_t> firstOddByte(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = characterLength(text.substr(at));
        if (length == 0) {
            return at;
        }
        at += length;
    }
    return std::nullopt;
}

} // namespace cli
