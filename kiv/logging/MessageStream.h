#pragma once

#include "kiv/logging/LogText.h"
#include <atomic>
#include <string>
#include <type_traits>

namespace kiv::logging {

// Console switches; any thread may set them at any time. The last one is without effect.
extern KIV_API std::atomic<bool> g_hideTimeInConsole;
extern KIV_API std::atomic<bool> g_hideVerboseOutputInConsole;
extern KIV_API std::atomic<bool> g_isCompactLogEnabled;

// Bits of a message's flags. Ordinary messages have flags 2.
enum MessageFlags : int {
    AlternativeFlag = 1, // console stamp "<...>" and the first database queue
    StoredFlag = 2,      // the second database queue
    SupportFlag = 4,     // goes to the support channel whatever its text
};

// One log message: stream text into it, the destructor publishes it. The one way to log.
//     logging::MessageStream(3, 2) << "[STORE] line " << line << " is broken";
// Levels: 0 verbose, 1 information, 2 warning, 3 error, 4 assertion; others get no tag.
// Threads: any; a stream belongs to one. Publishing never throws and reports no failure. Text is never a format;
// numbers look as in an output stream of the classic locale, and what has an operator<< for output streams can be
// streamed too.
class KIV_API MessageStream {
public:
    MessageStream(int level, int flags);
    MessageStream(const MessageStream&) = delete;
    MessageStream& operator=(const MessageStream&) = delete;
    ~MessageStream();

    template <class T>
    MessageStream& operator<<(const T& value) {
        if (m_isMuted) return *this;
        if constexpr (isPointerToText<T>) {
            const char* text = value;
            m_text.append(text ? std::string_view(text) : std::string_view());
        } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
            const std::string_view text = value;
            m_text.append(text);
        } else if constexpr (std::is_convertible_v<const T&, const char*>) {
            *this << static_cast<const char*>(value);
        } else if constexpr (isCharacter<T>) {
            const char character = static_cast<char>(value);
            m_text.append({&character, 1});
        } else if constexpr (isSigned<T>) {
            m_text.appendInteger(value);
        } else if constexpr (isUnsigned<T>) {
            m_text.appendUnsigned(value);
        } else if constexpr (std::is_same_v<T, long double>) {
            m_text.appendFloat(value);
        } else if constexpr (std::is_floating_point_v<T>) {
            m_text.appendFloat(static_cast<double>(value));
        } else {
            static_assert(!std::is_function_v<T>, "this manipulator has no effect on a message");
            m_text.appendPrinted([](std::ostream& stream, const void* v) { stream << *static_cast<const T*>(v); },
                                 &value);
        }
        return *this;
    }
    // For std::endl and its like; what only changes the state of a stream has no effect on a message.
    MessageStream& operator<<(std::ostream& (*manipulator)(std::ostream&));

private:
    template <class T>
    static constexpr bool isPointerToText = std::is_same_v<std::decay_t<T>, char*> ||
                                            std::is_same_v<std::decay_t<T>, const char*> || std::is_null_pointer_v<T>;
    template <class T>
    static constexpr bool isCharacter =
        std::is_same_v<T, char> || std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char>;
    template <class T>
    static constexpr bool isSigned =
        std::is_same_v<T, short> || std::is_same_v<T, int> || std::is_same_v<T, long> || std::is_same_v<T, long long>;
    template <class T>
    static constexpr bool isUnsigned =
        std::is_same_v<T, bool> || std::is_same_v<T, unsigned short> || std::is_same_v<T, unsigned> ||
        std::is_same_v<T, unsigned long> || std::is_same_v<T, unsigned long long>;

    internal::LogText m_text;
    const int m_level;
    const int m_flags;
    const bool m_isMuted;
};

} // namespace kiv::logging
