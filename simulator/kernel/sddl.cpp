// Security descriptors as text. learn.microsoft.com: "Security Descriptor String Format".

#include "descriptor_parts.h"
#include "security.h"
#include "sids.h"
#include "violation.h"

#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace sim {

namespace {

constexpr USHORT saclProtected = 0x2000;
constexpr USHORT daclAutoInherited = 0x0400;
constexpr USHORT saclAutoInherited = 0x0800;

struct NamedBits {
    std::string_view letters;
    ACCESS_MASK bits;
};

constexpr std::array<NamedBits, 21> rights{
    {{"GA", 0x10000000}, {"GX", 0x20000000}, {"GW", 0x40000000}, {"GR", 0x80000000}, {"FA", 0x1F01FF}, {"FR", 0x120089},
     {"FW", 0x120116},   {"FX", 0x1200A0},   {"SD", 0x10000},    {"RC", 0x20000},    {"WD", 0x40000},  {"WO", 0x80000},
     {"CC", 0x1},        {"DC", 0x2},        {"LC", 0x4},        {"SW", 0x8},        {"RP", 0x10},     {"WP", 0x20},
     {"DT", 0x40},       {"LO", 0x80},       {"CR", 0x100}}};

constexpr std::array<NamedBits, 7> aceFlags{
    {{"OI", 0x01}, {"CI", 0x02}, {"NP", 0x04}, {"IO", 0x08}, {"ID", 0x10}, {"SA", 0x40}, {"FA", 0x80}}};

constexpr std::array<NamedBits, 3> aceTypes{{{"A", 0}, {"D", 1}, {"AU", 2}}};

[[noreturn]] void refuse(std::string_view what) {
    throw std::invalid_argument("not a security descriptor in SDDL: " + std::string(what));
}

template<std::size_t count>
ACCESS_MASK namedBits(const std::array<NamedBits, count> &table, std::string_view text) {
    ACCESS_MASK bits = 0;
    for (; !text.empty(); text.remove_prefix(2)) {
        const auto found = std::find_if(table.begin(), table.end(),
                                        [&](const NamedBits &entry) { return entry.letters == text.substr(0, 2); });
        if (found == table.end()) {
            refuse(text);
        }
        bits |= found->bits;
    }
    return bits;
}

ACCESS_MASK parseMask(std::string_view text) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    if (!isHex && (text.empty() || text[0] < '0' || text[0] > '9')) {
        return namedBits(rights, text);
    }
    ACCESS_MASK mask = 0;
    const char *first = text.data() + (isHex ? 2 : 0);
    const auto [end, error] = std::from_chars(first, text.data() + text.size(), mask, isHex ? 16 : 10);
    if (error != std::errc{} || end != text.data() + text.size()) {
        refuse(text);
    }
    return mask;
}

SidBytes parseSid(std::string_view text) {
    const std::string_view alias = sidOfAlias(text);
    auto sid = sidFromText(alias.empty() ? text : alias);
    if (!sid) {
        refuse(text);
    }
    return *sid;
}

/// Takes the text up to `end` off the front, and `end` with it.
std::string_view takeUntil(std::string_view &text, char end) {
    const std::size_t at = text.find(end);
    if (at == std::string_view::npos) {
        refuse(text);
    }
    const std::string_view taken = text.substr(0, at);
    text.remove_prefix(at + 1);
    return taken;
}

void appendNumber(std::vector<std::uint8_t> &bytes, std::uint32_t number, unsigned count) {
    for (unsigned index = 0; index < count; ++index) {
        bytes.push_back(static_cast<std::uint8_t>(number >> 8 * index));
    }
}

/// One entry: (type;flags;rights;object;inherited object;SID)
std::vector<std::uint8_t> parseAce(std::string_view text) {
    const std::string_view typeText = takeUntil(text, ';');
    const auto type = std::find_if(aceTypes.begin(), aceTypes.end(),
                                   [&](const NamedBits &entry) { return entry.letters == typeText; });
    if (type == aceTypes.end()) {
        refuse(typeText);
    }
    const ACCESS_MASK flags = namedBits(aceFlags, takeUntil(text, ';'));
    const ACCESS_MASK mask = parseMask(takeUntil(text, ';'));
    if (!takeUntil(text, ';').empty() || !takeUntil(text, ';').empty()) {
        refuse("object entries");
    }
    const SidBytes sid = parseSid(text);
    std::vector<std::uint8_t> ace;
    appendNumber(ace, type->bits, 1);
    appendNumber(ace, flags, 1);
    appendNumber(ace, static_cast<std::uint32_t>(8 + sid.size()), 2);
    appendNumber(ace, mask, 4);
    ace.insert(ace.end(), sid.begin(), sid.end());
    return ace;
}

struct ParsedAcl {
    USHORT control = 0;
    std::vector<std::uint8_t> bytes;
};

