// What a log line costs that the level keeps back: no call.
#include "control_flow.h"
#include "driver_image.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

class LogCost : public testing::Test {
  protected:
    LogCost() : symbols(readMap(DRIVER_IMAGE_MAP, image().base())) {
        for (const auto &[name, address] : symbols) {
            if (name.find("submitLogLine") != std::string::npos) {
                logRoutines.insert(address);
            }
            if (image().isCode(address)) {
                starts.insert(address);
            }
        }
        for (const Range &function : image().functions()) {
            starts.insert(function.address);
        }
        log = {symbols.at("?isLogEnabled@@3EA"), symbols.at("?logger@@3PEAULogger@@EA"), LOGGER_LEVEL_OFFSET};
    }

    /// From each function's first instruction to the next function.
    std::vector<Range> functions() const {
        std::vector<Range> ranges;
        for (auto start = starts.begin(); start != starts.end(); ++start) {
            const Section *section = image().sectionAt(*start);
            const auto next = std::next(start);
            std::uint32_t end = section->range.address + section->range.size;
            end = next != starts.end() ? std::min(end, *next) : end;
            ranges.push_back({*start, (end - *start) & ~3u});
        }
        return ranges;
    }

    std::map<std::string, std::uint32_t> symbols;
    std::set<std::uint32_t> logRoutines;
    std::set<std::uint32_t> starts;
    LogVariables log;
};

TEST_F(LogCost, ASuppressedLineMakesNoCall) {
    std::size_t lines = 0;
    for (const Range &function : functions()) {
        const std::vector<std::uint32_t> sites = transfersTo(image(), function, logRoutines);
        if (sites.empty()) {
            continue;
        }
        const auto open = reachable(image(), function, log, LogState::enabled);
        const auto disabled = reachable(image(), function, log, LogState::disabled);
        const auto lowLevel = reachable(image(), function, log, LogState::lowLevel);
        for (const std::uint32_t site : sites) {
            ++lines;
            EXPECT_TRUE(open.contains(site)) << std::hex << site << ": not seen how the line is reached at all";
            EXPECT_FALSE(disabled.contains(site)) << std::hex << site << ": reached although the log is off";
            EXPECT_FALSE(lowLevel.contains(site)) << std::hex << site << ": reached although the level is too low";
        }
    }
    EXPECT_GT(lines, 100u) << "the driver's log lines were not found";
}

TEST_F(LogCost, ASuppressedLineCostsAFewInstructionsAndStaysOutOfTheWay) {
    std::size_t guards = 0;
    for (const Range &function : functions()) {
        auto suppressed = reachable(image(), function, log, LogState::lowLevel);
        suppressed.merge(reachable(image(), function, log, LogState::disabled));
        for (const LogGuard &guard : logGuards(image(), function, log)) {
            ++guards;
            // Page and address of the logger, its level, the comparison, two branches; others may stand in between.
            EXPECT_LE(guard.instructions, 12u) << std::hex << guard.flagBranch;
            EXPECT_TRUE(guard.levelBranch) << std::hex << guard.flagBranch << ": more than the level is asked";
            // A branch is taken only where the way goes elsewhere anyhow, never around the line's code.
            if (guard.levelBranch && guard.skipsTo && *guard.skipsTo > *guard.levelBranch) {
                const auto next = suppressed.upper_bound(*guard.levelBranch);
                const bool skipsTheLineAlone = next != suppressed.end() && *next == *guard.skipsTo;
                EXPECT_FALSE(skipsTheLineAlone && runsOn(image(), *guard.skipsTo - 4))
                    << std::hex << *guard.levelBranch << ": the line's code stands in the way";
            }
        }
    }
    EXPECT_GT(guards, 100u) << "the driver's log lines were not found";
}

TEST_F(LogCost, AllCallsOfTheLineBuilderStandInFunctionsThatWereLookedAt) {
    std::set<std::uint32_t> seen;
    for (const Range &function : functions()) {
        for (const std::uint32_t site : transfersTo(image(), function, logRoutines)) {
            seen.insert(site);
        }
    }
    for (const Section &section : image().sections()) {
        if (section.has(Section::execute)) {
            const Range whole{section.range.address, section.range.size & ~3u};
            for (const std::uint32_t site : transfersTo(image(), whole, logRoutines)) {
                EXPECT_TRUE(seen.contains(site)) << std::hex << site;
            }
        }
    }
}

} // namespace
