// Process entry: shared preparation, then the tool named by the first argument.
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/operating_system.h"
#include "platform/settings.h"
#include "commands/dispatcher.h"
#include "tables/table_text.h"
#include "tables/gnuplot_bridge.h"

int main(int argc, char** argv)
{
    // the box of a failed allocation must not allocate itself
    std::set_new_handler([] {
        fputs("FATAL ERROR: OUT OF MEMORY\n", stderr);
        std::_Exit(1);
    });
    // the settings file is found from the program's path, which the plot settings need already
    si::programPath = argv[0];
    gnuplotSettings();
    si::initGlobals(argv[0]);
    si::csvBom = si::getInt("CSV", "BOM", si::csvBom);
    si::csvAscii = si::getInt("CSV", "ASCII", si::csvAscii);
    return dispatch(argc, argv);
}
