#pragma once

#include "kiv/data/Packet.h"

#include <cstring>
#include <optional>

// What the workers of the supervisor's tests are asked for and answer.
namespace support {

struct Answer {
    uint32_t job;
    int64_t processId;
};

inline kiv::SmartPointer<kiv::Packet> requestOf(uint32_t job) {
    auto request = kiv::makeObject<kiv::Packet>(static_cast<unsigned>(sizeof job));
    std::memcpy(request->getPayloadPointer(), &job, sizeof job);
    return request;
}

// The job's number, the worker's process identifier, and up to 3000 bytes that follow from the number.
inline kiv::SmartPointer<kiv::Packet> answerTo(const kiv::Packet& request, int64_t processId) {
    uint8_t bytes[12 + 3000];
    uint32_t job = 0;
    if (request.getPayloadSize() == sizeof job) request.copyPayloadTo(reinterpret_cast<uint8_t*>(&job));
    const unsigned size = 12 + job * 7919 % 3000;
    std::memcpy(bytes, &job, 4);
    std::memcpy(bytes + 4, &processId, 8);
    for (unsigned i = 12; i < size; ++i) bytes[i] = static_cast<uint8_t>(((job + i) * 2654435761u) >> 24);
    auto answer = kiv::makeObject<kiv::Packet>(size);
    std::memcpy(answer->getPayloadPointer(), bytes, size);
    return answer;
}

// Nothing when it is not as answerTo() makes it.
inline std::optional<Answer> readAnswer(const kiv::Packet& packet) {
    Answer answer;
    if (packet.getPayloadSize() < 12 || packet.getPayloadSize() > 12 + 3000) return std::nullopt;
    uint8_t bytes[12 + 3000], expected[12 + 3000];
    packet.copyPayloadTo(bytes);
    std::memcpy(&answer.job, bytes, 4);
    std::memcpy(&answer.processId, bytes + 4, 8);
    const auto right = answerTo(*requestOf(answer.job), answer.processId);
    right->copyPayloadTo(expected);
    const bool isRight = right->getPayloadSize() == packet.getPayloadSize() &&
                         std::memcmp(bytes, expected, packet.getPayloadSize()) == 0;
    return isRight ? std::optional(answer) : std::nullopt;
}

} // namespace support
