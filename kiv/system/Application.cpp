#include "kiv/system/Application.h"

namespace kiv {
namespace {

std::atomic<Application*> g_current{nullptr};

} // namespace

const unsigned Application::longestPause;

Application* Application::current() {
    return g_current.load(std::memory_order_acquire);
}

Application* Object::application() {
    return Application::current();
}

Application::Application() {
    Application* none = nullptr;
    g_current.compare_exchange_strong(none, this);
}

Application::~Application() {
    Application* self = this;
    g_current.compare_exchange_strong(self, nullptr);
}

void Application::onTick() {}

void Application::onShutdown() {}

} // namespace kiv
