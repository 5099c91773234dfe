// Times of the driver's own work, by Google Benchmark; with --count NAME one operation is run a fixed number of times,
// for a tool that counts instructions. --list names the operations, with how often they are run, how many things one
// run does, and where instructions are counted.

#include "operations.h"

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstring>

namespace {

int listOperations() {
    for (const bench::Operation &operation : bench::operations()) {
        std::printf("%s %llu %llu %s\n", operation.name.c_str(), static_cast<unsigned long long>(operation.counted),
                    static_cast<unsigned long long>(operation.units),
                    operation.function.empty() ? "-" : operation.function.c_str());
    }
    return 0;
}

int countOperation(const char *name) {
    for (const bench::Operation &operation : bench::operations()) {
        if (operation.name == name) {
            const std::function<void()> run = operation.make();
            CALLGRIND_START_INSTRUMENTATION; // setting up is not counted, so it need not be slow
            for (std::uint64_t i = 0; i < operation.counted; ++i) {
                bench::runOperation(run);
            }
            return 0;
        }
    }
    std::fprintf(stderr, "myrtelhaven_bench: there is no operation '%s' (see --list)\n", name);
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--list") == 0) {
        return listOperations();
    }
    if (argc == 3 && std::strcmp(argv[1], "--count") == 0) {
        return countOperation(argv[2]);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    for (const bench::Operation &operation : bench::operations()) {
        auto *timed = benchmark::RegisterBenchmark(operation.name.c_str(), [&](benchmark::State &state) {
            const std::function<void()> run = operation.make();
            for (auto step : state) {
                bench::runOperation(run);
            }
        });
        timed->UseRealTime(); // other threads may do the work
        if (operation.lasting) {
            timed->Iterations(1)->Repetitions(1);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
