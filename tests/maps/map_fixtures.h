// Shapefiles for the map tests and the demo study area, written with shapelib.
#pragma once
#include <vector>

#include "maps/shapefile_writer.h"

// the 30 regions of the demo study area on a 6 x 5 grid of 1 km cells with wavy borders;
// 103 has a pond as hole, 406 a second part inside a hole of 405
std::vector<ShapeRecord> demoRegions();
