#include "Worker.h"

#include "kiv/logging/MessageStream.h"

using kiv::logging::MessageStream;

bool Worker::run() {
    m_sender.sendHello();
    while (m_reader->valid()) {
        if (!m_request) {
            const kiv::SmartPointer<kiv::Packet> packet = m_reader->readTimeout(UINT32_MAX, 0);
            if (packet) take(*packet);
            continue;
        }
        const std::vector<study::TileRange> wanted = std::move(*m_request);
        m_request.reset();
        if (wanted.empty())
            MessageStream(2, 2) << "[DEVICE] nothing but the last word is wanted";
        else if (wanted.front().first != 0)
            MessageStream(2, 2) << "[DEVICE] resuming at tile " << wanted.front().first;
        if (!m_sender.send(wanted, [this] { return goesOn(); }) && !m_request && m_reader->valid()) return false;
    }
    return true;
}

bool Worker::goesOn() {
    while (const kiv::SmartPointer<kiv::Packet> packet = m_reader->read()) take(*packet);
    return m_reader->valid() && !m_request;
}

void Worker::take(kiv::Packet& packet) {
    kiv::Vector<uint32_t> numbers;
    if (!packet.fit(&m_scheme) || !packet.getArray(m_scheme.ranges, numbers)) return;
    m_request.emplace();
    for (size_t i = 0; i + 1 < numbers.size(); i += 2) m_request->push_back({numbers[i], numbers[i + 1]});
}
