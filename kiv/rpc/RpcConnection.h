#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/data/Packet.h"
#include "kiv/rpc/FileTransfer.h"
#include "kiv/rpc/RpcChannel.h"
#include "kiv/rpc/RpcProtocol.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/tasks/TaskQueue.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kiv::internal {

class RpcPeerCall;

// What is behind an RpcChannel. It lives on, closed, while a call of the peer has not gone yet, and while one of its
// functions is at work. Nothing of the user's but Send, handlers and rights is called before a packet or a tick is
// done: what users are to hear waits in m_ready. What arrives while something is sent waits, too.
class RpcConnection : public std::enable_shared_from_this<RpcConnection> {
public:
    RpcConnection(RpcChannel::Send send, RpcProvider* provider);
    RpcConnection(const RpcConnection&) = delete;
    RpcConnection& operator=(const RpcConnection&) = delete;

    // As the channel's.
    uint32_t call(RpcChannel::Call call);
    void cancel(uint32_t number);
    unsigned getOpenCalls() const { return static_cast<unsigned>(m_calls.size()); }
    bool onPacket(Packet* packet);
    void tick();
    void close(const char* reason);
    void open();
    bool isOpen() const { return m_isOpen; }
    // Closes it for good.
    void destroy(const char* reason);

    // For calls of the peer.
    bool hasRight(const char* right) const;
    Object* getCaller() const { return m_isOpen ? caller : nullptr; }
    String getTarget(const char* kind) const;
    void finish(RpcPeerCall& call);
    void abandon(const RpcPeerCall& call);
    // Begins to move the call's next file. A failure is told to the call.
    void moveNextFile(RpcPeerCall& call);
    // Has the call's event handlers called.
    void announce(RpcPeerCall& call);

    std::function<bool(const char*)> rights;
    Set<String> rightNames;
    // Of methods. This one is open to everybody whom a transport lets call at all.
    Map<String, String> requiredRights{{"backup_data", "rpc:backup_data"}};
    Object* caller = nullptr;
    Map<String, String> targets;
    uint64_t maximumFileSize = uint64_t{1} << 32;
    // Calls of peers that somebody holds, also those that are over, and the bytes of their arguments.
    size_t heldCalls = 0;
    uint64_t heldBytes = 0;

private:
    struct OpenCall {
        RpcChannel::Call call;
        RpcContextInternal::Files received;
        uint32_t lastSign;
        size_t opened = 0;          // files, by the peer
        uint64_t receivedBytes = 0; // of them, as announced
    };

    // A file on its way. One of `out` and `in` is there.
    struct Transfer {
        uint32_t call = 0;
        SmartPointer<RpcPeerCall> peerCall; // null for a call of ours
        String name;
        String path;
        std::unique_ptr<OutgoingFile> out;
        std::shared_ptr<IncomingFile> in;
        uint32_t lastSign = 0;
        std::optional<uint64_t> total; // of `in`, once it is known
        uint64_t pulled = 0;           // bytes that were asked for
        size_t pulls = 0;              // that `out` has not answered yet
        bool isEndSent = false;
        bool isFlushing = false; // `in`, on a thread of the pool
    };
    // Whether it is for a call of ours, and its number.
    using TransferKey = std::pair<bool, uint32_t>;
    using Transfers = std::map<TransferKey, Transfer>;
    using Handler = void (RpcConnection::*)(const Packet&);

    static const PacketScheme* schemeOf(short id, Handler& handler);
    void handle(Packet& packet);
    void onRequest(const Packet& packet);
    void onAnswer(const Packet& packet);
    void onCancel(const Packet& packet);
    void onFileOpen(const Packet& packet);
    void onFilePull(const Packet& packet);
    void onFilePiece(const Packet& packet);
    void onFileEnd(const Packet& packet);

    bool send(Packet* packet);
    void sendFailure(uint32_t number, const char* reason);
    void deliver();
    void handleDeferred();
    // One line for a packet that is not taken, fewer when there are many. Late: may come when a call or a file ends.
    void refuse(const char* what, bool isLate = false);
    void renewLimits();
    static bool isAfter(uint32_t number, uint32_t other) { return static_cast<int32_t>(number - other) > 0; }
    static std::string readReason(const Packet& packet, const PacketField& field);
    void sendCancel(uint32_t number);
    void endCall(uint32_t number, RpcChannel::Answer&& answer);
    void failCall(uint32_t number, const char* reason);
    void endPeerCall(RpcPeerCall& call, const char* reason);
    void expire();
    void endAll();

