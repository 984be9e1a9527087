// Calls and answers. Files are in RpcTransfers.cpp.

#include "kiv/rpc/RpcConnection.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/ForeignText.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/rpc/RpcProtocol.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace kiv::internal {

namespace {

constexpr size_t mostPeerCalls = 1024;
constexpr uint64_t mostPeerBytes = uint64_t{64} << 20; // of their arguments
// In a second: lines about refused packets, and broken packets, each of which is a line, before no more are looked at.
constexpr unsigned mostRefusals = 10;
constexpr unsigned mostMisfits = 10;
constexpr int32_t refusalInterval = 1000;

uint32_t now() {
    return Clock::current().getTime();
}

// False when it would make the packet larger than lines take.
bool setItem(Packet& packet, const PacketField& field, const Item& item) {
    if (item.getPlainSize() > Packet::maximumStreamedPayload) return false;
    packet.setItem(field, item);
    return packet.getPayloadSize() <= Packet::maximumStreamedPayload;
}

} // namespace

RpcConnection::RpcConnection(RpcChannel::Send send, RpcProvider* provider)
    : m_send(std::move(send)), m_provider(provider), m_refusalTime(now()) {}

// ---- The line.

bool RpcConnection::send(Packet* packet) {
    if (!m_isOpen || !m_send) return false;
    struct Depth {
        explicit Depth(unsigned& depth) : value(depth) { ++value; }
        ~Depth() { --value; }
        unsigned& value;
    };
    bool isSent;
    {
        const Depth depth(m_sendDepth);
        isSent = m_send(packet);
    }
    if (m_sendDepth == 0 && m_isDestroyed) endAll();
    return isSent;
}

void RpcConnection::deliver() {
    if (m_sendDepth > 0) return;
    // What is added meanwhile has its turn later: somebody may call again and again.
    for (size_t count = m_ready.size(); count > 0 && !m_ready.empty(); --count) {
        const std::function<void()> tell = std::move(m_ready.front());
        m_ready.pop_front();
        tell();
    }
}

void RpcConnection::renewLimits() {
    const uint32_t time = now();
    if (Clock::timeDifference(time, m_refusalTime) < refusalInterval) return;
    m_refusalTime = time;
    m_refusals = m_misfits = 0;
}

void RpcConnection::refuse(const char* what, bool isLate) {
    renewLimits();
    if (++m_refusals > mostRefusals) return;
    const bool isLast = m_refusals == mostRefusals;
    logging::MessageStream(isLate ? 0 : 2, 2)
        << "[RPC] a packet is refused: " << what << (isLast ? "; more of this second are not told of" : "");
}

const PacketScheme* RpcConnection::schemeOf(short id, Handler& handler) {
    const struct {
        const PacketScheme* scheme;
        Handler handler;
    } all[] = {
        {&RpcProtocol::Request, &RpcConnection::onRequest},   {&RpcProtocol::Answer, &RpcConnection::onAnswer},
        {&RpcProtocol::FilePull, &RpcConnection::onFilePull}, {&RpcProtocol::FilePiece, &RpcConnection::onFilePiece},
        {&RpcProtocol::FileOpen, &RpcConnection::onFileOpen}, {&RpcProtocol::FileEnd, &RpcConnection::onFileEnd},
        {&RpcProtocol::Cancel, &RpcConnection::onCancel},
    };
    for (const auto& each : all) {
        if (each.scheme->getID() != id) continue;
        handler = each.handler;
        return each.scheme;
    }
    return nullptr;
}

bool RpcConnection::onPacket(Packet* packet) {
    Handler handler;
    if (!packet || !schemeOf(packet->getID(), handler)) return false;
    const auto self = shared_from_this();
    if (m_sendDepth > 0) {
        m_deferred.push_back(makeObject<Packet>(*packet));
        return true;
    }
    handleDeferred();
    handle(*packet);
    handleDeferred();
    deliver();
    return true;
}

void RpcConnection::handleDeferred() {
    for (size_t count = m_deferred.size(); count > 0 && !m_deferred.empty(); --count) {
        const SmartPointer<Packet> packet = std::move(m_deferred.front());
        m_deferred.pop_front();
        handle(*packet);
    }
}

void RpcConnection::handle(Packet& packet) {
    if (!m_isOpen) return refuse("nobody is expected there");
    Handler handler;
    const PacketScheme* const scheme = schemeOf(packet.getID(), handler);
    renewLimits();
    if (m_misfits >= mostMisfits) return;
    if (packet.fit(scheme))
        (this->*handler)(packet);
    else
        ++m_misfits;
}

void RpcConnection::tick() {
    const auto self = shared_from_this();
    if (m_sendDepth > 0) return;
    handleDeferred();
    if (m_isOpen) placeFlushed();
    if (m_isOpen) expire();
    if (m_isOpen) serveAll();
    deliver();
}

