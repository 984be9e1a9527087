#include "Rpc.h"

#include <string_view>
#include <unistd.h>

namespace bench {

bool startChild(kiv::Process& process, const char* contestant) {
    char buffer[4096];
    const ssize_t size = readlink("/proc/self/exe", buffer, sizeof buffer);
    const kiv::String program(buffer, size > 0 ? static_cast<size_t>(size) : 0);
    return process.spawn(program, {program, contestant}, nullptr, true);
}

} // namespace bench

int main(int count, char** arguments) {
    const std::string_view first = count == 2 ? arguments[1] : "";
    if (first == "limit") return bench::answerByHand();
    if (first == "kiv") return bench::answerAsChannel();
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
