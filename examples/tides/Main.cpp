#include "Gauge.h"

#include "kiv/kivCore.h"
#include "kiv/platform/CommandLine.h"

using kiv::logging::MessageStream;

// The application.
class Tides : public kiv::PluginHost {
    KIV_OBJECT(Tides, kiv::PluginHost)
public:
    explicit Tides(const Settings& settings) : PluginHost(settings) {}

protected:
    void onBoot() override {
        kiv::Item root(&getStore());
        root.add("readings");
        m_readings = kiv::makeObject<Readings>(root);
        MessageStream(1, 2) << "[TIDES] readings so far: " << m_readings->count();
        kivSq::VM& vm = *kiv::System::getVM();
        vm.import("kiv.MemoryStore");
        vm.getRootTable().set("store", kivSq::Object::from(&getStore()));
        const auto answer = [this](const kiv::RpcContext& call) {
            call.result().add(m_readings->count());
            call.finish();
        };
        getRpcProvider().addRPC("readings", answer, "How many readings are kept", nullptr);
    }

    void onBooted() override { m_patience->scheduleIn(20000); }

    void onWorkerPacket(kiv::WorkerProcess&, kiv::Packet& packet) override {
        if (getEnd() == End::None && packet.fit(&readingScheme)) take(packet);
    }

private:
    void take(const kiv::Packet& reading) {
        MessageStream(1, 2) << "[TIDES] hour " << reading.get(readingScheme.hour) << ": "
                            << reading.get(readingScheme.level) << " cm";
        getPlugins().callListeners("reading", m_readings->add(reading));
        saveSoon();
        m_patience->scheduleIn(20000);
        if (++m_taken == 4) end("four readings are enough");
    }

    kiv::SmartPointer<Readings> m_readings;
    int m_taken = 0;
    const kiv::SmartPointer<kiv::Alarm> m_patience = kiv::makeObject<kiv::Alarm>([this] { end("nothing happens"); });
};

int beApplication() {
    kiv::Trace::start();
    Tides::Settings settings;
    settings.storePath = "tides.store";
    settings.workerPath = kiv::platform::programPath();
    settings.workerArguments = {settings.workerPath, "gauge"};
    settings.workers = 1;
    settings.pluginsDirectory = "Plugins";
    const auto tides = kiv::makeObject<Tides>(settings);
    const bool isGood = tides->start() && tides->run();
    MessageStream(1, 2) << "[TIDES] the end: " << tides->getEndText();
    kiv::Trace::writeTo("tides.trace");
    kiv::System::deinitialize();
    return isGood ? 0 : 1;
}

int beGauge() {
    const auto gauge = kiv::makeObject<Gauge>();
    gauge->run();
    kiv::System::deinitialize();
    return 0;
}

int main(int argc, char**) {
    kiv::logging::LogBackend::registerBackend(false);
    kiv::System::initialize();
    return argc > 1 ? beGauge() : beApplication();
}
