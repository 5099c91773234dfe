#include "request_check.h"

#include "../../simulator/kernel/strings.h"
#include "../facts/message_fields.h"
#include "../text/display.h"

#include <fmt/format.h>

namespace cli {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Fields = std::vector<std::pair<std::string, Fact>>;

/// The list of failures of one step, and the place that they are told with.
struct RequestReport {
    StepResult &step;
    const Location &where;

    void add(const std::string &what, const Expected &expected, const Fact &found) const {
        if (const auto mismatch = compare(expected, found)) {
            step.failures.push_back({where, what, mismatch->expected, mismatch->found});
        }
    }
    void addFields(const std::string &what, const Fields &expected, const Bytes &bytes,
                   const std::vector<MessageField> &fields) const {
        for (const auto &[name, fact] : expected) {
            for (const MessageField &field : fields) {
                if (field.name == name) {
                    add(what + " " + name, Expected{fact, {}, {}, {}}, messageFact(bytes, field));
                }
            }
        }
    }
};

std::string textIn(const Bytes &bytes) {
    std::u16string text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        text += static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
    }
    return visibleText(sim::toUtf8(text));
}

void checkListing(const std::string &what, const std::vector<Fields> &expected, const Bytes &bytes,
                  const RequestReport &report) {
    report.add(what + ": how many", Expected{Fact(std::uint64_t{expected.size()}), {}, {}, {}},
               std::uint64_t{bytes.size() / listedDeviceSize});
    for (std::size_t i = 0; i < expected.size() && (i + 1) * listedDeviceSize <= bytes.size(); ++i) {
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(i * listedDeviceSize);
        report.addFields(fmt::format("{} {}", what, i + 1), expected[i], Bytes(begin, begin + listedDeviceSize),
                         listedDeviceFields());
    }
}

} // namespace

void checkRequest(const std::string &name, const Processes::Request &request, const DeviceExpectation &expectation,
                  StepResult &step) {
    const RequestReport report{step, expectation.where};
    const std::string what = name + ": " + expectation.key;
    if (request == nullptr) {
        return step.failures.push_back({expectation.where, what, "a request that was made", "it never was"});
    }
    const bool back = request->isBack();
    const Expected &expected = expectation.expected;
    const Bytes bytes = back ? request->received() : Bytes();
    if (expectation.key == "pending") {
        report.add(what, expected, !back);
    } else if (!back) {
        step.failures.push_back({expectation.where, what, "a request that is back", "it is pending"});
    } else if (expectation.key == "status") {
        report.add(what, expected, StatusFact{request->status()});
    } else if (expectation.key == "information") {
        report.add(what, expected, std::uint64_t{request->information()});
    } else if (expectation.key == "text") {
        report.add(what, expected, textIn(bytes));
    } else if (expectation.key == "devices") {
        checkListing(what, expected.records.value_or(std::vector<Fields>()), bytes, report);
    } else {
        report.add(what, expected, hexText(bytes));
        report.addFields(what, expected.fields, bytes,
                         expectation.key == "notification" ? notificationFields() : messageFields());
    }
}

} // namespace cli
