#include "kernel.h"

#include "internals.h"
#include "io.h"
#include "violation.h"

#include <iterator>
#include <utility>

namespace sim {

namespace {

Kernel *current = nullptr;

} // namespace

Kernel::Kernel(std::filesystem::path systemRoot, bool keepFiles)
    : files(std::move(systemRoot), keepFiles), internals(std::make_unique<Internals>()) {
    if (current != nullptr) {
        bugCheck("kernel", "Kernel", "a second kernel is made while the first one lives", nullptr);
    }
    current = this;
}

Kernel::~Kernel() {
    workers.resume();
    workers.drain();
    objects.destroyAll();
    current = nullptr;
}

std::vector<std::string> Kernel::leaks() const {
    std::vector<std::string> lines;
    const auto append = [&lines](std::vector<std::string> more) {
        lines.insert(lines.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    };
    append(pool.leaks());
    append(objects.leaks());
    append(leakedIrps());
    append(internals->workItems.leaks());
    append(internals->resources.leaks());
    return lines;
}

Kernel &kernel() {
    if (current == nullptr) {
        bugCheck("kernel", "kernel", "a simulated routine is called but there is no machine", nullptr);
    }
    return *current;
}

} // namespace sim
