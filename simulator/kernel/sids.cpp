// Security identifiers.

#include "sids.h"

#include "kernel.h"
#include "thread.h"
#include "violation.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace sim {

namespace {

struct Alias {
    std::string_view letters;
    std::string_view sid;
};

/// learn.microsoft.com: "SID Strings".
constexpr std::array<Alias, 22> aliases{
    {{"WD", "S-1-1-0"},      {"CO", "S-1-3-0"},           {"CG", "S-1-3-1"},      {"OW", "S-1-3-4"},
     {"NU", "S-1-5-2"},      {"IU", "S-1-5-4"},           {"SU", "S-1-5-6"},      {"AN", "S-1-5-7"},
     {"PS", "S-1-5-10"},     {"AU", "S-1-5-11"},          {"RC", "S-1-5-12"},     {"SY", "S-1-5-18"},
     {"LS", "S-1-5-19"},     {"NS", "S-1-5-20"},          {"BA", "S-1-5-32-544"}, {"BU", "S-1-5-32-545"},
     {"BG", "S-1-5-32-546"}, {"PU", "S-1-5-32-547"},      {"BO", "S-1-5-32-551"}, {"AC", "S-1-15-2-1"},
     {"WR", "S-1-5-33"},     {"UD", "S-1-5-84-0-0-0-0-0"}}};

constexpr std::size_t sidHeaderBytes = 8;

/// Takes a number off the front of the text.
std::optional<std::uint64_t> takeNumber(std::string_view &text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{}) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

} // namespace

std::optional<SidBytes> sidFromText(std::string_view text) {
    if (!text.starts_with("S-1-")) {
        return std::nullopt;
    }
    text.remove_prefix(4);
    const auto authority = takeNumber(text);
    if (!authority || *authority >> 48 != 0) {
        return std::nullopt;
    }
    SidBytes bytes{SID_REVISION, 0};
    for (int shift = 40; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(*authority >> shift));
    }
    while (text.starts_with('-')) {
        text.remove_prefix(1);
        const auto part = takeNumber(text);
        if (!part || *part > MAXULONG || bytes[1] == SID_MAX_SUB_AUTHORITIES) {
            return std::nullopt;
        }
        ++bytes[1];
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<std::uint8_t>(*part >> shift));
        }
    }
    return text.empty() ? std::optional(bytes) : std::nullopt;
}

std::string sidText(const SID *sid) {
    std::uint64_t authority = 0;
    for (const UCHAR byte : sid->IdentifierAuthority.Value) {
        authority = authority << 8 | byte;
    }
    std::string text = "S-" + std::to_string(sid->Revision) + "-" + std::to_string(authority);
    const auto *parts = reinterpret_cast<const std::uint8_t *>(sid) + sidHeaderBytes;
    for (unsigned index = 0; index < sid->SubAuthorityCount; ++index) {
        std::uint32_t part = 0;
        std::memcpy(&part, parts + index * sizeof part, sizeof part);
        text += "-" + std::to_string(part);
    }
    return text;
}

std::size_t sidBytes(const SID *sid) {
    return sidHeaderBytes + sid->SubAuthorityCount * sizeof(ULONG);
}

std::string_view sidAlias(std::string_view sid) {
    const auto found = std::find_if(aliases.begin(), aliases.end(), [sid](const Alias &a) { return a.sid == sid; });
    return found == aliases.end() ? std::string_view{} : found->letters;
}

std::string_view sidOfAlias(std::string_view letters) {
    const auto found =
        std::find_if(aliases.begin(), aliases.end(), [letters](const Alias &a) { return a.letters == letters; });
    return found == aliases.end() ? std::string_view{} : found->sid;
}

namespace {

/// The well-known SIDs of the running system, made once.
PSE_EXPORTS makeExports() {
    static SE_EXPORTS exports{};
    const auto make = [](std::string_view text) -> PSID {
        static std::vector<SidBytes> storage = [] {
            std::vector<SidBytes> empty;
            empty.reserve(32);
            return empty;
        }();
        return storage.emplace_back(sidFromText(text).value()).data();
    };
    exports.SeNullSid = make("S-1-0-0");
    exports.SeWorldSid = make("S-1-1-0");
    exports.SeLocalSid = make("S-1-2-0");
    exports.SeCreatorOwnerSid = make("S-1-3-0");
    exports.SeCreatorGroupSid = make("S-1-3-1");
    exports.SeNtAuthoritySid = make("S-1-5");
    exports.SeDialupSid = make("S-1-5-1");
    exports.SeNetworkSid = make("S-1-5-2");
    exports.SeBatchSid = make("S-1-5-3");
    exports.SeInteractiveSid = make("S-1-5-4");
    exports.SeLocalSystemSid = make("S-1-5-18");
    exports.SeAliasAdminsSid = make("S-1-5-32-544");
    exports.SeAliasUsersSid = make("S-1-5-32-545");
    exports.SeAliasGuestsSid = make("S-1-5-32-546");
    exports.SeAliasPowerUsersSid = make("S-1-5-32-547");
    exports.SeAliasAccountOpsSid = make("S-1-5-32-548");
    exports.SeAliasSystemOpsSid = make("S-1-5-32-549");
    exports.SeAliasPrintOpsSid = make("S-1-5-32-550");
    exports.SeAliasBackupOpsSid = make("S-1-5-32-551");
    exports.SeAuthenticatedUsersSid = make("S-1-5-11");
    return &exports;
}

} // namespace

} // namespace sim

using namespace sim;

// learn.microsoft.com: SE_EXPORTS
extern "C" PSE_EXPORTS SeExports = makeExports();

// learn.microsoft.com: RtlLengthSid
extern "C" ULONG RtlLengthSid(PSID sid) {
    requireIrqlAtMost(APC_LEVEL, "RtlLengthSid", SIM_CALL_SITE);
    return static_cast<ULONG>(sidBytes(static_cast<const SID *>(sid)));
}

// learn.microsoft.com: RtlCopySid
extern "C" NTSTATUS RtlCopySid(ULONG destinationBytes, PSID destination, PSID source) {
    requireIrqlAtMost(APC_LEVEL, "RtlCopySid", SIM_CALL_SITE);
    const std::size_t bytes = sidBytes(static_cast<const SID *>(source));
    if (destinationBytes < bytes) {
        return STATUS_BUFFER_TOO_SMALL;
    }
    kernel().pool.checkAccess(destination, bytes, "RtlCopySid", SIM_CALL_SITE);
    std::memcpy(destination, source, bytes);
    return STATUS_SUCCESS;
}
