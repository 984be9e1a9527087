#include "kiv/store/OptionsDB.h"

#include "kiv/core/WeakPointer.h"
#include "kiv/logging/ForeignText.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/rpc/RpcAnswer.h"
#include "kiv/rpc/RpcProvider.h"

#include <charconv>
#include <exception>
#include <limits>

namespace kiv {
namespace {

constexpr std::string_view clientPrefix = "client_options:";
constexpr std::string_view whiteSpace = " \t\r\n\v\f";
constexpr int confidentialFlags = OptionsDB::ConfidentialFlag | OptionsDB::SecretFlag;

constexpr char readCall[] = "advanced_option_get";
constexpr char readRight[] = "rpc:advanced_option_get";

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(whiteSpace);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(whiteSpace) + 1 - begin);
}

// 0 for what is no number.
int saturatedInt(std::string_view text) {
    text = trimmed(text);
    const bool isNegative = text.starts_with('-');
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    int number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end != text.data() + text.size()) return 0;
    if (failure == std::errc::result_out_of_range)
        return isNegative ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    return number;
}

bool decodeMeta(const Item& option, OptionsDB::OptionMeta& out) {
    auto it = option.getIterator();
    return it.asString(out.name) && it.asString(out.title) && it.asString(out.description) &&
           it.asString(out.defaultValue) && it.asInteger(out.flags);
}

void logListener(const char* what) {
    logging::MessageStream(3, 2) << "[OPTIONS] the change listener has failed: " << what;
}

} // namespace

const int OptionsDB::ConfidentialFlag;
const int OptionsDB::SecretFlag;
const int OptionsDB::SupportFlag;

OptionsDB::OptionsDB(const Item& root) : m_store(root.getStore()), m_root(root) {
    if (!m_store) logging::MessageStream(3, 2) << "[OPTIONS] the options have no store, changes are refused";
}

OptionsDB::~OptionsDB() = default;

// ---- Declarations.

bool OptionsDB::addOption(const char* name, const char* defaultValue, const char* mapped, const char* title,
                          const char* description, int flags) {
    if (!name || !defaultValue || !mapped || !title || !description) return false;
    if (std::string_view(name).find(':') == std::string_view::npos) return false;
    Item option;
    for (const char* text : {name, title, description, defaultValue}) option.addString(text);
    option.addInteger(flags);
    const unsigned offset = m_meta.getPlainSize();
    m_meta.addItem(option);
    m_offsets.push_back(offset);
    const auto [entry, isNew] = m_declared.try_emplace(name, Declared{offset, mapped});
    if (isNew) return true;
    entry->second.mapped = mapped;
    logging::MessageStream(2, 2) << "[OPTIONS] option '" << logging::foreignText(name)
                                 << "' is declared again, the first declaration holds";
    return true;
}

void OptionsDB::clear() {
    m_meta.clear();
    m_offsets.clear();
    m_declared.clear();
}

// Views the first declaration.
bool OptionsDB::findMeta(const char* name, Item& option) const {
    const auto declared = m_declared.find(TextArg(name));
    if (declared != m_declared.end() &&
        Item::Iterator(m_meta, static_cast<int>(declared->second.offset)).asWeakSubItem(option))
        return true;
    logging::MessageStream(3, 2) << "option " << logging::foreignText(TextArg(name)) << " not found";
    return false;
}

String OptionsDB::getMetaText(const char* name, int position) const {
    Item option;
    String text;
    if (!findMeta(name, option)) return text;
    auto it = option.getIterator();
    if (it.skip(position)) it.asString(text);
    return text;
}

bool OptionsDB::hasOption(const char* name) const {
    return m_declared.contains(TextArg(name));
}

unsigned OptionsDB::getOptionCount() const {
    return static_cast<unsigned>(m_offsets.size());
}

String OptionsDB::getTitle(const char* name) const {
    return getMetaText(name, 1);
}

String OptionsDB::getDefaultValue(const char* name) const {
    return getMetaText(name, 3);
}

int OptionsDB::getFlags(const char* name) const {
    Item option;
    int flags = 0;
    if (!findMeta(name, option)) return 0;
    auto it = option.getIterator();
    if (it.skip(4)) it.asInteger(flags);
    return flags;
}

Item OptionsDB::getMeta(int index) const {
    Item option;
    if (index < 0 || static_cast<size_t>(index) >= m_offsets.size()) return option;
    Item::Iterator(m_meta, static_cast<int>(m_offsets[static_cast<size_t>(index)])).asSubItem(option);
    return option;
}

