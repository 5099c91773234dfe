#include "play_command.h"

#include "command.h"
#include "report/json_report.h"
#include "report/table_report.h"
#include "scenario/scenario_parser.h"
#include "violation_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace cli {
namespace {

namespace fs = std::filesystem;

/// Collects what is to be said about all scenarios.
class Report {
  public:
    Report(const PlayArguments &arguments, bool many, std::ostream &out, std::ostream &err)
        : arguments_(arguments), many_(many), out_(out), err_(err) {}

    void unusable(const std::string &file, const UnusableFile &problems) {
        status_ = exitUnusable;
        ++unusable_;
        for (const Problem &problem : problems.problems()) {
            err_ << problem.text() << "\n";
        }
        if (arguments_.json) {
            print(jsonOf(file, problems));
        }
    }

    void played(const PlayResult &result) {
        ++played_;
        const bool held = result.held();
        if (!held && status_ == exitHeld) {
            status_ = exitNotMet;
        }
        held_ += held ? 1 : 0;
        if (arguments_.json) {
            print(jsonOf(result));
            return;
        }
        const Style &style = arguments_.style;
        if (many_ && !arguments_.tables && !arguments_.log) {
            out_ << summaryLine(result, style) << (held ? std::string() : problemList(result, style));
        } else {
            const std::string table = deviceTable(result, style, arguments_.all);
            out_ << headline(result, style) << "\n" << table << (table.empty() ? "" : "\n");
            if (arguments_.log) {
                out_ << logReport(result, style) << "\n";
            }
            out_ << problemList(result, style) << "\n";
        }
        out_.flush();
    }

    int finish() {
        if (arguments_.json) {
            out_ << (printed_ == 0 ? "[]\n" : "\n]\n");
        } else if (many_) {
            out_ << fmt::format("{} of {} scenarios held{}\n", held_, played_,
                                unusable_ > 0 ? fmt::format(", {} could not be used", unusable_) : std::string());
        }
        out_.flush();
        if (!out_) {
            err_ << "the results could not be written\n";
            return exitUnusable;
        }
        return status_;
    }

  private:
    /// File by file, so that a run that is stopped has told of those before.
    void print(const nlohmann::ordered_json &json) {
        out_ << (printed_++ == 0 ? "[\n" : ",\n") << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
        out_.flush();
    }

    const PlayArguments &arguments_;
    bool many_;
    std::ostream &out_;
    std::ostream &err_;
    std::size_t printed_ = 0;
    int status_ = exitHeld;
    std::size_t played_ = 0;
    std::size_t held_ = 0;
    std::size_t unusable_ = 0;
};

} // namespace

std::vector<std::string> scenarioFiles(const std::string &path) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        if (!fs::exists(path, error)) {
            throw UnusableFile({path, 0}, "there is no such file or folder");
        }
        return {path};
    }
    std::vector<std::string> files;
    try {
        for (auto entry = fs::recursive_directory_iterator(path); entry != fs::recursive_directory_iterator();
             ++entry) {
            if (entry->is_directory() && entry->path().filename() == "devices") {
                entry.disable_recursion_pending();
            } else if (!entry->is_directory() && entry->path().extension() == ".yaml") {
                files.push_back(entry->path().string());
            }
        }
    } catch (const fs::filesystem_error &failure) {
        throw UnusableFile({failure.path1().string(), 0}, "cannot be read: " + failure.code().message());
    }
    if (files.empty()) {
        throw UnusableFile({path, 0}, "the folder holds no scenario (*.yaml)");
    }
    std::sort(files.begin(), files.end());
    return files;
}

int playAll(const PlayArguments &arguments, std::ostream &out, std::ostream &err) {
    std::vector<std::string> files;
    std::vector<std::pair<std::string, UnusableFile>> missing;
    for (const std::string &path : arguments.paths) {
        try {
            for (std::string &file : scenarioFiles(path)) {
                files.push_back(std::move(file));
            }
        } catch (const UnusableFile &unusable) {
            missing.emplace_back(path, unusable);
        }
    }
    Report report(arguments, files.size() > 1, out, err);
    for (const auto &[path, unusable] : missing) {
        report.unusable(path, unusable);
    }
    ViolationReport violations;
    for (const std::string &file : files) {
        violations.playing(file);
        try {
            report.played(play(readScenario(file), arguments.options));
        } catch (const UnusableFile &unusable) {
            report.unusable(file, unusable);
        } catch (const std::exception &error) { // the machine refuses what the file describes
            report.unusable(file, UnusableFile({file, 0}, error.what()));
        }
    }
    return report.finish();
}

} // namespace cli
