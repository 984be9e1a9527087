#include "kiv/script/SourceCheck.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

// The engine's compiler calls itself for what is nested in a source, without a limit. Here the nesting is counted from
// the tokens alone: open brackets, and within each what nests without brackets: prefix operators, statements that are
// the body of a statement, functions that are an expression. Chains of other operators come to an end in the compiler
// itself, which has no more than 255 places for their values.

namespace kivSq::internal {
namespace {

constexpr int deepest = 200;
// A comma of expressions takes little, so there may be more of them.
constexpr int mostCommas = 2'000;

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

template <size_t size>
bool isOneOf(std::string_view token, const std::string_view (&all)[size]) {
    return std::find(std::begin(all), std::end(all), token) != std::end(all);
}

// Cuts a source into tokens.
class Tokens {
public:
    explicit Tokens(std::string_view source) : m_rest(source) {}

    // False at the end, and where the compiler will not get further either.
    bool next() {
        if (!skipBlanks()) return false;
        const std::string_view start = m_rest;
        if (!skipToken()) return false;
        token = start.substr(0, start.size() - m_rest.size());
        return true;
    }

    // What assigns to the value before.
    bool isAssignment() const {
        static constexpr std::string_view combined[] = {"+", "-", "*", "/", "%"};
        return token == "<-" || (token == "=" && !isEqualNext()) || (isEqualNext() && isOneOf(token, combined));
    }
    bool isEqualNext() const { return m_rest.starts_with('='); }

    std::string_view token;
    bool isAfterNewline = false;

private:
    bool skipBlanks() {
        isAfterNewline = false;
        while (!m_rest.empty()) {
            const char c = m_rest[0];
            if (c == '#' || m_rest.starts_with("//")) {
                m_rest.remove_prefix(std::min(m_rest.find('\n'), m_rest.size()));
            } else if (m_rest.starts_with("/*")) {
                const size_t end = m_rest.find("*/", 2);
                if (end == std::string_view::npos) return false;
                m_rest.remove_prefix(end + 2);
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
                if (c == '\n') isAfterNewline = true;
                m_rest.remove_prefix(1);
            } else {
                return true;
            }
        }
        return false;
    }

    bool skipToken() {
        const char c = m_rest[0];
        if (c == '"' || c == '\'') return skipText(c);
        if (m_rest.starts_with("@\"")) return skipVerbatimText();
        if (isWordCharacter(c)) {
            m_rest.remove_prefix(
                std::min(std::size_t(std::find_if_not(m_rest.begin(), m_rest.end(), isWordCharacter) - m_rest.begin()),
                         m_rest.size()));
            return true;
        }
        static constexpr std::string_view doubles[] = {"++", "--", "&&", "||", "::", "<<", "</", "/>", "<-"};
        m_rest.remove_prefix(isOneOf(m_rest.substr(0, 2), doubles) ? 2 : 1);
        return true;
    }

    bool skipText(char quote) {
        for (size_t i = 1; i < m_rest.size() && m_rest[i] != '\n'; ++i) {
            if (m_rest[i] == '\\') {
                ++i;
            } else if (m_rest[i] == quote) {
                m_rest.remove_prefix(i + 1);
                return true;
            }
        }
        return false;
    }

    bool skipVerbatimText() {
        m_rest.remove_prefix(1);
        do {
            const size_t end = m_rest.find('"', 1);
            if (end == std::string_view::npos) return false;
            m_rest.remove_prefix(end + 1);
        } while (m_rest.starts_with('"'));
        return true;
    }

    std::string_view m_rest;
};

// What an operator gives is a value, no place to assign to. The compiler forgets to look, and takes from an empty list
// then.
class Assignments {
public:
    // Whether this token assigns to such a value.
    bool isWrong(const Tokens& tokens) {
        const std::string_view token = tokens.token;
        const char c = token[0];
        if (std::exchange(m_isRest, false)) return false;
        if (tokens.isAssignment()) {
            m_isRest = token != "=" && token != "<-";
            const bool isValue = m_isValue.back();
            begin();
            return isValue;
        }
        if (token == "(" || token == "[" || token == "{") {
            m_isValue.push_back(false);
            m_isAfterOperand = false;
        } else if (token == ")" || token == "]" || token == "}") {
            if (m_isValue.size() > 1) m_isValue.pop_back();
            m_isAfterOperand = true;
        } else if (token == "++" || token == "--") {
            m_isAfterOperand = m_isAfterOperand && !tokens.isAfterNewline;
            m_isValue.back() = true;
        } else if (token == ".") {
            m_isAfterOperand = false;
        } else if (isWordCharacter(c) || c == '"' || c == '\'' || c == '@' || token == "::") {
            addOperand(token);
        } else if (isOneOf(token, {",", ";", "?", ":", "</", "/>"})) {
            begin();
        } else {
            m_isRest = tokens.isEqualNext() && isOneOf(token, {"=", "!", "<", ">"});
            addOperator(token == "!" && !m_isRest);
        }
        return false;
    }

private:
    static bool isOneOf(std::string_view token, std::initializer_list<std::string_view> all) {
        return std::find(all.begin(), all.end(), token) != all.end();
    }

