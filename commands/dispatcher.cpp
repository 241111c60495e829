#include "commands/dispatcher.h"

#include <cstdio>

#include "commands/forecast_command.h"
#include "household/household_frame.h"
#include "statistics/statistics_preparation.h"

void adeton(int, char**) { notBuilt("adeton"); }

int shp2plt(int, char**)
{
    fprintf(stderr, "shp2plt: the map converter is not available\n");
    return 1;
}
