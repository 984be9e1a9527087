// The soak: kivSoak [MINUTES] [--seed N]. A host with two workers that are killed at random, for so long (10 minutes),
// with scripts, options, remote calls, files and logs. Prints a row a minute and at last whether anything was lost, or
// has grown. See doc/performance.md.

#include "tests/soak/SoakHost.h"
#include "tests/support/ProgramState.h"

#include "kiv/logging/LogBackend.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/platform/Console.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/StoreFile.h"
#include "kiv/system/System.h"
#include "kiv/tasks/ThreadPool.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

namespace {

using Seconds = std::chrono::duration<double>;
using TimePoint = std::chrono::steady_clock::time_point;

// What a host may have more at the end than after a fifth of the time.
constexpr double mostGrowth = 0.15;
constexpr uint64_t mostGrowthBytes = uint64_t{16} << 20;
// While workers come and go, files are moved and the store is written, there are some more.
constexpr size_t mostBusyHandles = 60, mostBusyThreads = 8;
// With everything at rest.
constexpr size_t mostLeftHandles = 8;

// What the host logs is in its store.
struct Silence : kiv::internal::OutputSink {
    bool write(std::string_view) override { return true; }
};

struct Options {
    double minutes = 10;
    unsigned seed = 1;
};

struct Sample {
    double seconds;
    uint64_t memory;
    size_t handles, threads;
};

class Soak {
public:
    explicit Soak(const Options& options) : m_options(options) {
        m_folder = (std::filesystem::temp_directory_path() / ("kivSoak-" + std::to_string(kiv::System::randomUInt())))
                       .u8string();
        std::filesystem::create_directories(m_folder);
    }
    ~Soak() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    bool run();

private:
    std::string folder() const { return {m_folder.begin(), m_folder.end()}; }
    double elapsed() const { return Seconds(std::chrono::steady_clock::now() - m_begin).count(); }
    static Sample measure(double seconds);
    template <class IsOver>
    bool pumpUntil(SoakHost& host, double limit, IsOver isOver);
    void rest(SoakHost& host);
    void printRow(const SoakHost& host);
    void check(bool isRight, const std::string& what);
    void checkCounts(const SoakHost::Counts& counts);
    void checkGrowth();
    void checkStore(const SoakHost& host);

