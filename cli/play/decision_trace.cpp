#include "decision_trace.h"

#include "../../simulator/kernel/strings.h"
#include "../../simulator/machine/machine.h"
#include "../text/display.h"

#include <algorithm>
#include <utility>

namespace cli {
namespace {

constexpr std::u16string_view filterableList = u"BlockedCompatibleIds";
constexpr std::u16string_view ruleLists[] = {filterableList, u"AllowedHardwareIds", u"ReadOnlyHardwareIds"};

bool isRuleList(std::u16string_view value) {
    return std::any_of(std::begin(ruleLists), std::end(ruleLists),
                       [&](std::u16string_view list) { return sim::equalNoCase(list, value); });
}

/// A rule table's elements begin with the counted string of the rule.
std::u16string textOfElement(const void *element) {
    return std::u16string(sim::view(*static_cast<const UNICODE_STRING *>(element)));
}

} // namespace

void DecisionTrace::observe(const sim::TraceEvent &event) {
    switch (event.kind) {
    case sim::TraceEvent::Kind::registryValueRead:
        lastValue_ = event.text;
        lastValueIsEmpty_.reset();
        policyWasRead_ = policyWasRead_ || isRuleList(event.text);
        sdCardModeWasRead_ = sdCardModeWasRead_ || sim::equalNoCase(event.text, u"SdCardMode");
        break;
    case sim::TraceEvent::Kind::tableInsert:
        inserted(event);
        break;
    case sim::TraceEvent::Kind::tableLookup:
        lookedUp(event);
        break;
    case sim::TraceEvent::Kind::tableElement:
        fetched(event);
        break;
    case sim::TraceEvent::Kind::nameMatch:
        matched(event);
        break;
    }
}

DecisionTrace::RuleTable *DecisionTrace::tableAt(const void *table) {
    for (RuleTable &known : tables_) {
        if (known.table == table) {
            return &known;
        }
    }
    return nullptr;
}

void DecisionTrace::inserted(const sim::TraceEvent &event) {
    if (event.element == nullptr || !isRuleList(lastValue_)) {
        return;
    }
    RuleTable *table = tableAt(event.table);
    if (table == nullptr) {
        table = &tables_.emplace_back(RuleTable{event.table, lastValue_, false});
    }
    if (!lastValueIsEmpty_) {
        const auto stored = kernel_.registry.value(sim::Machine::parametersKey(), lastValue_);
        lastValueIsEmpty_ = stored && stored->data.size() < sizeof(char16_t);
    }
    table->builtInList = *lastValueIsEmpty_;
}

void DecisionTrace::lookedUp(const sim::TraceEvent &event) {
    rulesWereAsked_ = true;
    const RuleTable *table = tableAt(event.table);
    if (table == nullptr || event.element == nullptr) {
        return;
    }
    const std::u16string rule = textOfElement(event.element);
    record(*table, rule, idEqualTo(rule));
}

void DecisionTrace::fetched(const sim::TraceEvent &event) {
    walked_ = tableAt(event.table);
    if (walked_ != nullptr) {
        walkedRule_ = textOfElement(event.element);
    }
}

void DecisionTrace::matched(const sim::TraceEvent &event) {
    // A rule is compared right after the walk over its table brought it: the same text may stand in several lists, and
    // other patterns than rules are matched too.
    const RuleTable *table = std::exchange(walked_, nullptr);
    if (table == nullptr || walkedRule_ != event.text) {
        return;
    }
    rulesWereAsked_ = true;
    if (event.hit) {
        record(*table, event.text, event.name);
    }
}

void DecisionTrace::record(const RuleTable &table, const std::u16string &rule, const std::u16string &id) {
    RuleHit hit{visibleText(table.value), table.builtInList, visibleText(rule), visibleText(id)};
    if (sim::equalNoCase(table.value, filterableList)) {
        filterableBy_ = std::move(hit);
    } else {
        decidedBy_ = std::move(hit);
    }
}

std::u16string DecisionTrace::idEqualTo(const std::u16string &rule) const {
    for (const std::u16string &id : ids_) {
        if (sim::equalNoCase(id, rule)) {
            return id;
        }
        if (id.size() > rule.size() && id[id.size() - rule.size() - 1] == u'\\' &&
            sim::equalNoCase(std::u16string_view(id).substr(id.size() - rule.size()), rule)) {
            return id.substr(id.size() - rule.size());
        }
    }
    return rule;
}

DecisionTraces::DecisionTraces(sim::Kernel &kernel) : kernel_(kernel) {
    // Log workers use tables too (for file names); only threads that judge a device count.
    kernel_.trace.setObserver([this](const sim::TraceEvent &event) {
        if (DecisionTrace *trace = ofThisThread()) {
            trace->observe(event);
        }
    });
}

DecisionTraces::~DecisionTraces() {
    kernel_.trace.setObserver({});
}

DecisionTrace *DecisionTraces::ofThisThread() {
    const std::lock_guard lock(mutex_);
    const auto found = traces_.find(std::this_thread::get_id());
    return found == traces_.end() ? nullptr : found->second.get();
}

void DecisionTraces::begin(std::vector<std::u16string> ids) {
    const std::lock_guard lock(mutex_);
    traces_[std::this_thread::get_id()] = std::make_unique<DecisionTrace>(kernel_, std::move(ids));
}

std::unique_ptr<DecisionTrace> DecisionTraces::end() {
    const std::lock_guard lock(mutex_);
    return std::move(traces_.extract(std::this_thread::get_id()).mapped());
}

} // namespace cli
