#include "reg_file.h"

#include "../../simulator/kernel/strings.h"
#include "../scenario/problem.h"
#include "../text/display.h"
#include "../text/whole_file.h"
#include "key_paths.h"
#include "reg_text.h"

#include <fmt/format.h>

#include <optional>

namespace cli {
namespace {

/// Reads the decoded lines; a problem ends the reading of its entry, not of the file.
class RegParser {
  public:
    RegParser(RegText text, std::string file) : text_(std::move(text)), file_(std::move(file)) {}

    std::vector<RegOperation> parse() {
        for (index_ = 1; index_ < text_.lines.size(); ++index_) {
            line_ = trim(text_.lines[index_]);
            entryLine_ = static_cast<int>(index_) + 1;
            if (line_.empty() || line_.front() == u';') {
                continue;
            }
            if (line_.front() == u'[') {
                parseKey();
            } else {
                parseValue();
            }
        }
        if (!problems_.empty()) {
            throw UnusableFile(problems_.list());
        }
        return std::move(operations_);
    }

  private:
    static std::u16string_view trim(std::u16string_view text) {
        constexpr std::u16string_view blanks = u" \t";
        const std::size_t first = text.find_first_not_of(blanks);
        if (first == std::u16string_view::npos) {
            return {};
        }
        return text.substr(first, text.find_last_not_of(blanks) - first + 1);
    }

    void problem(std::string message) { problems_.add({file_, entryLine_}, std::move(message)); }

    void parseKey() {
        key_.clear();
        keyProblem_ = true;
        const std::size_t end = line_.rfind(u']');
        if (end == std::u16string_view::npos) {
            return problem("the key's closing ']' is missing");
        }
        std::u16string_view path = line_.substr(1, end - 1);
        const bool remove = !path.empty() && path.front() == u'-';
        if (remove) {
            path.remove_prefix(1);
        }
        const auto kernelPath = kernelKeyPath(sim::toUtf8(path));
        if (!kernelPath) {
            return problem(fmt::format("key '{}' is below a root that this machine does not have; "
                                       "use HKEY_LOCAL_MACHINE, HKEY_USERS or HKEY_CLASSES_ROOT",
                                       visibleText(sim::toUtf8(path))));
        }
        keyProblem_ = false;
        if (!remove) {
            key_ = *kernelPath;
        }
        operations_.push_back(
            {remove ? RegOperation::Kind::deleteKey : RegOperation::Kind::makeKey, *kernelPath, {}, {}, entryLine_});
    }

    /// Text in quotes with \\ and \" escapes, which may go on over several lines; leaves line_ after the closing quote.
    std::optional<std::u16string> takeQuoted() {
        std::u16string text;
        line_.remove_prefix(1);
        for (;;) {
            if (line_.empty()) {
                if (index_ + 1 >= text_.lines.size()) {
                    problem("a closing quote is missing");
                    return std::nullopt;
                }
                text += u"\r\n";
                line_ = text_.lines[++index_];
                continue;
            }
            char16_t unit = line_.front();
            line_.remove_prefix(1);
            if (unit == u'"') {
                return text;
            }
            if (unit == u'\\' && !line_.empty() && (line_.front() == u'\\' || line_.front() == u'"')) {
                unit = line_.front();
                line_.remove_prefix(1);
            }
            text += unit;
        }
    }

    void parseValue() {
        if (line_.front() != u'"' && line_.front() != u'@') {
            return problem(fmt::format("expected a key, a value or a comment, found '{}'",
                                       visibleText(sim::toUtf8(line_.substr(0, 40)))));
        }
        std::u16string name;
        if (line_.front() == u'@') {
            line_.remove_prefix(1);
        } else {
            const auto quoted = takeQuoted();
            if (!quoted) {
                return;
            }
            name = *quoted;
        }
        line_ = trim(line_);
        if (line_.empty() || line_.front() != u'=') {
            return problem("expected '=' after the value's name");
        }
        line_ = trim(line_.substr(1));
        std::optional<ValueData> data;
        const bool remove = line_ == u"-";
        if (!remove) {
            data = parseData();
            if (!data) {
                return;
            }
        }
        if (keyProblem_) {
            return; // reported at the key
        }
        if (key_.empty()) {
            return problem("a value needs a key before it that is not deleted");
        }
        operations_.push_back({remove ? RegOperation::Kind::deleteValue : RegOperation::Kind::setValue, key_, name,
                               data.value_or(ValueData{}), entryLine_});
    }