void RpcConnection::expire() {
    const uint32_t time = now();
    Vector<uint32_t> late;
    for (const auto& [number, open] : m_calls) {
        const auto limit = static_cast<int32_t>(std::min<unsigned>(open.call.timeout, INT32_MAX));
        if (limit > 0 && Clock::timeDifference(time, open.lastSign) >= limit) late.push_back(number);
    }
    for (const uint32_t number : late) {
        sendCancel(number);
        failCall(number, "timeout");
    }
    expireTransfers(time);
}

void RpcConnection::close(const char* reason) {
    const auto self = shared_from_this();
    m_isOpen = false;
    m_closeReason = reason && *reason ? reason : "the peer is gone";
    m_deferred.clear();
    while (!m_calls.empty()) failCall(m_calls.begin()->first, m_closeReason);
    Vector<SmartPointer<RpcPeerCall>> peerCalls;
    for (const auto& [number, call] : std::exchange(m_peerCalls, {})) peerCalls.emplace_back(call);
    const Transfers dropped = std::exchange(m_transfers, {});
    for (const auto& call : peerCalls) endPeerCall(*call, m_closeReason);
    deliver();
}

void RpcConnection::open() {
    const auto self = shared_from_this();
    if (m_isOpen) close("another peer has come");
    if (m_isDestroyed) return; // by now, or by somebody who was told
    m_isOpen = true;
    m_lastRequest.reset();
    m_lastPeerTransfer.reset();
}

void RpcConnection::destroy(const char* reason) {
    const auto self = shared_from_this();
    m_isDestroyed = true;
    close(reason);
    if (m_sendDepth == 0) endAll();
}

// What is told may call again, and be told of that.
void RpcConnection::endAll() {
    for (int round = 0; round < 8; ++round) deliver();
    m_ready.clear();
    m_send = nullptr;
    rights = nullptr;
    m_provider.reset();
}

// What a peer says may be logged, and is not believed.
std::string RpcConnection::readReason(const Packet& packet, const PacketField& field) {
    std::string text = logging::foreignText(packet.getString(field)).to_std_string();
    return text.empty() ? "failed" : text;
}

// ---- Calls of ours.

uint32_t RpcConnection::call(RpcChannel::Call call) {
    const auto self = shared_from_this();
    do ++m_lastNumber;
    while (m_lastNumber == 0 || m_calls.contains(m_lastNumber));
    const uint32_t number = m_lastNumber;
    const auto packet = makeObject<Packet>(&RpcProtocol::Request, short{0});
    const char* failure = nullptr;
    packet->set(RpcProtocol::Request.call, number);
    if (!m_isOpen) {
        failure = m_closeReason;
    } else if (call.method.size() >= RpcProtocol::longestName) {
        failure = "the method's name is too long";
    } else {
        packet->setString(RpcProtocol::Request.method, call.method);
        if (!setItem(*packet, RpcProtocol::Request.arguments, call.arguments)) failure = "the arguments are too large";
    }
    m_calls.emplace(number, OpenCall{std::move(call), {}, now(), 0});
    if (failure)
        failCall(number, failure);
    else if (!send(packet.get()))
        failCall(number, "the line takes nothing");
    return number;
}

void RpcConnection::sendCancel(uint32_t number) {
    const auto packet = makeObject<Packet>(&RpcProtocol::Cancel, short{0});
    packet->set(RpcProtocol::Cancel.call, number);
    send(packet.get());
}

void RpcConnection::cancel(uint32_t number) {
    const auto self = shared_from_this();
    if (!m_calls.contains(number)) return;
    sendCancel(number);
    failCall(number, "cancelled");
    deliver();
}

void RpcConnection::failCall(uint32_t number, const char* reason) {
    RpcChannel::Answer answer;
    answer.error = reason;
    endCall(number, std::move(answer));
}

void RpcConnection::endCall(uint32_t number, RpcChannel::Answer&& answer) {
    auto ended = m_calls.extract(number);
    if (!ended) return; // meanwhile, by what Send has brought about
    dropTransfers(number, true);
    OpenCall& open = ended.mapped();
    answer.files = std::move(open.received);
    if (!open.call.onAnswer) return;
    m_ready.push_back(
        [method = std::move(open.call.method), onAnswer = std::move(open.call.onAnswer), answer = std::move(answer)] {
            const auto report = [&](const char* what) {
                logging::MessageStream(3, 2) << "[RPC:" << method << "] the answer was not taken: " << what;
            };
            try {
                onAnswer(answer);
            } catch (const std::exception& failure) {
                report(failure.what());
            } catch (...) {
                report("unknown exception");
            }
        });
}

