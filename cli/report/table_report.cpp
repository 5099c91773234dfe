#include "table_report.h"

#include "../text/display.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace cli {
namespace {

constexpr std::size_t columnCount = 5;
using Row = std::array<std::string, columnCount>;

const Row headings{"Device", "Class", "Decision", "Enforced", "Why"};
constexpr std::size_t decisionColumn = 2;
constexpr std::size_t whyColumn = 4;
constexpr std::size_t gap = 2; ///< blanks between columns
constexpr std::size_t narrowestWhy = 30;

/// The first entry of a descriptor's access list, in SDDL.
std::string firstEntry(const std::string &security) {
    const std::size_t begin = security.find('(');
    return begin == std::string::npos ? std::string() : security.substr(begin, security.find(')') - begin + 1);
}

std::string enforcedText(const DeviceOutcome &outcome) {
    if (outcome.enforcement == "disabled-and-hidden") {
        return "disabled, hidden";
    }
    if (outcome.enforcement == "deny-write-entry") {
        return "deny-write " + firstEntry(outcome.security);
    }
    if (outcome.enforcement == "left-to-disk-filter") {
        return "left to the disk filter";
    }
    if (outcome.enforcement == "writes-refused") {
        return "refuses writes";
    }
    if (outcome.enforcement == "add-failed") {
        return fmt::format("add failed (code {})", outcome.problem);
    }
    if (outcome.enforcement == "no-filter") {
        return outcome.problem == 0 ? "no filter" : fmt::format("does not start (code {})", outcome.problem);
    }
    return outcome.enforcement;
}

std::string decisionText(const DeviceOutcome &outcome) {
    return outcome.decision == "none" ? "-" : outcome.decision;
}

/// A device that came several times is told apart by the step.
std::string nameOf(const DeviceOutcome &outcome, const PlayResult &result) {
    std::string name = outcome.ofScenario ? outcome.device.substr(outcome.device.rfind('/') + 1) : outcome.device;
    const auto times = std::count_if(result.outcomes.begin(), result.outcomes.end(),
                                     [&](const DeviceOutcome &other) { return other.device == outcome.device; });
    if (times > 1) {
        name += fmt::format(", step {}", outcome.step);
    }
    return std::string(static_cast<std::size_t>(outcome.depth) * 2, ' ') + name;
}

Row rowOf(const DeviceOutcome &outcome, const PlayResult &result) {
    return {nameOf(outcome, result), outcome.setupClass, decisionText(outcome), enforcedText(outcome),
            outcome.why.text};
}

Colour colourOf(const std::string &decision) {
    if (decision == "allowed") {
        return Colour::green;
    }
    if (decision == "blocked" || decision == "failed") {
        return Colour::red;
    }
    if (decision == "read-only") {
        return Colour::yellow;
    }
    return Colour::dim;
}

/// What most of a machine's devices do is not worth a row: the driver's own node that started as it should.
bool worthShowing(const DeviceOutcome &outcome, bool all) {
    return all || (outcome.ofScenario && outcome.attached != "control-device");
}

std::string padded(const std::string &text, std::size_t width) {
    const std::size_t used = displayWidth(text);
    return text + std::string(width > used ? width - used : 0, ' ');
}

std::array<std::size_t, columnCount> columnWidths(const std::vector<Row> &rows) {
    std::array<std::size_t, columnCount> widths{};
    for (std::size_t column = 0; column < columnCount; ++column) {
        widths[column] = displayWidth(headings[column]);
        for (const Row &row : rows) {
            widths[column] = std::max(widths[column], displayWidth(row[column]));
        }
    }
    return widths;
}

/// The last column gives way when the table is wider than the terminal.
void fit(std::array<std::size_t, columnCount> &widths, std::size_t terminal) {
    std::size_t before = gap;
    for (std::size_t column = 0; column < whyColumn; ++column) {
        before += widths[column] + gap;
    }
    if (terminal != 0 && before + widths[whyColumn] > terminal) {
        widths[whyColumn] = std::max(narrowestWhy, terminal > before ? terminal - before : 0);
    }
}

std::string line(const Row &row, const std::array<std::size_t, columnCount> &widths, const Style &style,
                 Colour colour) {
    const std::vector<std::string> why = wrapText(row[whyColumn], widths[whyColumn]);
    std::string text(gap, ' ');
    std::size_t before = gap;
    for (std::size_t column = 0; column < whyColumn; ++column) {
        const std::string cell = padded(row[column], widths[column]);
        text += column == decisionColumn ? style.paint(cell, colour) : cell;
        text += std::string(gap, ' ');
        before += widths[column] + gap;
    }
    for (std::size_t i = 0; i < why.size(); ++i) {
        text += (i == 0 ? std::string() : "\n" + std::string(before, ' ')) + why[i];
    }
    return text + "\n";
}

Colour colourOfLevel(const std::string &level) {
    if (level == "ERROR" || level == "FATAL") {
        return Colour::red;
    }
    return level == "WARN" ? Colour::yellow : Colour::cyan;
}

std::string indented(const std::string &text, std::size_t blanks) {
    std::string result;
    for (const char byte : text) {
        result += byte;
        if (byte == '\n') {
            result += std::string(blanks, ' ');
        }
    }
    return result;
}

std::size_t failureCount(const PlayResult &result) {
    std::size_t count = 0;
    for (const StepResult &step : result.steps) {
        count += step.failures.size();
    }
    return count;
}

std::string counted(std::size_t number, const char *one, const char *many) {
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

} // namespace

std::string deviceTable(const PlayResult &result, const Style &style, bool all) {
    std::vector<Row> rows;
    std::vector<Colour> colours;
    for (const DeviceOutcome &outcome : result.outcomes) {
        if (!worthShowing(outcome, all)) {
            continue;
        }
        rows.push_back(rowOf(outcome, result));
        colours.push_back(colourOf(outcome.decision));
    }
    if (rows.empty()) {
        return {};
    }
    auto widths = columnWidths(rows);
    fit(widths, style.width);
    std::string text = style.paint(line(headings, widths, Style(), Colour::plain), Colour::bold);
    Row rule;
    for (std::size_t column = 0; column < columnCount; ++column) {
        for (std::size_t i = 0; i < widths[column]; ++i) {
            rule[column] += "─";
        }
    }
    text += line(rule, widths, style, Colour::plain);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        text += line(rows[i], widths, style, colours[i]);
    }
    return text;
}