    void begin() {
        m_isValue.back() = false;
        m_isAfterOperand = false;
    }
    void addOperator(bool isPrefix) {
        if (m_isAfterOperand) m_isValue.back() = !isPrefix;
        m_isAfterOperand = false;
    }
    void addOperand(std::string_view token) {
        if (token == "in" || token == "instanceof") return addOperator(false);
        if (m_isAfterOperand) begin(); // another statement
        m_isAfterOperand = token != "::" && token != "@" &&
                           !isOneOf(token, {"typeof", "clone", "resume", "delete", "return", "yield", "throw", "else",
                                            "do", "try", "case", "local", "const", "static"});
    }

    std::vector<bool> m_isValue{false}; // one for each pair of brackets
    bool m_isAfterOperand = false;
    bool m_isRest = false; // the next token is the end of an operator
};

class Nesting {
public:
    // Null, or what is wrong up to this token.
    const char* add(std::string_view token, bool isAfterNewline) {
        if (const char* reason = checkBase(token)) return reason;
        endStatement(token, isAfterNewline);
        if (token == "(" || token == "[" || token == "{") {
            open(token);
        } else if (token == ")" || token == "]" || token == "}") {
            close(token);
        } else {
            addOther(token);
        }
        m_previous = token;
        if (m_depth > deepest) return "the source is nested too deeply";
        return m_commas > mostCommas ? "the source has too many expressions after each other" : nullptr;
    }

private:
    // What is within one pair of brackets.
    struct Level {
        int cost = 1;          // 0 for the body of what counts itself
        bool isHeader = false; // the brackets after "if", "function" and the like
        bool isList = false;   // its commas are no operators
        bool hasEnded = false; // a statement or a block has
        int prefixes = 0;      // operators before the value that is read now
        int statements = 0;    // and functions that are open without brackets
        int commas = 0;
    };

    // The compiler forgets to check these: it takes from an empty list then.
    const char* checkBase(std::string_view token) const {
        static constexpr std::string_view before[] = {"++", "--", "delete", "class"};
        const bool isWrong = (token == "base" && isOneOf(m_previous, before)) ||
                             (m_previous == "base" && (token == "++" || token == "--"));
        return isWrong ? "\"base\" can't be changed" : nullptr;
    }

    void endStatement(std::string_view token, bool isAfterNewline) {
        static constexpr std::string_view continuing[] = {
            "else", "catch", "in", "instanceof", "(", ")", "]", "}", ".", ",",  ";", "?",  ":",  "=", "<-",
            "+",    "-",     "*",  "/",          "%", "&", "|", "^", "<", "<<", ">", "&&", "||", "[", "/>"};
        Level& level = m_levels.back();
        if (isAfterNewline && isValueBefore() && !isOneOf(token, continuing)) level.hasEnded = true;
        if (!level.hasEnded) return;
        level.hasEnded = false;
        if (token == "else" || token == "catch") return;
        forget(level.statements);
        forgetExpression();
        m_commas -= std::exchange(level.commas, 0);
    }

    // Whether an operator can follow.
    bool isValueBefore() const {
        static constexpr std::string_view words[] = {"if",     "else",  "while",  "do",     "for",     "foreach",
                                                     "switch", "try",   "throw",  "case",   "in",      "instanceof",
                                                     "typeof", "clone", "delete", "resume", "extends", "function",
                                                     "class",  "local", "const",  "enum",   "static"};
        if (m_previous.empty()) return false;
        const char c = m_previous[0];
        if (c == ')') return !m_closedHeader;
        if (isWordCharacter(c)) return !isOneOf(m_previous, words);
        return c == ']' || c == '}' || c == '"' || c == '\'' || m_previous.starts_with("@\"");
    }

    void open(std::string_view token) {
        static constexpr std::string_view headers[] = {"if", "while", "for", "foreach", "switch", "catch"};
        static constexpr std::string_view valuesFollow[] = {"=", "<-", "(", ",", "[", "return", "in", "?", "</"};
        static constexpr std::string_view bodies[] = {"else", "do", "try"};
        Level level;
        const bool isControl = isOneOf(m_previous, headers);
        if (token == "(") {
            level.isHeader = isControl || m_isFunctionHeader;
            level.isList = m_isFunctionHeader || (!isControl && isValueBefore());
            m_isFunctionHeader = false;
        } else if (token == "[") {
            level.isList = true;
        } else {
            level.isList = m_isEnum || isOneOf(m_previous, valuesFollow) || m_previous == ":";
            m_isEnum = false;
            if ((m_previous == ")" && m_closedHeader) || isOneOf(m_previous, bodies)) level.cost = 0;
        }
        m_levels.push_back(level);
        m_depth += level.cost;
    }

