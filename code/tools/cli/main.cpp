// velmora-identity: what one installation's identity holds, sends and was answered, from the
// command line, through the public identity API of a core started on the data folder.

#include "tools/cli/CliApp.h"

int main(int argc, char** argv) {
    VelmoraCli::CliApp cli;
    if (std::optional<int> printed = cli.Parse(argc, argv)) {
        return *printed;
    }
    return cli.Run();
}
