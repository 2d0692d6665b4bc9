#pragma once

#include <string>
#include <vector>

namespace VelmoraTest {

/// What one run of velmora-identity left.
struct CliResult {
    int exit_code{-1};
    std::string out;
    std::string err;
    /// The first line of `err`.
    std::string FirstErrorLine() const;
};

/// Runs the velmora-identity binary of this build as a user would, with `arguments`, stdin from
/// /dev/null and stdout and stderr captured through files in `scratch_dir`; waits for its end.
CliResult RunCli(const std::vector<std::string>& arguments, const std::string& scratch_dir);
/// The same with stderr on a pseudo-terminal, as in an interactive shell; `err` is what it showed.
CliResult RunCliOnTerminal(const std::vector<std::string>& arguments, const std::string& scratch_dir);

}  // namespace VelmoraTest
