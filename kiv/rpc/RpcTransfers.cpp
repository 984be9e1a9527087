// Files that are moved for calls: the end that gets a file pulls it, so that neither end is given more than it can
// take.

#include "kiv/core/Clock.h"
#include "kiv/files/Directory.h"
#include "kiv/platform/FileSystem.h"
#include "kiv/rpc/RpcConnection.h"
#include "kiv/tasks/LambdaTask.h"
#include "kiv/tasks/ThreadPool.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace kiv::internal {

using namespace RpcProtocol;

namespace {

constexpr unsigned window = 4;          // pieces that are asked for at once
constexpr size_t mostPulls = 8;         // the same of a peer, whose window may be another
constexpr unsigned mostPiecesATick = 4; // each is a millisecond, most of it for the digest
constexpr size_t mostTransfers = 64;
constexpr size_t mostFiles = 1024; // of one call
constexpr int32_t transferTimeout = 30000;

uint32_t now() {
    return Clock::current().getTime();
}

} // namespace

size_t RpcConnection::countTransfers(bool isOurs) const {
    return static_cast<size_t>(std::count_if(m_transfers.begin(), m_transfers.end(),
                                             [=](const auto& each) { return each.first.first == isOurs; }));
}

SmartPointer<Packet> RpcConnection::filePacket(const FileScheme& scheme, TransferKey key) const {
    auto packet = makeObject<Packet>(&scheme, short{0});
    packet->set(scheme.transfer, key.second);
    packet->set(scheme.isFromCaller, key.first ? 1 : 0);
    return packet;
}

// ---- Beginnings.

std::string RpcConnection::openOwn(Transfer& transfer, bool isOut) const {
    std::string reason;
    if (isOut) {
        transfer.out = OutgoingFile::open(transfer.path, reason);
    } else {
        transfer.in = std::make_shared<IncomingFile>(transfer.path);
        if (!transfer.in->getFailure().empty()) reason = "the file " + transfer.in->getFailure();
    }
    return reason;
}

void RpcConnection::moveNextFile(RpcPeerCall& call) {
    const auto self = shared_from_this();
    const bool isOut = call.getDirection() == RpcContext::SendToCaller;
    Transfer transfer;
    transfer.call = call.getNumber();
    transfer.peerCall.reset(&call);
    std::tie(transfer.name, transfer.path) = call.getFile();
    transfer.lastSign = now();
    std::string reason = transfer.name.size() >= longestName      ? "the name is too long"
                         : countTransfers(false) >= mostTransfers ? "too many files are on their way"
                                                                  : openOwn(transfer, isOut);
    if (!reason.empty()) return call.onFileEnd(reason);
    const TransferKey key(false, ++m_lastTransfer);
    const auto packet = makeObject<Packet>(&FileOpen, short{0});
    packet->set(FileOpen.call, transfer.call);
    packet->set(FileOpen.transfer, key.second);
    packet->set(FileOpen.direction, isOut ? Direction::ToCaller : Direction::FromCaller);
    packet->setString(FileOpen.name, transfer.name);
    m_transfers.insert_or_assign(key, std::move(transfer));
    if (!send(packet.get())) return endTransfer(key, "the line takes nothing");
    pull(key);
}

std::string RpcConnection::openForPeer(OpenCall& open, Direction direction, Transfer& transfer) const {
    const auto isOfThisCall = [&](const auto& each) { return each.first.first && each.second.call == transfer.call; };
    if (std::any_of(m_transfers.begin(), m_transfers.end(), isOfThisCall)) return "another one is on its way";
    if (countTransfers(true) >= mostTransfers) return "too many files are on their way";
    // Each is a sign of the call, which is to end some day.
    if (++open.opened > mostFiles) return "there are too many files";
    if (direction == Direction::FromCaller) {
        const auto& files = open.call.files;
        const auto found =
            std::find_if(files.begin(), files.end(), [&](const auto& file) { return file.first == transfer.name; });
        if (found == files.end()) return "there is no such file";
        transfer.path = found->second;
        return openOwn(transfer, true);
    }
    if (direction != Direction::ToCaller) return "there is no such direction";
    if (open.call.receivingDirectory.empty()) return "no files are wanted";
    if (!isPlainFileName(transfer.name)) return "this is no name of a file";
    transfer.path = Directory::join(open.call.receivingDirectory, transfer.name);
    // A link would lead elsewhere.
    if (platform::fileInfo(transfer.path).isLink) return "this is no name of a file";
    return openOwn(transfer, false);
}

