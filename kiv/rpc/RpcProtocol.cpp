#include "kiv/rpc/RpcProtocol.h"

namespace kiv::RpcProtocol {

namespace {

constexpr short firstID = 21072;

} // namespace

RequestScheme::RequestScheme() : PacketScheme(firstID, "RpcProtocol", nullptr, "Request") {
    call = Number<uint32_t>("call");
    method = String("method", UpTo(longestName), "");
    arguments = Item("arguments", UpTo());
}

AnswerScheme::AnswerScheme() : PacketScheme(firstID + 1, "RpcProtocol", nullptr, "Answer") {
    call = Number<uint32_t>("call");
    status = Number<Status>("status");
    error = String("error", UpTo(longestError), "");
    result = Item("result", UpTo());
}

CancelScheme::CancelScheme() : PacketScheme(firstID + 2, "RpcProtocol", nullptr, "Cancel") {
    call = Number<uint32_t>("call");
}

FileOpenScheme::FileOpenScheme() : PacketScheme(firstID + 3, "RpcProtocol", nullptr, "FileOpen") {
    call = Number<uint32_t>("call");
    transfer = Number<uint32_t>("transfer");
    direction = Number<Direction>("direction");
    name = String("name", UpTo(longestName), "");
}

FileScheme::FileScheme(short id, const char* name) : PacketScheme(id, "RpcProtocol", nullptr, name) {
    transfer = Number<uint32_t>("transfer");
    isFromCaller = Number<uint8_t>("isFromCaller");
}

FilePullScheme::FilePullScheme() : FileScheme(firstID + 4, "FilePull") {
    offset = Number<uint64_t>("offset");
    size = Number<uint32_t>("size");
}

FilePieceScheme::FilePieceScheme() : FileScheme(firstID + 5, "FilePiece") {
    offset = Number<uint64_t>("offset");
    total = Number<uint64_t>("total");
    bytes = Buffer("bytes", UpTo(largestPiece));
}

FileEndScheme::FileEndScheme() : FileScheme(firstID + 6, "FileEnd") {
    status = Number<Status>("status");
    size = Number<uint64_t>("size");
    digest = Buffer("digest", 32);
    error = String("error", UpTo(longestError), "");
}

const RequestScheme Request;
const AnswerScheme Answer;
const CancelScheme Cancel;
const FileOpenScheme FileOpen;
const FilePullScheme FilePull;
const FilePieceScheme FilePiece;
const FileEndScheme FileEnd;

} // namespace kiv::RpcProtocol
