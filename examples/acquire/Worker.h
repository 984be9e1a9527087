#pragma once

#include "Sender.h"

#include "kiv/data/StdInPacketReader.h"
#include "kiv/tasks/ThreadPool.h"

#include <optional>
#include <vector>

// The device as a worker of a host: waits for request packets on standard input and sends what they want, until
// standard input ends. A new request takes the place of one that is being served.
class Worker {
public:
    explicit Worker(Sender& sender) : m_sender(sender) { m_reader->disableBlocking(); }

    // False when nobody took the packets.
    bool run();

private:
    // Looks what has come on standard input; false when that has ended or there is a new request.
    bool goesOn();
    void take(kiv::Packet& packet);

    Sender& m_sender;
    const kiv::SmartPointer<kiv::ThreadPool> m_pool = kiv::makeObject<kiv::ThreadPool>(); // reads ahead
    const kiv::SmartPointer<kiv::StdInPacketReader> m_reader = kiv::makeObject<kiv::StdInPacketReader>();
    const study::RequestScheme m_scheme;
    std::optional<std::vector<study::TileRange>> m_request; // that was not begun yet
};