void RpcConnection::onFileOpen(const Packet& packet) {
    const auto found = m_calls.find(packet.get(FileOpen.call));
    const TransferKey key(true, packet.get(FileOpen.transfer));
    if (found == m_calls.end())
        return refuse("a file for no open call", !isAfter(packet.get(FileOpen.call), m_lastNumber));
    if (m_lastPeerTransfer && !isAfter(key.second, *m_lastPeerTransfer))
        return refuse("a file with a number that was used");
    m_lastPeerTransfer = key.second;
    Transfer transfer;
    transfer.call = found->first;
    transfer.name = packet.getString(FileOpen.name);
    const std::string reason = openForPeer(found->second, packet.get(FileOpen.direction), transfer);
    if (!reason.empty()) {
        refuse(("a file, " + reason).c_str());
        return sendEnd(key, nullptr, 0, reason);
    }
    touch(m_transfers.insert_or_assign(key, std::move(transfer)).first->second);
    pull(key);
}

// ---- On the way.

template <class Scheme>
RpcConnection::Transfer* RpcConnection::findTransfer(const Packet& packet, const Scheme& scheme, TransferKey& key) {
    key = {packet.get(scheme.isFromCaller) == 0, packet.get(scheme.transfer)};
    const auto found = m_transfers.find(key);
    if (found != m_transfers.end()) return &found->second;
    const uint32_t last = key.first ? m_lastPeerTransfer.value_or(0) : m_lastTransfer;
    refuse("part of a file that is not on its way", !isAfter(key.second, last));
    return nullptr;
}

void RpcConnection::touch(Transfer& transfer) {
    transfer.lastSign = now();
    if (transfer.peerCall) return;
    const auto open = m_calls.find(transfer.call);
    if (open != m_calls.end()) open->second.lastSign = transfer.lastSign;
}

bool RpcConnection::takeBytes(const Transfer& transfer, uint64_t total) {
    const auto open = m_calls.find(transfer.call);
    if (!transfer.peerCall && open == m_calls.end()) return false;
    uint64_t& received = transfer.peerCall ? transfer.peerCall->receivedBytes : open->second.receivedBytes;
    const uint64_t limit =
        std::min(maximumFileSize, transfer.peerCall ? transfer.peerCall->getTransferLimit() : maximumFileSize);
    if (received > limit || total > limit - received) return false;
    received += total;
    return true;
}

// The transfer is looked up again whenever something was sent: the owner of the line may have closed it.
void RpcConnection::pull(TransferKey key) {
    for (;;) {
        const auto found = m_transfers.find(key);
        if (found == m_transfers.end() || !found->second.in) return;
        Transfer& transfer = found->second;
        // How long it is comes with the first piece.
        const uint64_t limit = transfer.total.value_or(transfer.pulled == 0 ? largestPiece : 0);
        const uint64_t underWay = transfer.pulled - transfer.in->getSize();
        if (transfer.pulled >= limit || underWay >= uint64_t{window} * largestPiece) return;
        const auto packet = filePacket(FilePull, key);
        packet->set(FilePull.offset, transfer.pulled);
        packet->set(FilePull.size, largestPiece);
        transfer.pulled = std::min(transfer.pulled + largestPiece, limit);
        send(packet.get());
    }
}

