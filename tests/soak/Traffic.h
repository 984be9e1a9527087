#pragma once

#include "tests/soak/Ledger.h"

#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcContext.h"

#include <functional>
#include <random>
#include <string>

namespace kiv {
class RpcProvider;
}

// What both ends of a line do to each other: calls that are answered, that fail in every way there is, and that move
// files, made all the time, a few at once.
class Traffic {
public:
    // Files are moved out of and into the folder, which is for this alone.
    Traffic(kiv::RpcChannel& channel, std::string folder, unsigned seed);

    // The handlers of the calls. Files that come along go into the folder.
    static void answerCalls(kiv::RpcProvider& provider, const std::string& folder);

    // Once a frame: makes calls up to so many that are open.
    void tick(unsigned mostOpen);
    const Ledger& getLedger() const { return m_ledger; }
    // Answers other than they had to be.
    uint64_t getWrong() const { return m_wrong; }
    uint64_t getFiles() const { return m_files; }

private:
    using IsRight = std::function<bool(const kiv::RpcChannel::Answer& answer)>;

    void callEcho();
    void callFailing(const char* method);
    void offerFile();
    void wantFile();
    // `isRight` is asked of good answers only.
    void make(kiv::RpcChannel::Call call, IsRight isRight);

    kiv::RpcChannel& m_channel;
    const std::string m_folder;
    std::mt19937 m_random;
    Ledger m_ledger;
    uint64_t m_wrong = 0;
    uint64_t m_files = 0;
    uint64_t m_movingCall = 0; // one at a time, for each has the same names
    uint32_t m_lastTime = 0;
};
