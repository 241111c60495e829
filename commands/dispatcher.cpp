#include "commands/dispatcher.h"

#include <cstdio>

#include "commands/forecast_command.h"
#include "maps/map_tool.h"
#include "household/household_frame.h"
#include "statistics/statistics_preparation.h"


int shp2plt(int argc, char** argv) { return mapTool(argc, argv); }
