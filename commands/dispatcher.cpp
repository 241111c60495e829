#include "commands/dispatcher.h"

#include <cstdio>

#include "commands/forecast_command.h"
#include "maps/map_tool.h"

void hhprog(int, char**) { notBuilt("hhprog"); }
void dstmak(int, char**) { notBuilt("dstmak"); }
void adeton(int, char**) { notBuilt("adeton"); }

int shp2plt(int argc, char** argv) { return mapTool(argc, argv); }
