#pragma once

#include "kiv/data/PacketScheme.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>

// The packets of remote calls (doc/formats/rpc.md). The schemes are process-wide objects. Of the two ends of a call the
// caller has made it, and its number is the caller's; the other one answers. Either end of a line is both.

namespace kiv::RpcProtocol {

// Texts with the zero byte.
static constexpr unsigned longestName = 256;
static constexpr unsigned longestError = 1024;
// Bytes of a file in one packet.
static constexpr unsigned largestPiece = 1 << 18;

// What has become of a call or a file. Unknown ones are failures.
enum class Status : uint16_t { Good = 0, Failed = 1 };

// Where a file goes that is moved for a call.
enum class Direction : uint8_t { FromCaller = 0, ToCaller = 1 };

// From the caller.
class KIV_API RequestScheme : public PacketScheme {
public:
    RequestScheme();

    NumberField<uint32_t> call; // above those of all requests before
    Field method;
    Field arguments;
};

// To the caller: the end of the call.
class KIV_API AnswerScheme : public PacketScheme {
public:
    AnswerScheme();

    NumberField<uint32_t> call;
    NumberField<Status> status;
    Field error; // of what has failed
    Field result;
};

// From the caller, who wants no answer any more.
class KIV_API CancelScheme : public PacketScheme {
public:
    CancelScheme();

    NumberField<uint32_t> call;
};

// To the caller: a file is to be moved.
class KIV_API FileOpenScheme : public PacketScheme {
public:
    FileOpenScheme();

    NumberField<uint32_t> call;
    NumberField<uint32_t> transfer; // above all before
    NumberField<Direction> direction;
    Field name; // one of those that the caller offers, resp. how the file is called that the caller gets
};

// The fields that all packets of a file that is being moved begin with.
class KIV_API FileScheme : public PacketScheme {
public:
    NumberField<uint32_t> transfer;
    NumberField<uint8_t> isFromCaller; // 1 when who sends this packet is the caller

protected:
    FileScheme(short id, const char* name);
};

// To the end that has the file: the next bytes are wanted.
class KIV_API FilePullScheme : public FileScheme {
public:
    FilePullScheme();

    NumberField<uint64_t> offset;
    NumberField<uint32_t> size;
};

// From the end that has the file.
class KIV_API FilePieceScheme : public FileScheme {
public:
    FilePieceScheme();

    NumberField<uint64_t> offset;
    NumberField<uint64_t> total; // of the file
    Field bytes;
};

// From either end: a failure, all bytes are sent, resp. the file is in place.
class KIV_API FileEndScheme : public FileScheme {
public:
    FileEndScheme();

    NumberField<Status> status;
    NumberField<uint64_t> size;
    Field digest; // SHA-256
    Field error;
};

KIV_API extern const RequestScheme Request;
KIV_API extern const AnswerScheme Answer;
KIV_API extern const CancelScheme Cancel;
KIV_API extern const FileOpenScheme FileOpen;
KIV_API extern const FilePullScheme FilePull;
KIV_API extern const FilePieceScheme FilePiece;
KIV_API extern const FileEndScheme FileEnd;

} // namespace kiv::RpcProtocol
