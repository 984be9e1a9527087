#include "kiv/system/ScriptOptions.h"

#include "kiv/script/Class.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/VM.h"
#include "kiv/system/PluginHost.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace kiv::internal {
namespace {

using kivSq::Access;
using Value = kivSq::Object;

// Options are texts that end there.
void refuseZeroByte(const String& text, SQInteger number) {
    if (text.find('\0') != String::npos)
        throw std::invalid_argument("argument " + std::to_string(number) + ": it holds a zero byte");
}

template <class T>
T argument(SQVM* v, SQInteger number, T otherwise) {
    if (number + 1 > sq_gettop(v)) return otherwise;
    kivSq::internal::Argument<T> value;
    if (!value.read(v, number + 1))
        throw std::invalid_argument("argument " + std::to_string(number) + ": expected " + value.name());
    return value.get();
}

String textArgument(SQVM* v, SQInteger number, const String& otherwise = {}) {
    const String text = argument<String>(v, number, otherwise);
    refuseZeroByte(text, number);
    return text;
}

void endHost(const String& why) {
    if (auto* host = dynamic_cast<PluginHost*>(Application::current())) host->end(why.c_str());
}

} // namespace

ScriptOptions::ScriptOptions(OptionsDB* options, OnDeclared onDeclared)
    : m_options(options), m_onDeclared(std::move(onDeclared)) {}

void ScriptOptions::bind(kivSq::VM& vm) {
    const Value table = vm.getNamespace("host");
    kivSq::Class<ScriptOptions>(table, "Options")
        .native<&ScriptOptions::declareOption>("declare")
        .method(
            "has", +[](ScriptOptions& self, const String& name) { return self.m_options->hasOption(name.c_str()); })
        .method(
            "get", +[](ScriptOptions& self, const String& name) { return self.m_options->getValue(name.c_str()); })
        .method(
            "getInteger",
            +[](ScriptOptions& self, const String& name) { return self.m_options->getValueAsInt(name.c_str()); })
        .method("set", &ScriptOptions::setOption)
        .method("onChange", &ScriptOptions::addListener);
    kivSq::internal::NativeTable(vm.getSquirrelVM(), table).carried("end", &endHost);
    table.set("options", Value::from(SmartPointer<ScriptOptions>(this)));
}

// declare(name, default [, title [, description [, flags]]])
SQInteger ScriptOptions::declareOption(SQVM* v) {
    ScriptOptions* const self = kivSq::internal::getInstance<ScriptOptions>(v, 1);
    if (!self) return sq_throwerror(v, "native method call on null-pointer");
    const SQInteger arguments = sq_gettop(v) - 1;
    if (arguments < 2 || arguments > 5) return sq_throwerror(v, "invalid argument count on native method call");
    const String name = textArgument(v, 1), value = textArgument(v, 2);
    const String title = textArgument(v, 3, name), description = textArgument(v, 4);
    const int flags = argument<int>(v, 5, 0);
    const bool isGood =
        self->m_options->addOption(name.c_str(), value.c_str(), "", title.c_str(), description.c_str(), flags);
    if (isGood && self->m_onDeclared) self->m_onDeclared(name.c_str());
    return Access<bool>::push(v, isGood) ? 1 : SQ_ERROR;
}

bool ScriptOptions::setOption(const String& name, const Value& value) {
    int64_t number = 0;
    String text;
    if (value.isInteger() && value.to(number))
        text = std::to_string(number);
    else if (!value.to(text))
        throw std::invalid_argument(std::string("argument 2: expected string or integer, got ") + value.getTypeName());
    refuseZeroByte(name, 1);
    refuseZeroByte(text, 2);
    return m_options->setValue(name.c_str(), text.c_str());
}

void ScriptOptions::addListener(const String& name, const kivSq::Functor& function) {
    m_listeners[name].push_back(function);
}

void ScriptOptions::callListeners(const char* name, const char* value) {
    const auto found = m_listeners.find(name);
    if (found == m_listeners.end()) return;
    const Vector<kivSq::Functor> listeners = found->second; // they may add others
    for (const kivSq::Functor& listener : listeners) listener.call(String(value));
}

} // namespace kiv::internal
