#include "commands/dispatcher.h"

#include <cstdio>

#include "commands/forecast_command.h"

void hhprog(int, char**) { notBuilt("hhprog"); }
void dstmak(int, char**) { notBuilt("dstmak"); }

int shp2plt(int, char**)
{
    fprintf(stderr, "shp2plt: the map converter is not available\n");
    return 1;
}
