#pragma once

#include "kiv/process/Process.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace support {

inline const std::string childProgram = KIV_TEST_CHILD;
inline const bool isWindows = std::string_view(KIV_TEST_CHILD).ends_with(".exe");

// A process with the insides that tests look at, and the verbs they wait by. A child outlives no test.
class Child : public kiv::Process {
public:
    using Process::close_stdin;
    using Process::error;
    using Process::error_text;

    ~Child() override { terminate(true); }

    bool start(std::vector<std::string> arguments, bool isKilledWithParent = false) {
        arguments.insert(arguments.begin(), childProgram);
        const kiv::List<kiv::String> list(arguments.begin(), arguments.end());
        return spawn(childProgram, list, nullptr, isKilledWithParent);
    }

    // Ticks until `isDone`, which a child that never comes to it does not hold up for ever.
    bool tickUntil(const std::function<bool()>& isDone) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < end) {
            tick();
            if (isDone()) return true;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return false;
    }
    // Until it has ended; its exit status.
    int32_t finish() {
        EXPECT_TRUE(tickUntil([&] { return exit_status() != stillActive; }));
        return exit_status();
    }
    // The next line of its output, waited for.
    std::string nextLine() {
        kiv::String line;
        EXPECT_TRUE(tickUntil([&] { return readLine(line); }));
        return line;
    }
    std::vector<std::string> lines() {
        std::vector<std::string> all;
        for (kiv::String line; readLine(line);) all.push_back(line);
        return all;
    }
};

} // namespace support