    void close(std::string_view token) {
        if (m_levels.size() == 1) return; // the compiler stops here
        const Level closed = m_levels.back();
        m_levels.pop_back();
        m_depth -= closed.cost + closed.prefixes + closed.statements;
        m_commas -= closed.commas;
        m_closedHeader = closed.isHeader;
        if (token == "}") m_levels.back().hasEnded = true;
    }

    void addOther(std::string_view token) {
        static constexpr std::string_view statements[] = {"if",     "else", "while",    "do",    "for", "foreach",
                                                          "switch", "try",  "function", "class", "@"};
        static constexpr std::string_view prefixes[] = {"!", "~", "typeof", "clone", "resume", "delete"};
        Level& level = m_levels.back();
        if (token == ";") {
            level.hasEnded = true;
        } else if (token == ",") {
            forgetExpression();
            if (level.isList) {
                forget(level.statements);
            } else {
                ++level.commas;
                ++m_commas;
            }
        } else if (isOneOf(token, statements)) {
            // "else if" is one step.
            if (token != "if" || m_previous != "else") count(level.statements);
            if (token == "function" || token == "@") m_isFunctionHeader = true;
        } else if (token == "constructor") {
            m_isFunctionHeader = true;
        } else if (token == "enum") {
            m_isEnum = true;
        } else if (isOneOf(token, prefixes) || ((token == "-" || token == "++" || token == "--") && !isValueBefore())) {
            count(level.prefixes);
        } else if (!isWordCharacter(token[0]) && token[0] != '"' && token[0] != '\'' && token[0] != '@' &&
                   token != "." && token != "::") {
            forgetExpression();
        }
    }

    void count(int& counter) {
        ++counter;
        ++m_depth;
    }
    void forget(int& counter) { m_depth -= std::exchange(counter, 0); }
    void forgetExpression() { forget(m_levels.back().prefixes); }

    std::vector<Level> m_levels{1};
    std::string_view m_previous;
    int m_depth = 0;
    int m_commas = 0;
    bool m_closedHeader = false;
    bool m_isFunctionHeader = false;
    bool m_isEnum = false;
};

// Finds the conditions of loops.
class Loops {
public:
    Loops(std::string_view source, const char* function)
        : m_source(source), m_call(" ::" + std::string(function) + "()") {}

    std::string rewrite() {
        for (Tokens tokens(m_source); tokens.next();) {
            if (m_isConditionNext) beginCondition(tokens.token);
            add(tokens.token);
            m_previous = tokens.token;
        }
        return m_out + std::string(m_source.substr(m_copied));
    }

private:
    enum class Part { None, Init, Condition, Rest }; // of the header of a loop; None for other brackets

    void add(std::string_view token) {
        if (token == "(" || token == "[" || token == "{") {
            const bool isFor = token == "(" && m_previous == "for", isWhile = token == "(" && m_previous == "while";
            m_brackets.push_back(isFor ? Part::Init : isWhile ? Part::Condition : Part::None);
            m_isConditionNext = isWhile;
        } else if (m_brackets.empty()) {
            return;
        } else if (token == ")" || token == "]" || token == "}") {
            if (m_brackets.back() == Part::Condition) insert(token, ")");
            m_brackets.pop_back();
        } else if (token == ";" && m_brackets.back() == Part::Init) {
            m_brackets.back() = Part::Condition;
            m_isConditionNext = true;
        } else if (token == ";" && m_brackets.back() == Part::Condition) {
            insert(token, ")");
            m_brackets.back() = Part::Rest;
        }
    }
    void beginCondition(std::string_view token) {
        m_isConditionNext = false;
        if (token == ";") m_brackets.back() = Part::Rest; // there is none
        insert(token, m_call + (token == ";" ? "" : " && ("));
    }
    void insert(std::string_view before, const std::string& text) {
        const auto place = static_cast<size_t>(before.data() - m_source.data());
        m_out += std::string(m_source.substr(m_copied, place - m_copied)) + text;
        m_copied = place;
    }

    const std::string_view m_source;
    const std::string m_call;
    std::string m_out;
    size_t m_copied = 0;
    std::string_view m_previous;
    std::vector<Part> m_brackets;
    bool m_isConditionNext = false;
};

} // namespace

std::string withWatchedLoops(std::string_view source, const char* function) {
    return Loops(source, function).rewrite();
}

std::string_view withoutMark(std::string_view source) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return source.starts_with(mark) ? source.substr(mark.size()) : source;
}

const char* refuseSource(const char* source, size_t length) {
    std::string_view text(source, length);
    if (text.find('\0') != std::string_view::npos) return "the source has a zero byte";
    text = withoutMark(text);
    Tokens tokens(text);
    Nesting nesting;
    Assignments assignments;
    while (tokens.next()) {
        if (assignments.isWrong(tokens)) return "can't assign to what an operator gives";
        if (const char* reason = nesting.add(tokens.token, tokens.isAfterNewline)) return reason;
    }
    return nullptr;
}

} // namespace kivSq::internal