ParsedAcl parseAcl(std::string_view &text, bool isDacl) {
    ParsedAcl acl;
    acl.control = isDacl ? SE_DACL_PRESENT : SE_SACL_PRESENT;
    for (bool more = true; more;) {
        more = false;
        if (text.starts_with("P")) {
            acl.control |= isDacl ? SE_DACL_PROTECTED : saclProtected;
            text.remove_prefix(1);
            more = true;
        } else if (text.starts_with("AI")) {
            acl.control |= isDacl ? daclAutoInherited : saclAutoInherited;
            text.remove_prefix(2);
            more = true;
        }
    }
    std::vector<std::uint8_t> aces;
    std::uint32_t count = 0;
    for (; text.starts_with('('); ++count) {
        text.remove_prefix(1);
        const auto ace = parseAce(takeUntil(text, ')'));
        aces.insert(aces.end(), ace.begin(), ace.end());
    }
    appendNumber(acl.bytes, ACL_REVISION, 2);
    appendNumber(acl.bytes, static_cast<std::uint32_t>(sizeof(ACL) + aces.size()), 2);
    appendNumber(acl.bytes, count, 4);
    acl.bytes.insert(acl.bytes.end(), aces.begin(), aces.end());
    return acl;
}

/// A SID after "O:" or "G:" ends where the next part ("G:", "D:", "S:") begins.
SidBytes takeSid(std::string_view &text) {
    std::size_t end = text.find(':');
    end = end == std::string_view::npos ? text.size() : end - 1;
    const SidBytes sid = parseSid(text.substr(0, end));
    text.remove_prefix(end);
    return sid;
}

std::string sidName(const SID *sid) {
    const std::string text = sidText(sid);
    const std::string_view alias = sidAlias(text);
    return alias.empty() ? text : std::string(alias);
}

std::string aceText(const ACE_HEADER *header) {
    const auto *ace = reinterpret_cast<const ACCESS_DENIED_ACE *>(header);
    if (header->AceType >= aceTypes.size()) {
        return "(type " + std::to_string(header->AceType) + ")";
    }
    std::string flags;
    for (const NamedBits &flag : aceFlags) {
        flags += (header->AceFlags & flag.bits) != 0 ? flag.letters : std::string_view{};
    }
    return "(" + std::string(aceTypes[header->AceType].letters) + ";" + flags + ";" + hex(ace->Mask) + ";;;" +
           sidName(reinterpret_cast<const SID *>(&ace->SidStart)) + ")";
}

std::string aclText(const ACL *acl) {
    std::string text;
    std::size_t firstFree = 0;
    if (!validAcl(acl, firstFree)) {
        return "(not an ACL)";
    }
    forEachAce(acl, [&text](const ACE_HEADER *ace) {
        text += aceText(ace);
        return true;
    });
    return text;
}

} // namespace

std::vector<std::uint8_t> securityFromSddl(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    std::optional<SidBytes> owner;
    std::optional<SidBytes> group;
    std::optional<ParsedAcl> dacl;
    std::optional<ParsedAcl> sacl;
    while (!text.empty()) {
        const std::string_view part = text.substr(0, 2);
        text.remove_prefix(part.size());
        if (part == "O:") {
            owner = takeSid(text);
        } else if (part == "G:") {
            group = takeSid(text);
        } else if (part == "D:") {
            dacl = parseAcl(text, true);
        } else if (part == "S:") {
            sacl = parseAcl(text, false);
        } else {
            refuse(std::string(part) + std::string(text));
        }
    }
    DescriptorParts parts;
    parts.control = static_cast<USHORT>((dacl ? dacl->control : 0) | (sacl ? sacl->control : 0));
    parts.owner = owner ? reinterpret_cast<const SID *>(owner->data()) : nullptr;
    parts.group = group ? reinterpret_cast<const SID *>(group->data()) : nullptr;
    parts.dacl = dacl ? reinterpret_cast<const ACL *>(dacl->bytes.data()) : nullptr;
    parts.sacl = sacl ? reinterpret_cast<const ACL *>(sacl->bytes.data()) : nullptr;
    return makeSelfRelative(parts);
}

std::string sddlOf(const std::vector<std::uint8_t> &selfRelative) {
    if (selfRelative.empty()) {
        return {};
    }
    const DescriptorParts parts = partsOf(selfRelative.data());
    std::string text;
    if (parts.owner != nullptr) {
        text += "O:" + sidName(parts.owner);
    }
    if (parts.group != nullptr) {
        text += "G:" + sidName(parts.group);
    }
    if ((parts.control & SE_DACL_PRESENT) != 0) {
        text += "D:";
        text += (parts.control & SE_DACL_PROTECTED) != 0 ? "P" : "";
        text += (parts.control & daclAutoInherited) != 0 ? "AI" : "";
        text += parts.dacl == nullptr ? "NO_ACCESS_CONTROL" : aclText(parts.dacl);
    }
    if ((parts.control & SE_SACL_PRESENT) != 0 && parts.sacl != nullptr) {
        text += "S:";
        text += (parts.control & saclProtected) != 0 ? "P" : "";
        text += (parts.control & saclAutoInherited) != 0 ? "AI" : "";
        text += aclText(parts.sacl);
    }
    return text;
}

} // namespace sim