    std::optional<ValueData> parseData() {
        if (!line_.empty() && line_.front() == u'"') {
            const auto text = takeQuoted();
            if (!text || !nothingMore()) {
                return std::nullopt;
            }
            return ValueData{1, textBytes(*text, true)};
        }
        const std::size_t colon = line_.find(u':');
        const std::string kind = sim::toUtf8(line_.substr(0, colon));
        if (colon == std::u16string_view::npos) {
            problem(fmt::format("unknown kind of data '{}'", visibleText(kind)));
            return std::nullopt;
        }
        line_.remove_prefix(colon + 1);
        if (kind == "dword") {
            return parseDword();
        }
        if (kind == "hex") {
            return parseHex(3);
        }
        if (kind.starts_with("hex(") && kind.ends_with(")")) {
            const auto type = parseNumber("0x" + kind.substr(4, kind.size() - 5));
            if (type && *type <= 0xFFFFFFFF) {
                return parseHex(static_cast<std::uint32_t>(*type));
            }
        }
        problem(fmt::format("unknown kind of data '{}'", visibleText(kind)));
        return std::nullopt;
    }

    std::optional<ValueData> parseDword() {
        const std::string digits = sim::toUtf8(trim(line_.substr(0, line_.find(u';'))));
        const auto number = parseNumber("0x" + digits);
        if (digits.size() > 8 || !number) {
            problem(fmt::format("'dword:' needs one to eight hexadecimal digits, found '{}'", visibleText(digits)));
            return std::nullopt;
        }
        return ValueData{4, dwordBytes(static_cast<std::uint32_t>(*number))};
    }

    /// Hexadecimal bytes with commas; a backslash at the end of a line goes on with the next one.
    std::optional<ValueData> parseHex(std::uint32_t type) {
        std::u16string digits;
        for (;;) {
            std::u16string_view part = trim(line_.substr(0, line_.find(u';')));
            const bool more = !part.empty() && part.back() == u'\\';
            if (more) {
                part.remove_suffix(1);
            }
            digits += part;
            if (!more || index_ + 1 >= text_.lines.size()) {
                break;
            }
            line_ = text_.lines[++index_];
        }
        const auto bytes = parseHexBytes(sim::toUtf8(digits));
        if (!bytes) {
            problem("hexadecimal bytes must be two digits each, with commas between them");
            return std::nullopt;
        }
        if (text_.version4 && (type == 1 || type == 2 || type == 7)) {
            return ValueData{
                type, textBytes(decodeWestern({reinterpret_cast<const char *>(bytes->data()), bytes->size()}), false)};
        }
        return ValueData{type, *bytes};
    }

    bool nothingMore() {
        const std::u16string_view rest = trim(line_);
        if (rest.empty() || rest.front() == u';') {
            return true;
        }
        problem(fmt::format("unexpected '{}' after the text", visibleText(sim::toUtf8(rest.substr(0, 40)))));
        return false;
    }

    RegText text_;
    std::string file_;
    Problems problems_;
    std::vector<RegOperation> operations_;
    std::u16string key_;       ///< key of the values that follow; empty when it was deleted
    bool keyProblem_ = false;  ///< the last key could not be read
    std::u16string_view line_; ///< what is left of the current line
    std::size_t index_ = 0;    ///< of the current line
    int entryLine_ = 0;        ///< where the current key or value began
};

} // namespace

std::vector<RegOperation> parseRegFile(std::string_view bytes, const std::string &file) {
    return RegParser(decodeRegText(bytes, file), file).parse();
}

std::vector<RegOperation> readRegFile(const std::string &path) {
    constexpr std::uintmax_t largest = 64u << 20;
    return parseRegFile(readWholeFile(path, largest), path);
}

} // namespace cli
