// quenmoor-put: the upload engine on the command line.
#include "cli/put_options.h"
#include "cli/put_run.h"

#include <cstdio>

int main(int argc, char** argv)
{
    const auto parsed = quenmoor::parsePutOptions(argc, argv);
    if (const auto* const exit = std::get_if<quenmoor::PutExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->status == 0 ? stdout : stderr);
        return exit->status;
    }
    return quenmoor::runPut(std::get<quenmoor::PutOptions>(parsed));
}