    const Options m_options;
    std::u8string m_folder;
    const TimePoint m_begin = std::chrono::steady_clock::now();
    std::vector<Sample> m_samples;
    size_t m_handlesBefore = 0, m_handlesAfter = 0;
    unsigned m_faults = 0;
    SoakHost::Counts m_counts;
};

Sample Soak::measure(double seconds) {
    return {seconds, support::countResidentBytes(), support::countOpenHandles(), support::countThreads()};
}

void Soak::check(bool isRight, const std::string& what) {
    if (isRight) return;
    ++m_faults;
    fmt::print("soak: FAULT: {}\n", what);
}

template <class IsOver>
bool Soak::pumpUntil(SoakHost& host, double limit, IsOver isOver) {
    for (const double end = elapsed() + limit; !isOver();) {
        if (elapsed() > end || !host.pump()) return false;
    }
    return true;
}

// No workers, and what the host does by itself is done.
void Soak::rest(SoakHost& host) {
    host.setWorkerCount(0);
    const double end = elapsed() + 1;
    pumpUntil(host, 30, [&] { return elapsed() > end; });
}

void Soak::printRow(const SoakHost& host) {
    const SoakHost::Counts counts = host.getCounts();
    const Sample sample = measure(elapsed());
    m_samples.push_back(sample);
    fmt::print("| {:.0f} | {:.1f} | {} | {} | {} | {} | {} | {} | {} | {} | {} | {} | {} |\n", sample.seconds,
               static_cast<double>(sample.memory) / (1 << 20), sample.handles, sample.threads, counts.kills,
               counts.starts, counts.made, counts.failed, counts.workerMade, counts.files, counts.packets,
               counts.options, counts.lines);
    std::fflush(stdout);
}

bool Soak::run() {
    kiv::logging::LogBackend::registerBackend(true);
    SoakHost::writePlugin(folder());
    kiv::System::initialize();
    {
        const auto host = kiv::makeObject<SoakHost>(folder(), kiv::platform::programPath(), m_options.seed);
        check(host->start(), "the host has not started");
        host->startTraffic();
        // With all that is made once.
        pumpUntil(*host, 30, [&] { return host->getCounts().starts >= 3; });
        host->endTraffic();
        rest(*host);
        m_handlesBefore = measure(0).handles;
        host->startTraffic();
        fmt::print("| s | memory/MiB | handles | threads | killed | started | calls | of these failed | calls of "
                   "workers | files | packets | options set | lines |\n"
                   "|---|---|---|---|---|---|---|---|---|---|---|---|---|\n");
        const double end = elapsed() + m_options.minutes * 60;
        const double interval = std::min(60.0, m_options.minutes * 60 / 8);
        while (elapsed() < end && host->getEnd() == kiv::PluginHost::End::None) {
            pumpUntil(*host, interval, [&] { return elapsed() >= end; });
            printRow(*host);
        }
        host->endTraffic();
        pumpUntil(*host, 60, [&] { return host->getCounts().open == 0; });
        rest(*host);
        m_handlesAfter = measure(0).handles;
        m_counts = host->getCounts();
        check(host->getEnd() == kiv::PluginHost::End::None, "the host has ended: " + std::string(host->getEndText()));
        check(host->stop(), "the store could not be written");
        check(kiv::System::deinitialize(), "the System is still referred to");
        checkStore(*host);
    }
    checkCounts(m_counts);
    checkGrowth();
    return m_faults == 0;
}

void Soak::checkCounts(const SoakHost::Counts& counts) {
    check(counts.open == 0, fmt::format("{} calls have not ended", counts.open));
    check(counts.surplus == 0, fmt::format("{} calls have ended twice", counts.surplus));
    check(counts.made == counts.answered + counts.failed, "calls were lost");
    check(counts.wrong == 0, fmt::format("{} answers were wrong", counts.wrong));
    check(counts.lostPackets == 0, fmt::format("{} packets were lost", counts.lostPackets));
    check(counts.faults == 0, fmt::format("workers have told of {} faults", counts.faults));
    check(counts.kills > 0 && counts.starts > SoakHost::workers, "no worker was killed");
    check(counts.answered > 0 && counts.failed > 0 && counts.files > 0 && counts.workerAnswered > 0 &&
              counts.packets > 0 && counts.options > 0,
          "something was not tried at all");
    check(counts.lines > SoakHost::mostLines, "the log database was never full");
}

void Soak::checkGrowth() {
    const Sample& early = m_samples[m_samples.size() / 5];
    const Sample& late = m_samples.back();
    const auto allowed = static_cast<uint64_t>(static_cast<double>(early.memory) * mostGrowth);
    check(late.memory <= early.memory + std::max(allowed, mostGrowthBytes), "the memory has grown");
    for (const Sample& sample : m_samples) {
        check(sample.handles <= m_handlesBefore + mostBusyHandles, fmt::format("{} handles", sample.handles));
        check(sample.threads <= early.threads + mostBusyThreads, fmt::format("{} threads", sample.threads));
    }
    check(m_handlesAfter <= m_handlesBefore + mostLeftHandles,
          fmt::format("{} handles at rest, there were {}", m_handlesAfter, m_handlesBefore));
}

void Soak::checkStore(const SoakHost& host) {
    const auto store = kiv::makeObject<kiv::MemoryStore>(false);
    check(kiv::StoreFile::load(store.get(), folder() + "/soak.store"), "the store can't be read");
    size_t lost = 0;
    for (const auto& [name, value] : host.getOptionValues()) {
        kiv::Item key("options");
        key.addString(name.c_str());
        const kiv::Item* stored = store->get(key);
        lost += !stored || *stored != kiv::Item(value.c_str());
    }
    check(lost == 0, fmt::format("{} options are not in the store", lost));
    int64_t lines = 0;
    const std::string fault = SoakHost::checkLog(store.get(), lines);
    check(fault.empty(), fault);
    fmt::print(
        "\n{} options as they were set last, {} lines of the log in a row, {} handles at rest before, {} after\n",
        host.getOptionValues().size(), lines, m_handlesBefore, m_handlesAfter);
}

constexpr double leastMinutes = 0.5;

Options readOptions(const std::vector<std::string>& arguments) {
    Options options;
    options.seed = static_cast<unsigned>(kiv::System::getTime64());
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--seed" && i + 1 < arguments.size())
            options.seed = static_cast<unsigned>(std::stoul(arguments[++i]));
        else
            options.minutes = std::stod(arguments[i]);
    }
    return options;
}

} // namespace

int main(int count, char** values) {
    const std::vector<std::string> arguments = kiv::platform::commandLineArguments(count, values);
    if (arguments.size() == 2 && arguments[0] == "--plugins") {
        support::useBinaryStreams();
        return SoakWorker::main(arguments[1]);
    }
    const Options options = readOptions(arguments);
    if (options.minutes < leastMinutes) {
        fmt::print("soak: it takes {} minutes at least to fill the log\n", leastMinutes);
        return 2;
    }
    fmt::print("soak: {} minutes, seed {}\n\n", options.minutes, options.seed);
    std::fflush(stdout);
    Silence silence;
    kiv::internal::OutputSink* const before = kiv::internal::setStandardOutputSink(&silence);
    const bool isGood = Soak(options).run();
    kiv::internal::setStandardOutputSink(before);
    fmt::print("soak: {} after {} minutes, seed {}\n", isGood ? "nothing was lost, nothing has grown," : "FAILED",
               options.minutes, options.seed);
    return isGood ? 0 : 1;
}