std::string headline(const PlayResult &result, const Style &style) {
    return style.paint(result.name, Colour::bold) + "  " + style.paint(result.file, Colour::dim) + "\n";
}

std::string problemList(const PlayResult &result, const Style &style) {
    if (result.held()) {
        const std::string text = result.expectations == 0
                                     ? "played"
                                     : "held: " + counted(result.expectations, "expectation", "expectations");
        return "  " + style.paint("✓ " + text, Colour::green) + "\n";
    }
    std::string text;
    for (const StepResult &step : result.steps) {
        for (const Failure &failure : step.failures) {
            const std::string place =
                step.number == 0 ? step.title : fmt::format("step {} ({})", step.number, step.title);
            text += "  " + style.paint("✗ " + failure.where.text(), Colour::red) +
                    fmt::format("  {}: {}\n", place, failure.what);
            text += "      expected  " + indented(failure.expected, 16) + "\n";
            text += "      found     " + indented(failure.found, 16) + "\n";
        }
    }
    return text;
}

std::string summaryLine(const PlayResult &result, const Style &style) {
    if (result.held()) {
        return fmt::format("{} {}  {}\n", style.paint("✓", Colour::green), result.file,
                           style.paint(result.name, Colour::dim));
    }
    return fmt::format("{} {}  {} ({} not met)\n", style.paint("✗", Colour::red), result.file, result.name,
                       failureCount(result));
}

std::string logReport(const PlayResult &result, const Style &style) {
    std::string text;
    for (const StepResult &step : result.steps) {
        if (step.log.empty()) {
            continue;
        }
        text += style.paint(fmt::format("  {}", step.number == 0 ? step.title
                                                                 : fmt::format("step {}: {}", step.number, step.title)),
                            Colour::bold) +
                "\n";
        for (const LogLine &line : step.log) {
            text += fmt::format("    {} {}\n", style.paint(fmt::format("{:<5}", line.level), colourOfLevel(line.level)),
                                clipped(line.text, 4000));
        }
    }
    return text.empty() ? "  (the driver wrote no log)\n" : text;
}

} // namespace cli
