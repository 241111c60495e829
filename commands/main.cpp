// Process entry: shared preparation, then the tool named by the first argument.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>

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
    std::string command = argc >= 2 ? argv[1] : "";

    // the tools see the command line behind their own name
    int count = argc - 2;
    char** vector = argv + 2;
    std::map<std::string, std::function<void()>> tools = {
        {"adeton", [&] { adeton(count, vector); }},
        {"dstmak", [&] { dstmak(count, vector); }},
        {"hhprog", [&] { hhprog(count, vector); }},
        {"shp2plt", [&] { exitStatus = shp2plt(count, vector); }},
        {"orvane", [&] { exitStatus = orvane(count, vector); }},
        {"zrgem", [&] { exitStatus = zrgemTool(count, vector); }},
    };
    auto tool = tools.find(command);
    if (tool != tools.end()) {
        tool->second();
    } else {
        std::string list;
        for (const auto& [name, call] : tools) list += " " + name;
        os::messageBox(argv[0], "wrong argument: %s, use%s", command.c_str(), list.c_str());
    }
    return exitStatus;
}
