#include "tests/soak/Traffic.h"

#include "kiv/core/Buffer.h"
#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/core/Sha256.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/tasks/Alarm.h"

#include <filesystem>
#include <stdexcept>

using kiv::Item;
using kiv::RpcChannel;
using kiv::RpcContext;
using kiv::SmartPointer;

namespace {

constexpr unsigned largestFile = 600000; // three pieces
constexpr unsigned timeout = 5000;       // milliseconds

std::string digestOf(const std::string& path) {
    kiv::Buffer bytes;
    if (!bytes.loadFromFile(path.c_str(), false)) return "none";
    kiv::Sha256 sum;
    sum.add(bytes.getBytePointer(), bytes.getSize());
    return kiv::Sha256::toText(sum.finish());
}

void writeFile(const std::string& path, uint32_t seed) {
    std::mt19937 random(seed);
    kiv::Buffer bytes;
    bytes.resize(static_cast<unsigned>(random() % largestFile));
    for (unsigned i = 0; i < bytes.getSize(); ++i) bytes.getBytePointer()[i] = static_cast<uint8_t>(random());
    bytes.saveToFile(path.c_str());
}

// Calls back once, when the files are moved or have failed.
void whenMoved(const RpcContext& call, std::function<void(const RpcContext&, bool)> then) {
    call.addEventHandler([then = std::move(then)](const RpcContext& context) {
        int percent = 0;
        kiv::String text;
        if (context.getFileTransferStatus(percent, text) && percent >= 0 && percent < 100) return true;
        then(context, percent == 100);
        return false;
    });
}

void finishLater(const RpcContext& call) {
    const int delay = static_cast<int>(kiv::Random::current().randomUInt() % 50);
    const auto alarm = kiv::makeObject<kiv::Alarm>(std::function<void()>([call] { call.finish(); }));
    alarm->scheduleIn(delay);
}

void takeFile(const RpcContext& call, const std::string& folder) {
    static uint64_t count = 0;
    const std::string path = folder + "/taken" + std::to_string(++count);
    whenMoved(call, [path](const RpcContext& context, bool isGood) {
        context.result().addString(isGood ? digestOf(path).c_str() : "failed");
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        context.finish();
    });
    call.initiateFileTransfer(RpcContext::FetchFromCaller, {{"file", path}});
}

void giveFile(const RpcContext& call, const std::string& folder) {
    static uint64_t count = 0;
    const std::string path = folder + "/given" + std::to_string(++count);
    writeFile(path, kiv::Random::current().randomUInt());
    whenMoved(call, [path](const RpcContext& context, bool) {
        context.result().addString(digestOf(path).c_str());
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        context.finish();
    });
    call.initiateFileTransfer(RpcContext::SendToCaller, {{"file", path}});
}

} // namespace

void Traffic::answerCalls(kiv::RpcProvider& provider, const std::string& folder) {
    const auto add = [&](const char* name, kiv::RpcProvider::Handler handler) {
        provider.addRPC(name, std::move(handler), nullptr, nullptr);
    };
    add("echo", [](const RpcContext& call) {
        call.result().concatItem(call.getArguments());
        call.finish();
        call.finish(); // once is enough
    });
    add("echo_later", [](const RpcContext& call) {
        call.result().concatItem(call.getArguments());
        finishLater(call);
    });
    add("drop", [](const RpcContext&) {});
    add("throw", [](const RpcContext&) { throw std::runtime_error("not today"); });
    add("take_file", [folder](const RpcContext& call) { takeFile(call, folder); });
    add("give_file", [folder](const RpcContext& call) { giveFile(call, folder); });
}

Traffic::Traffic(RpcChannel& channel, std::string folder, unsigned seed)
    : m_channel(channel), m_folder(std::move(folder)), m_random(seed) {
    std::filesystem::create_directories(m_folder);
}

void Traffic::tick(unsigned mostOpen) {
    if (!m_channel.isOpen() || m_ledger.getOpen() >= mostOpen) return;
    if (kiv::Clock::current().getTime() == m_lastTime) return;
    m_lastTime = kiv::Clock::current().getTime();
    switch (m_random() % 16) {
    case 0:
        return callFailing("drop");
    case 1:
        return callFailing("none of that name");
    case 2:
        return callFailing("throw");
    case 3:
    case 4:
        return m_movingCall != 0 ? callEcho() : offerFile();
    case 5:
    case 6:
        return m_movingCall != 0 ? callEcho() : wantFile();
    default:
        return callEcho();
    }
}

void Traffic::make(RpcChannel::Call call, IsRight isRight) {
    const uint64_t number = m_ledger.begin();
    call.timeout = timeout;
    call.onAnswer = [this, number, isRight = std::move(isRight)](const RpcChannel::Answer& answer) {
        m_ledger.end(number, answer.isGood);
        if (number == m_movingCall) m_movingCall = 0;
        if (answer.isGood && !isRight(answer)) ++m_wrong;
    };
    m_channel.call(std::move(call));
}

void Traffic::callEcho() {
    Item arguments(m_random());
    arguments.addString(std::string(m_random() % 3000, 'x').c_str());
    RpcChannel::Call call;
    call.method = m_random() % 2 == 0 ? "echo" : "echo_later";
    call.arguments = arguments;
    make(std::move(call), [arguments](const RpcChannel::Answer& answer) { return answer.result == arguments; });
}

// A handler that throws gives an empty answer.
void Traffic::callFailing(const char* method) {
    RpcChannel::Call call;
    call.method = method;
    make(std::move(call), [](const RpcChannel::Answer& answer) { return answer.result.empty(); });
}

void Traffic::offerFile() {
    const std::string path = m_folder + "/offered";
    writeFile(path, static_cast<uint32_t>(m_random()));
    RpcChannel::Call call;
    call.method = "take_file";
    call.files = {{"file", path}};
    m_movingCall = m_ledger.getMade() + 1;
    const Item expected(digestOf(path).c_str());
    make(std::move(call), [this, expected](const RpcChannel::Answer& answer) {
        ++m_files;
        return answer.result == expected;
    });
}

void Traffic::wantFile() {
    RpcChannel::Call call;
    call.method = "give_file";
    call.receivingDirectory = m_folder;
    m_movingCall = m_ledger.getMade() + 1;
    make(std::move(call), [this](const RpcChannel::Answer& answer) {
        ++m_files;
        return answer.result == Item(digestOf(m_folder + "/file").c_str());
    });
}
