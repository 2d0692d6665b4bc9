// The command line of velmora-identity: one argument per input line, parsed as the client parses
// them. Nothing runs: a run would start a core and reach the network.
#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "tools/cli/CliApp.h"

namespace {

/// Swallows the help and usage texts parsing prints.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return c; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static NullBuffer null_buffer;
    static const bool quiet =
        (VelmoraFuzz::QuietLogs(), std::cout.rdbuf(&null_buffer), std::cerr.rdbuf(&null_buffer), true);
    (void)quiet;
    std::vector<std::string> words{"velmora-identity"};
    const std::string text = VelmoraFuzz::Text(data, size);
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        words.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    VelmoraCli::CliApp cli;
    const std::optional<int> printed = cli.Parse(static_cast<int>(words.size()), argv.data());
    // Parsing ends in a command to run, or in help/version (0) or a usage error (2): nothing else.
    if (printed && *printed != 0 && *printed != 2) {
        std::abort();
    }
    return 0;
}
