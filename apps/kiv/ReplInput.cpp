#include "ReplInput.h"

#include <cstddef>

namespace kiv::app {

namespace {

// Walks over a script text as its lexer does, and counts brackets.
class Scanner {
public:
    explicit Scanner(std::string_view source) : m_source(source) {}

    bool isIncomplete();

private:
    bool skip(std::string_view end);
    bool skipVerbatim();
    bool skipQuoted(char quote);
    bool skipToken(char c);

    const std::string_view m_source;
    size_t m_position = 0;
    ptrdiff_t m_open = 0;
    char m_last = 0; // of what is neither blank nor comment
    char m_beforeLast = 0;
};

// False when it is not there.
bool Scanner::skip(std::string_view end) {
    const size_t found = m_source.find(end, m_position);
    m_position = found == m_source.npos ? found : found + end.size();
    return found != m_source.npos;
}

bool Scanner::skipVerbatim() {
    do {
        if (!skip("\"")) return false;
    } while (m_source.substr(m_position).starts_with('"') && ++m_position); // two stand for one
    return true;
}

// One that is open at the end of its line is an error, not incomplete.
bool Scanner::skipQuoted(char quote) {
    while (m_position < m_source.size()) {
        const char c = m_source[m_position++];
        if (c == '\\') ++m_position;
        if (c == quote || c == '\n') break;
    }
    return true;
}

// False when it does not end.
bool Scanner::skipToken(char c) {
    const std::string_view rest = m_source.substr(m_position);
    ++m_position;
    if (c == '#' || rest.starts_with("//")) return skip("\n") || true;
    if (rest.starts_with("/*")) return skip("*/");
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') return true;
    m_beforeLast = m_last;
    m_last = c;
    if (rest.starts_with("@\"")) return ++m_position, skipVerbatim();
    if (c == '"' || c == '\'') return skipQuoted(c);
    if (c == '(' || c == '[' || c == '{') ++m_open;
    if (c == ')' || c == ']' || c == '}') --m_open;
    return true;
}

bool Scanner::isIncomplete() {
    while (m_position < m_source.size())
        if (!skipToken(m_source[m_position])) return true;
    if (m_open != 0) return m_open > 0;
    if ((m_last == '+' || m_last == '-') && m_last == m_beforeLast) return false; // counts up or down
    return m_last != 0 && std::string_view("+-*/%=<>&|^?:,.~!").find(m_last) != std::string_view::npos;
}

} // namespace

bool isIncomplete(std::string_view source) {
    return Scanner(source).isIncomplete();
}

} // namespace kiv::app
