#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/rpc/RpcContext.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace kiv {

class Packet;
class RpcProvider;

namespace internal {
class RpcConnection;
}

// Remote calls over any two-way line of packets, as the streams of a child process (doc/formats/rpc.md): each end calls
// what the provider of the other answers. The owner of the line sends what it is told to, hands in what arrives, calls
// tick() once a frame, and says when the peer is gone or another one has come.
// Ownership: counted. Threads: one, that of the provider. Failures: a call ends exactly once, with an answer or a
// failure. What a peer sends is checked, bounded, and else refused with a log line.
class KIV_API RpcChannel : public Object {
    KIV_OBJECT(RpcChannel, Object)
public:
    struct Answer {
        bool isGood = false;
        String error; // of a failed call: why
        Item result;
        RpcContextInternal::Files files; // that have come whole: names and paths here
    };
    using OnAnswer = std::function<void(const Answer&)>;
    // False when the line takes nothing any more.
    using Send = std::function<bool(Packet*)>;

    struct Call {
        String method;
        Item arguments;
        OnAnswer onAnswer;               // may be empty
        unsigned timeout = 30000;        // milliseconds without a sign of the call; 0 is none
        RpcContextInternal::Files files; // what the peer may fetch: names and paths here
        String receivingDirectory;       // where files that the peer sends with its answer go; empty: they are refused
    };

    // `provider` null: all calls of the peer are refused as unknown.
    explicit RpcChannel(Send send, RpcProvider* provider = nullptr);
    RpcChannel(const RpcChannel&) = delete;
    RpcChannel& operator=(const RpcChannel&) = delete;
    ~RpcChannel() override;

    // What the peer may do and who it is; none and nobody at first. The object is not owned.
    void setRights(std::function<bool(const char* right)> hasRight);
    void addRight(const char* right);
    // The method is refused to a peer without the right before its handler hears of it; for handlers that ask for none.
    // "backup_data" is one, and needs "rpc:backup_data" from the beginning.
    void requireRight(const char* method, const char* right);
    void setCaller(Object* caller);
    // See RpcContextInternal::getFileTransferTargetPath(); an empty path takes the place away.
    void setTransferTarget(const char* kind, const char* directory);
    // Bytes of all files together that are fetched from or sent by the peer for one call; 4 GiB at first.
    void setMaximumFileSize(uint64_t size);

    // Makes a call; its number, for cancel(). OnAnswer is called by a later onPacket(), tick() or close(), never here.
    uint32_t call(Call call);
    uint32_t call(const char* method, const Item& arguments, OnAnswer onAnswer);
    // The call ends with the failure "cancelled", at once.
    void cancel(uint32_t number);
    unsigned getOpenCalls() const;

    // Takes a packet that has arrived; false when it is none of remote calls, and the owner's.
    bool onPacket(Packet* packet);
    // Timeouts and the next pieces of files. Never waits.
    void tick();
    // The peer is gone: all calls of ours fail with `reason`, those of the peer are dropped, and so are the files that
    // are not whole. open() says that there is a peer again; a channel begins open.
    void close(const char* reason);
    void open();
    bool isOpen() const;
    // close(), for good, with the calls that are made by those who hear of it: the last words come before this returns,
    // not with the destructor.
    void end(const char* reason);

private:
    const std::shared_ptr<internal::RpcConnection> m_connection;
};

} // namespace kiv