void RpcConnection::onAnswer(const Packet& packet) {
    const auto& scheme = RpcProtocol::Answer;
    const uint32_t number = packet.get(scheme.call);
    if (!m_calls.contains(number)) return refuse("an answer to no open call", !isAfter(number, m_lastNumber));
    RpcChannel::Answer answer;
    answer.isGood = packet.get(scheme.status) == RpcProtocol::Status::Good;
    if (answer.isGood)
        answer.result = packet.getItemCopy(scheme.result);
    else
        answer.error = readReason(packet, scheme.error);
    endCall(number, std::move(answer));
}

// ---- Calls of the peer.

bool RpcConnection::hasRight(const char* right) const {
    if (!m_isOpen || !right) return false;
    // A copy, and another look: it may end the channel.
    const auto ask = rights;
    return rightNames.contains(String(right)) || (ask && ask(right) && m_isOpen);
}

String RpcConnection::getTarget(const char* kind) const {
    const auto found = targets.find(String(kind));
    return found != targets.end() ? found->second : String();
}

void RpcConnection::onRequest(const Packet& packet) {
    const auto& scheme = RpcProtocol::Request;
    const uint32_t number = packet.get(scheme.call);
    // Numbers ascend, round and round.
    if (m_lastRequest && !isAfter(number, *m_lastRequest)) return refuse("a request with a number that was used");
    m_lastRequest = number;
    const char* const method = packet.getString(scheme.method);
    // Cancelling a call does not make who answers it let go of it.
    if (heldCalls >= mostPeerCalls || heldBytes >= mostPeerBytes) {
        refuse("too many calls are open");
        return sendFailure(number, "too many calls are open");
    }
    const SmartPointer<RpcProvider> provider = m_provider;
    if (!provider || !provider->hasRPC(method)) {
        refuse("there is no such method");
        return sendFailure(number, "there is no such method");
    }
    const auto required = requiredRights.find(method);
    if (required != requiredRights.end() && !hasRight(required->second.c_str())) {
        refuse("there is no right to this method");
        return sendFailure(number, "there is no right to this method");
    }
    const auto call = makeObject<RpcPeerCall>(shared_from_this(), number, method, packet.getItemCopy(scheme.arguments));
    m_peerCalls.emplace(number, call.get());
    provider->call(RpcContext(call.get()));
}

void RpcConnection::onCancel(const Packet& packet) {
    const uint32_t number = packet.get(RpcProtocol::Cancel.call);
    const auto found = m_peerCalls.find(number);
    if (found == m_peerCalls.end()) {
        // The answer may just be on its way.
        if (!m_lastRequest || isAfter(number, *m_lastRequest)) refuse("the end of a call that was not made");
        return;
    }
    const SmartPointer<RpcPeerCall> call(found->second);
    m_peerCalls.erase(found);
    dropTransfers(number, false);
    endPeerCall(*call, "cancelled");
}

void RpcConnection::endPeerCall(RpcPeerCall& call, const char* reason) {
    call.end(reason);
    announce(call);
}

void RpcConnection::announce(RpcPeerCall& call) {
    if (std::exchange(call.isAnnounced, true)) return;
    m_ready.push_back([call = SmartPointer<RpcPeerCall>(&call)] {
        call->isAnnounced = false;
        call->callEventHandlers();
        if (!call->isOpen()) call->clearEventHandlers();
    });
}

void RpcConnection::finish(RpcPeerCall& call) {
    const auto self = shared_from_this();
    const uint32_t number = call.getNumber();
    const auto found = m_peerCalls.find(number);
    if (found == m_peerCalls.end() || found->second != &call) return;
    m_peerCalls.erase(found);
    const auto log = [&](int level, const char* what) {
        logging::MessageStream(level, 2) << "[RPC:" << call.getMethodName() << "] " << what;
    };
    if (dropTransfers(number, false)) log(2, "the call ends before its files have arrived");
    const auto packet = makeObject<Packet>(&RpcProtocol::Answer, short{0});
    packet->set(RpcProtocol::Answer.call, number);
    if (!setItem(*packet, RpcProtocol::Answer.result, call.getResult())) {
        log(3, "the result is too large to be sent");
        return sendFailure(number, "the result is too large");
    }
    send(packet.get());
}

void RpcConnection::abandon(const RpcPeerCall& call) {
    const auto self = shared_from_this();
    const uint32_t number = call.getNumber();
    const auto found = m_peerCalls.find(number);
    if (found == m_peerCalls.end() || found->second != &call) return;
    m_peerCalls.erase(found);
    logging::MessageStream(3, 2) << "[RPC:" << call.getMethodName() << "] the call was not answered";
    sendFailure(number, "the call was not answered");
}

void RpcConnection::sendFailure(uint32_t number, const char* reason) {
    const auto& scheme = RpcProtocol::Answer;
    const auto packet = makeObject<Packet>(&scheme, short{0});
    packet->set(scheme.call, number);
    packet->set(scheme.status, RpcProtocol::Status::Failed);
    packet->setString(scheme.error, reason);
    send(packet.get());
}

} // namespace kiv::internal