// Calls visit(option) for each declaration, up to one that can't be read.
template <class Visit>
void OptionsDB::visitMeta(Visit visit) const {
    Item item;
    OptionMeta option;
    for (auto it = m_meta.getIterator(); it.getOffset() < static_cast<int>(m_meta.getPlainSize());) {
        if (!it.asWeakSubItem(item) || !decodeMeta(item, option)) {
            logging::MessageStream(3, 2) << "META CORRUPT";
            return;
        }
        visit(option);
    }
}

Vector<OptionsDB::OptionMeta> OptionsDB::generateData() const {
    Vector<OptionMeta> options;
    visitMeta([&](const OptionMeta& option) {
        if (option.name.view().starts_with(clientPrefix)) options.push_back(option);
    });
    return options;
}

Vector<OptionsDB::OptionMeta> OptionsDB::getClientOptionsMeta() const {
    return generateData();
}

// ---- Values.

Item OptionsDB::keyOf(const char* name) const {
    Item key(m_root);
    key.addString(name);
    return key;
}

const Item* OptionsDB::fetchValue(const char* name) const {
    return m_store ? m_store->get(keyOf(name)) : nullptr;
}

String OptionsDB::getValueDirect(const char* name) const {
    String text;
    if (const Item* value = fetchValue(name)) value->getIterator().asString(text);
    return text;
}

String OptionsDB::getValue(const char* name) const {
    String value = getValueDirect(name);
    return value.empty() ? getDefaultValue(name) : value;
}

int OptionsDB::getValueAsInt(const char* name) const {
    return saturatedInt(getValue(name).view());
}

Item OptionsDB::getData(int index) const {
    String name;
    const Item option = getMeta(index);
    if (!option.getIterator().asString(name)) return Item();
    const Item* value = fetchValue(name.c_str());
    Item data = value ? *value : Item();
    data.setStore(nullptr); // may outlive it
    return data;
}

bool OptionsDB::setValue(const char* name, const char* value) {
    // The listener may change what the caller's pointers lead to.
    const String ownName(name), ownValue(value);
    if (!hasOption(name)) {
        logging::MessageStream(3, 2) << "option not set, reason: option '" << logging::foreignText(ownName)
                                     << "' does not exist";
        return false;
    }
    if (!m_store) {
        logging::MessageStream(3, 2) << "option not set, reason: the options have no store";
        return false;
    }
    const int flags = getFlags(name);
    if (flags & SupportFlag) {
        logging::MessageStream message(1, logging::StoredFlag | logging::SupportFlag);
        message << "[SUPPORT] option '" << logging::foreignText(ownName) << "' has been changed";
        if (!(flags & confidentialFlags)) message << ", value='" << logging::foreignText(ownValue) << "'";
    }
    keyOf(ownName.c_str()).store(ownValue);
    // It may put another in its place.
    const auto listener = m_changeListener;
    try {
        if (listener) listener(ownName.c_str(), ownValue.c_str());
    } catch (const std::exception& failure) {
        logListener(failure.what());
    } catch (...) {
        logListener("unknown exception");
    }
    return true;
}

void OptionsDB::setChangeListener(std::function<void(const char* name, const char* value)> listener) {
    m_changeListener = std::move(listener);
}

// ---- For clients.

// Of two declarations of one name both hide the value that they share.
bool OptionsDB::isConfidential(const OptionMeta& option) const {
    return ((option.flags | getFlags(option.name.c_str())) & confidentialFlags) != 0;
}

Item OptionsDB::getOptionsData() const {
    Item all, one;
    visitMeta([&](const OptionMeta& option) {
        one.clear();
        for (const String* text : {&option.name, &option.title, &option.description, &option.defaultValue})
            one.addString(*text);
        one.addInteger(option.flags);
        one.addString(isConfidential(option) ? String() : getValue(option.name.c_str()));
        all.addItem(one);
    });
    return all;
}

void OptionsDB::registerRpcCalls(RpcProvider* provider) {
    if (!provider) return;
    provider->setCategory("Advanced options");
    provider->addRPC(
        readCall,
        [weak = WeakPointer<OptionsDB>(this)](const RpcContext& context) {
            internal::RpcAnswer answer(context, readCall);
            if (!context.hasRight(readRight))
                return answer.refuse("client tries to use rpc 'advanced_option_get' without rights");
            const SmartPointer<OptionsDB> options = weak.lock();
            if (!options) return answer.refuse("the options are gone");
            answer.accept(options->getOptionsData());
        },
        "all options: name, title, description, default, flags and value of each", "");
}

} // namespace kiv