    // Of the packet's number and role. Null, and a line, when there is none.
    template <class Scheme>
    Transfer* findTransfer(const Packet& packet, const Scheme& scheme, TransferKey& key);
    // Both open one end of a file; empty, or why it can't be.
    std::string openOwn(Transfer& transfer, bool isOut) const;
    std::string openForPeer(OpenCall& open, RpcProtocol::Direction direction, Transfer& transfer) const;
    size_t countTransfers(bool isOurs) const;
    SmartPointer<Packet> filePacket(const RpcProtocol::FileScheme& scheme, TransferKey key) const;
    // Ask for pieces, resp. send those that were asked for, as many as may be under way.
    void pull(TransferKey key);
    void serve(TransferKey key);
    void serveAll();
    // Put files into place: one that is all on the disk, resp. those that are by now.
    void place(TransferKey key);
    void placeFlushed();
    void sendEnd(TransferKey key, const Sha256::Digest* digest, uint64_t size, const std::string& reason);
    // `reason` empty: the file is where it should be.
    void endTransfer(TransferKey key, const std::string& reason);
    // The peer is told, too.
    void failTransfer(TransferKey key, const std::string& reason);
    // True when there were any.
    bool dropTransfers(uint32_t call, bool isOurs);
    void expireTransfers(uint32_t time);
    void touch(Transfer& transfer);
    // Counts a file of that size as received for its call; false when it would be more than a call may bring.
    bool takeBytes(const Transfer& transfer, uint64_t total);

    RpcChannel::Send m_send;
    SmartPointer<RpcProvider> m_provider;
    bool m_isOpen = true;
    bool m_isDestroyed = false;
    String m_closeReason;
    unsigned m_sendDepth = 0;
    std::deque<SmartPointer<Packet>> m_deferred; // arrived while something was sent
    std::deque<std::function<void()>> m_ready;   // what users are to hear

    std::map<uint32_t, OpenCall> m_calls;
    uint32_t m_lastNumber = 0;
    std::map<uint32_t, RpcPeerCall*> m_peerCalls;
    std::optional<uint32_t> m_lastRequest; // of the peer

    Transfers m_transfers;
    uint32_t m_lastTransfer = 0;
    std::optional<uint32_t> m_lastPeerTransfer;
    TransferKey m_lastServed;
    unsigned m_pieces = 0;                // sent since the last tick
    SmartPointer<TaskQueue> m_flushQueue; // made with the first large file

    uint32_t m_refusalTime;
    unsigned m_refusals = 0; // since then
    unsigned m_misfits = 0;
};

// A call of the peer, which a handler here answers.
class RpcPeerCall final : public RpcContextInternal {
    KIV_OBJECT(RpcPeerCall, RpcContextInternal)
public:
    RpcPeerCall(std::shared_ptr<RpcConnection> connection, uint32_t number, const char* method, Item arguments);
    ~RpcPeerCall() override;

    void finish() override;
    String getFileTransferTargetPath(const char* kind) override;
    void initiateFileTransfer(int direction, const Files& files) override;
    bool getFileTransferStatus(int& percent, String& text) override;
    bool hasRight(const char* right) override;
    Object* getCaller() override;

    uint32_t getNumber() const { return m_number; }
    int getDirection() const { return m_direction; }
    // Requires: a file is being moved, or about to be.
    const Pair<String, String>& getFile() const { return m_files[m_index]; }
    bool isOpen() const { return m_isOpen; }
    // Nobody waits for it any more.
    void end(const char* reason);
    void onProgress(uint64_t size, uint64_t total);
    void onFileEnd(const std::string& reason);

    bool isAnnounced = false;   // the connection's
    uint64_t receivedBytes = 0; // the same

private:
    enum class Moving { Nothing, Files, Over, Failed };

    const std::shared_ptr<RpcConnection> m_connection;
    const uint32_t m_number;
    bool m_isOpen = true;
    Moving m_moving = Moving::Nothing;
    int m_direction = 0;
    Files m_files;
    size_t m_index = 0;
    double m_share = 0; // of the file that is being moved
    String m_failure;
};

} // namespace kiv::internal