void RpcConnection::onFilePull(const Packet& packet) {
    TransferKey key;
    Transfer* const transfer = findTransfer(packet, FilePull, key);
    if (!transfer) return;
    if (!transfer->out) return refuse("a file is asked for at the wrong end");
    const uint64_t offset = packet.get(FilePull.offset), total = transfer->out->getTotal();
    const bool isFirst = transfer->pulls == 0 && !transfer->isEndSent;
    // Whole pieces only: each is a sign of the call, which smaller ones would keep open for as long as somebody likes.
    if (offset != transfer->pulled || (offset >= total && !(total == 0 && isFirst)) ||
        packet.get(FilePull.size) != largestPiece || transfer->pulls >= mostPulls)
        return refuse("a piece of a file that is not the next one is asked for");
    transfer->pulled += std::min<uint64_t>(largestPiece, total - offset);
    ++transfer->pulls;
    touch(*transfer);
    serve(key);
}

void RpcConnection::serveAll() {
    m_pieces = 0;
    Vector<TransferKey> keys;
    for (const auto& [key, transfer] : m_transfers) {
        if (transfer.pulls > 0) keys.push_back(key);
    }
    // In turns: the first ones may always have something to send.
    std::rotate(keys.begin(), std::upper_bound(keys.begin(), keys.end(), m_lastServed), keys.end());
    for (const TransferKey& key : keys) {
        if (m_pieces < mostPiecesATick) serve(m_lastServed = key);
    }
}

void RpcConnection::serve(TransferKey key) {
    std::vector<uint8_t> bytes;
    while (m_pieces < mostPiecesATick) {
        const auto found = m_transfers.find(key);
        if (found == m_transfers.end() || found->second.pulls == 0) return;
        Transfer& transfer = found->second;
        const uint64_t offset = transfer.out->getOffset(), total = transfer.out->getTotal();
        if (!transfer.out->read(largestPiece, bytes)) return failTransfer(key, "the file can't be read");
        --transfer.pulls;
        ++m_pieces;
        touch(transfer);
        const auto packet = filePacket(FilePiece, key);
        packet->set(FilePiece.offset, offset);
        packet->set(FilePiece.total, total);
        packet->setBuffer(FilePiece.bytes, bytes.data(), static_cast<unsigned>(bytes.size()));
        if (transfer.peerCall) transfer.peerCall->onProgress(offset + bytes.size(), total);
        const bool isLast = offset + bytes.size() == total;
        transfer.isEndSent = isLast;
        const Sha256::Digest digest = isLast ? transfer.out->finish() : Sha256::Digest();
        send(packet.get());
        if (isLast) return sendEnd(key, &digest, total, {});
    }
}

void RpcConnection::onFilePiece(const Packet& packet) {
    TransferKey key;
    Transfer* const transfer = findTransfer(packet, FilePiece, key);
    if (!transfer) return;
    if (!transfer->in) return refuse("a piece of a file comes from the wrong end");
    const uint64_t offset = packet.get(FilePiece.offset), total = packet.get(FilePiece.total);
    const ConstByteSpan bytes = packet.getByteSpan(FilePiece.bytes);
    const uint64_t size = transfer->in->getSize();
    const bool isExpected = offset == size && transfer->total.value_or(total) == total &&
                            (size < total || !transfer->total) && size + bytes.getSize() <= transfer->pulled &&
                            bytes.getSize() == std::min<uint64_t>(largestPiece, total - size);
    if (!isExpected) return refuse("a piece of a file that is not the next one");
    if (!transfer->total && !takeBytes(*transfer, total)) return failTransfer(key, "the file is too large");
    transfer->total = total;
    transfer->pulled = std::min(transfer->pulled, total);
    if (!transfer->in->write(bytes)) return failTransfer(key, "the file " + transfer->in->getFailure());
    touch(*transfer);
    if (transfer->peerCall) transfer->peerCall->onProgress(size + bytes.getSize(), total);
    pull(key);
}

