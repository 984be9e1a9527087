#include "Pieces.h"

#include "kiv/core/Signal.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/WeakPointer.h"

#include <iostream>

namespace {

class Shutter : public kiv::Object {
    KIV_OBJECT(Shutter, Object)
public:
    ~Shutter() override { std::cout << "the shutter is gone\n"; }
    void open() { opened.emit(++m_count); }

    kiv::Signal<void(int)> opened;

private:
    int m_count = 0;
};

} // namespace

void showObjects() {
    kiv::SmartPointer<Shutter> shutter = kiv::makeObject<Shutter>();
    const kiv::WeakPointer<Shutter> watching(shutter);
    const kiv::Connection connection =
        shutter->opened.connect([](int count) { std::cout << "opened " << count << '\n'; });

    shutter->open();
    shutter->open();
    std::cout << watching->getDynamicClassName() << ": " << shutter->getReferenceCount() << " reference\n";
    shutter = nullptr;
    std::cout << (watching ? "still there\n" : "and its watcher knows\n");
}
