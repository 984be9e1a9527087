// The actions of kiv store that read: they go through the file once and keep next to nothing of it.

#include "StoreActions.h"
#include "StoreInput.h"
#include "StoreTree.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace kiv::app {

namespace {

// What is told at the end of every listing; the exit status.
int finish(StoreInput& input, Output& output, bool isGood, const std::string& summary) {
    output.flush();
    const bool isWhole = input.finish();
    if (!output.isGood()) complainOfStore("standard output can't be written");
    if (input.isOpen() && !summary.empty()) complainOfStore(summary + (isWhole ? "" : ", DAMAGED"));
    return isWhole && isGood && output.isGood() ? 0 : 1;
}

size_t firstDifference(const Item& a, const Item& b) {
    const ConstByteSpan x = a.getConstByteSpan(), y = b.getConstByteSpan();
    return static_cast<size_t>(std::mismatch(x.begin(), x.end(), y.begin(), y.end()).first - x.begin());
}

class Comparison {
public:
    explicit Comparison(const StoreCommand& command) : m_a(command.file), m_b(command.secondFile) {}
    int run();

private:
    struct Side {
        explicit Side(const std::string& path) : input(path) {}
        void advance() { isThere = input.read(key, value); }

        StoreInput input;
        Item key, value;
        bool isThere = false;
        uint64_t alone = 0;
    };

    bool isDamaged() const { return m_a.input.isDamaged() || m_b.input.isDamaged(); }
    void step();
    void listAlone(Side& side, const char* name);
    void compareValues();

    Side m_a, m_b;
    Output m_output;
    uint64_t m_different = 0;
};

void Comparison::listAlone(Side& side, const char* name) {
    m_output.write(fmt::format("only in {}: {}\n", name, entryText(side.key, side.value)));
    ++side.alone;
    side.advance();
}

void Comparison::compareValues() {
    const size_t at = firstDifference(m_a.value, m_b.value);
    if (at != m_a.value.getPlainSize() || at != m_b.value.getPlainSize()) {
        m_output.write(fmt::format("different from byte {} of the value on: {}, in B {}\n", at,
                                   entryText(m_a.key, m_a.value), withoutControls(m_b.value.asString())));
        ++m_different;
    }
    m_a.advance();
    m_b.advance();
}

void Comparison::step() {
    const int order = !m_a.isThere ? 1 : !m_b.isThere ? -1 : Item::compareTotal(m_a.key, m_b.key);
    if (order < 0) {
        listAlone(m_a, "A");
    } else if (order > 0) {
        listAlone(m_b, "B");
    } else {
        compareValues();
    }
}

// Behind damage in one file everything in the other would seem to be alone.
int Comparison::run() {
    m_a.advance();
    m_b.advance();
    while ((m_a.isThere || m_b.isThere) && !isDamaged() && m_output.isGood()) step();
    m_output.flush();
    const bool isWholeA = m_a.input.finish(), isWholeB = m_b.input.finish();
    const bool areWhole = isWholeA && isWholeB;
    const bool areEqual = areWhole && m_a.alone + m_b.alone + m_different == 0;
    if (!m_output.isGood()) complainOfStore("standard output can't be written");
    if (!m_a.input.isOpen() || !m_b.input.isOpen()) return 1;
    complainOfStore(fmt::format("{} entries in A, {} in B{}: {} only in A, {} only in B, {} different",
                                m_a.input.getNumberOfEntries(), m_b.input.getNumberOfEntries(),
                                areEqual   ? ", equal"
                                : areWhole ? ""
                                           : " before the damage",
                                m_a.alone, m_b.alone, m_different));
    return areEqual && m_output.isGood() ? 0 : 1;
}

} // namespace

int dumpStore(const StoreCommand& command) {
    StoreInput input(command.file);
    Output output;
    Item key, value;
    while (output.isGood() && input.read(key, value)) output.write(entryText(key, value) + '\n');
    return finish(input, output, true, fmt::format("{} entries", input.getNumberOfEntries()));
}

int showTree(const StoreCommand& command) {
    Item top, key, value;
    if (!readKey("KEY", command.key, top)) return 1;
    StoreInput input(command.file);
    Output output;
    TreeWriter tree(top, command.depth, output);
    while (output.isGood() && input.read(key, value)) tree.add(key, value);
    tree.finish();
    const uint64_t below = tree.getNumberOfEntries();
    return finish(input, output, below != 0 || top.empty(),
                  fmt::format("{} entries, {} of them in this tree", input.getNumberOfEntries(), below));
}

int getEntry(const StoreCommand& command) {
    Item wanted, key, value, found;
    if (!readKey("KEY", command.key, wanted)) return 1;
    StoreInput input(command.file);
    bool isFound = false;
    while (input.read(key, value)) {
        if (Item::compareTotal(key, wanted) != 0) continue;
        isFound = true;
        found.setPlain(value);
    }
    Output output;
    std::string problem = isFound ? lossOf(found, command.form) : "no entry " + withoutControls(wanted.asString());
    if (problem.empty()) output.write(textOf(found, command.form) + '\n');
    const int status = finish(input, output, problem.empty(), "");
    if (!problem.empty() && !input.isDamaged()) complainOfStore(input.getName() + ": " + problem);
    return status;
}

int compareStores(const StoreCommand& command) {
    return Comparison(command).run();
}

} // namespace kiv::app
