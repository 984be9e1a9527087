#pragma once

#include "Readings.h"

#include <cmath>

// The worker: reads the gauge, and sends what it reads. An hour takes a tenth of a second here.
class Gauge : public kiv::PluginWorker {
    KIV_OBJECT(Gauge, kiv::PluginWorker)
public:
    Gauge() : PluginWorker(nullptr) {}

protected:
    void onBooted(int32_t) override {
        getParent().getRpc().call("readings", kiv::Item(), [this](const kiv::RpcChannel::Answer& answer) {
            long long readings = 0;
            if (answer.result.getIterator().asInteger(readings))
                begin(static_cast<int>(readings));
            else
                kiv::logging::MessageStream(3, 2) << "[GAUGE] no answer: " << answer.error;
        });
    }

private:
    void begin(int hour) {
        kiv::logging::MessageStream(1, 2) << "[GAUGE] beginning with hour " << hour;
        m_hour = hour;
        measure();
    }

    void measure() {
        const double level = 300 + 180 * std::sin(m_hour * 6.2832 / 12.4);
        getParent().send(makeReading(m_hour, static_cast<int>(std::lround(level))).get());
        ++m_hour;
        m_next->scheduleIn(100);
    }

    int m_hour = 0;
    const kiv::SmartPointer<kiv::Alarm> m_next = kiv::makeObject<kiv::Alarm>([this] { measure(); });
};
