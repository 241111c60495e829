#include "commands/dispatcher.h"

#include <cstdio>

#include "commands/forecast_command.h"

int exitStatus = 0;

void notBuilt(const char* tool)
{
    fprintf(stderr, "%s: this tool is not part of this build yet\n", tool);
    exitStatus = 1;
}

void hhprog(int, char**) { notBuilt("hhprog"); }
void dstmak(int, char**) { notBuilt("dstmak"); }
void adeton(int, char**) { notBuilt("adeton"); }

int shp2plt(int, char**)
{
    fprintf(stderr, "shp2plt: the map converter is not available\n");
    return 1;
}
