// The map converter: a shapefile and result tables of a forecast become a gnuplot map.
#pragma once

// shp2plt with the command line behind its name; the result is the exit status (0 or 1)
int mapTool(int argc, char** argv);
