#include "commands/dispatcher.h"

#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "commands/forecast_command.h"
#include "commands/tool_help.h"
#include "household/household_frame.h"
#include "maps/map_tool.h"
#include "platform/exit_status.h"
#include "platform/operating_system.h"
#include "statistics/statistics_preparation.h"
#include "statistics/table_adjustment.h"
#include "statistics/time_series.h"

int dispatch(int argc, char** argv)
{
    std::string command = argc >= 2 ? argv[1] : "";
    // the tools see the command line behind their own name
    int count = argc - 2;
    char** vector = argv + 2;
    std::map<std::string, std::function<void()>> tools = {
        {"adeton", [&] { adeton(count, vector); }},
        {"dstmak", [&] { dstmak(count, vector); }},
        {"hhprog", [&] { hhprog(count, vector); }},
        {"shp2plt", [&] { exitStatus = mapTool(count, vector); }},
        {"orvane", [&] { exitStatus = orvane(count, vector); }},
        {"zrgem", [&] { exitStatus = zrgemTool(count, vector); }},
    };
    auto tool = tools.find(command);
    if (tool != tools.end() && helpAsked(command, count, vector)) {
        fputs(toolHelp(command).c_str(), stdout);
        exitStatus = 0;
    } else if (tool != tools.end()) {
        tool->second();
    } else {
        std::string list;
        for (const auto& [name, call] : tools) list += " " + name;
        os::messageBox(argv[0], "wrong argument: %s, use%s", command.c_str(), list.c_str());
        // the overview follows the usual text when the program itself is asked for help
        if (command == "--help" || command == "-h") fputs(programHelp().c_str(), stdout);
    }
    return exitStatus;
}
