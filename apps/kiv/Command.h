#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kiv::app {

// One of the things kiv does. The parser writes its arguments into the object, which outlives it.
class Command {
public:
    virtual ~Command() = default;
    // Its options, and what --help tells of them.
    virtual void describe(CLI::App& app) = 0;
    // Takes arguments that are none of the parser's; the command's name is the first.
    virtual void takeArguments(std::vector<std::string>&) {}
    // The exit status.
    virtual int run() const = 0;
};

} // namespace kiv::app
