#include "LineInput.h"

#ifdef KIV_HAS_LIBEDIT

#include "kiv/platform/Console.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <histedit.h>

namespace kiv::app {

namespace {

constexpr int historySize = 1000;

// Empty when there is no place for it.
std::string historyPath() {
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    std::filesystem::path folder;
    if (state && *state)
        folder = state;
    else if (home && *home)
        folder = std::filesystem::path(home) / ".local/state";
    else
        return {};
    std::error_code error;
    std::filesystem::create_directories(folder / "kiv", error);
    return (folder / "kiv" / "history").string();
}

class EditedInput : public LineInput {
public:
    EditedInput();
    EditedInput(const EditedInput&) = delete;
    EditedInput& operator=(const EditedInput&) = delete;
    ~EditedInput() override;
    bool isOpen() const { return m_editor && m_history; }
    Result read(const std::string& prompt, std::string& line) override;

private:
    static EditedInput& of(EditLine* editor);
    static const char* promptOf(EditLine* editor) { return of(editor).m_prompt.c_str(); }
    static unsigned char cancelLine(EditLine* editor, int key);
    void remember(const char* line);

    EditLine* m_editor;
    History* m_history;
    const std::string m_path = historyPath();
    std::string m_prompt;
    bool m_isCancelled = false;
};

EditedInput& EditedInput::of(EditLine* editor) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<EditedInput*>(self);
}

unsigned char EditedInput::cancelLine(EditLine* editor, int) {
    of(editor).m_isCancelled = true;
    return CC_EOF;
}

EditedInput::EditedInput() : m_editor(el_init("kiv", stdin, stdout, stderr)), m_history(history_init()) {
    if (!isOpen()) return;
    // It takes the characters of the environment's set. Ours are those of UTF-8.
    std::setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX < 4) std::setlocale(LC_CTYPE, "C.UTF-8");
    HistEvent event;
    history(m_history, &event, H_SETSIZE, historySize);
    history(m_history, &event, H_SETUNIQUE, 1);
    if (!m_path.empty()) history(m_history, &event, H_LOAD, m_path.c_str());
    el_set(m_editor, EL_CLIENTDATA, this);
    el_set(m_editor, EL_PROMPT, &promptOf);
    el_set(m_editor, EL_HIST, &::history, m_history);
    el_set(m_editor, EL_EDITOR, "emacs");
    el_source(m_editor, nullptr); // the user's own keys
    // While a line is edited an interrupt is a key like others; it ends the line only.
    el_set(m_editor, EL_SETTY, "-d", "-isig", nullptr);
    el_set(m_editor, EL_ADDFN, "kiv-cancel", "Cancel the line", &cancelLine);
    el_set(m_editor, EL_BIND, "^C", "kiv-cancel", nullptr);
    el_set(m_editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

EditedInput::~EditedInput() {
    if (m_editor) el_end(m_editor);
    if (m_history) history_end(m_history);
}

// Saved at once: a script may end the process.
void EditedInput::remember(const char* line) {
    HistEvent event;
    history(m_history, &event, H_ENTER, line);
    if (!m_path.empty()) history(m_history, &event, H_SAVE, m_path.c_str());
}

LineInput::Result EditedInput::read(const std::string& prompt, std::string& line) {
    m_prompt = prompt;
    m_isCancelled = false;
    int count = 0;
    const char* typed = el_gets(m_editor, &count);
    if (m_isCancelled) {
        std::fputs("^C\n", stdout);
        std::fflush(stdout);
        return Result::Cancelled;
    }
    if (!typed || count <= 0) return Result::End;
    line.assign(typed, static_cast<size_t>(count));
    if (line.ends_with('\n')) line.pop_back();
    if (line.size() > longestLine) return Result::TooLong;
    if (line.find_first_not_of(" \t") != line.npos) remember(line.c_str());
    return Result::Line;
}

} // namespace

std::unique_ptr<LineInput> makeEditedInput() {
    using internal::isTerminal, internal::StandardStream;
    if (!isTerminal(StandardStream::Input) || !isTerminal(StandardStream::Output)) return nullptr;
    auto input = std::make_unique<EditedInput>();
    if (!input->isOpen()) return nullptr;
    return input;
}

} // namespace kiv::app

#else

namespace kiv::app {

std::unique_ptr<LineInput> makeEditedInput() {
    return nullptr;
}

} // namespace kiv::app

#endif