// ---- Ends.

void RpcConnection::sendEnd(TransferKey key, const Sha256::Digest* digest, uint64_t size, const std::string& reason) {
    const auto packet = filePacket(FileEnd, key);
    packet->set(FileEnd.status, reason.empty() ? Status::Good : Status::Failed);
    packet->set(FileEnd.size, size);
    if (digest) packet->setBuffer(FileEnd.digest, digest->data(), static_cast<unsigned>(digest->size()));
    packet->setString(FileEnd.error, std::string_view(reason).substr(0, longestError - 1));
    send(packet.get());
}

void RpcConnection::onFileEnd(const Packet& packet) {
    TransferKey key;
    Transfer* const transfer = findTransfer(packet, FileEnd, key);
    if (!transfer) return;
    if (packet.get(FileEnd.status) != Status::Good) return endTransfer(key, readReason(packet, FileEnd.error));
    if (transfer->out) {
        if (!transfer->isEndSent) return refuse("the end of a file that has not been sent");
        return endTransfer(key, {});
    }
    if (transfer->isFlushing) return refuse("the end of a file that has ended");
    const uint64_t size = packet.get(FileEnd.size);
    if (transfer->total != size || !transfer->in->isWhole(size, packet.getByteSpan(FileEnd.digest)))
        return failTransfer(key, "the file is not what was sent");
    if (size <= largestPiece || !ThreadPool::current()) return place(key);
    // The disk may need seconds for what has come so far.
    transfer->isFlushing = true;
    if (!m_flushQueue) m_flushQueue = makeObject<TaskQueue>(TaskQueue::Serial | TaskQueue::IO);
    m_flushQueue->pushTask(makeTask([in = transfer->in] { in->flush(); }));
}

void RpcConnection::place(TransferKey key) {
    const std::shared_ptr<IncomingFile> in = m_transfers.at(key).in;
    std::string reason;
    if (!in->commit(reason)) return failTransfer(key, reason);
    sendEnd(key, nullptr, in->getSize(), {});
    endTransfer(key, {});
}

void RpcConnection::placeFlushed() {
    Vector<TransferKey> flushed;
    for (const auto& [key, transfer] : m_transfers) {
        if (transfer.isFlushing && transfer.in->isFlushed()) flushed.push_back(key);
    }
    for (const TransferKey& key : flushed) {
        if (m_transfers.contains(key)) place(key);
    }
}

void RpcConnection::failTransfer(TransferKey key, const std::string& reason) {
    sendEnd(key, nullptr, 0, reason);
    endTransfer(key, reason);
}

void RpcConnection::endTransfer(TransferKey key, const std::string& reason) {
    const auto ended = m_transfers.extract(key);
    if (!ended) return;
    Transfer& transfer = ended.mapped();
    touch(transfer);
    const auto open = m_calls.find(transfer.call);
    if (transfer.peerCall)
        transfer.peerCall->onFileEnd(reason);
    else if (reason.empty() && transfer.in && open != m_calls.end())
        open->second.received.emplace_back(transfer.name, transfer.path);
}

bool RpcConnection::dropTransfers(uint32_t call, bool isOurs) {
    Transfers dropped;
    for (auto it = m_transfers.begin(); it != m_transfers.end();) {
        const auto next = std::next(it);
        if (it->first.first == isOurs && it->second.call == call) dropped.insert(m_transfers.extract(it));
        it = next;
    }
    return !dropped.empty();
}

void RpcConnection::expireTransfers(uint32_t time) {
    Vector<TransferKey> late;
    for (const auto& [key, transfer] : m_transfers) {
        if (Clock::timeDifference(time, transfer.lastSign) >= transferTimeout) late.push_back(key);
    }
    for (const TransferKey& key : late) failTransfer(key, "timeout");
}

} // namespace kiv::internal
