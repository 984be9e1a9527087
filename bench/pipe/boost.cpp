#include "Pipe.h"
#include "Scalar.h"

#include <boost/process.hpp>
#include <string>

namespace {

// What most programs do: a stream of lines, taken apart character by character.
size_t read(size_t payloadSize) {
    boost::process::ipstream output;
    boost::process::child child(bench::thisProgram(), "scalar", std::to_string(payloadSize),
                                boost::process::std_out > output);
    size_t count = 0;
    for (std::string line; std::getline(output, line);)
        count += bench::decodeScalar(line.data(), line.data() + line.size()).size() == payloadSize;
    child.wait();
    return count;
}

const bench::Contestant fromChild("from-child", "boost", read);

} // namespace
