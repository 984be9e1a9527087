#include "Pipe.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <spawn.h>
#include <sys/wait.h>

namespace bench {
namespace {

using Write = void (*)(size_t, size_t);

std::map<std::string, Write>& writers() {
    static std::map<std::string, Write> all;
    return all;
}

} // namespace

Writer::Writer(const char* name, Write write) {
    writers()[name] = write;
}

Contestant::Contestant(const char* direction, const char* name, size_t (*run)(size_t payloadSize)) {
    for (const size_t kibibytes : {1, 64}) {
        const std::string title = std::to_string(kibibytes) + "-KiB-" + direction + "/" + name;
        benchmark::RegisterBenchmark(title.c_str(),
                                     [run, kibibytes](benchmark::State& state) {
                                         const size_t size = kibibytes * 1024;
                                         for (auto _ : state) {
                                             if (run(size) != bytesARun / size)
                                                 state.SkipWithError("packets were lost");
                                         }
                                         state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytesARun));
                                     })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
}

const std::string& thisProgram() {
    static const std::string path = [] {
        char buffer[4096];
        const ssize_t size = readlink("/proc/self/exe", buffer, sizeof buffer);
        return std::string(buffer, size > 0 ? static_cast<size_t>(size) : 0);
    }();
    return path;
}

PlainChild::PlainChild(const char* writer, size_t payloadSize) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);
    output = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string name = "write", what = writer, size = std::to_string(payloadSize);
    char* arguments[] = {name.data(), what.data(), size.data(), nullptr};
    if (posix_spawn(&m_process, thisProgram().c_str(), &actions, nullptr, arguments, environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
}

PlainChild::~PlainChild() {
    close(output);
    waitpid(m_process, nullptr, 0);
}

} // namespace bench

int main(int count, char** arguments) {
    if (count == 3 && bench::writers().contains(arguments[1])) {
        const auto size = static_cast<size_t>(std::atoll(arguments[2]));
        bench::writers()[arguments[1]](size, bench::bytesARun / size);
        return 0;
    }
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
