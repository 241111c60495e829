// Shapefiles for the map tests and the demo study area, written with shapelib.
#pragma once
#include <string>
#include <utility>
#include <vector>

using Points = std::vector<std::pair<double, double>>;

struct ShapeRecord {
    std::string key, name;
    std::vector<Points> rings;   // as they go into the file: outer rings clockwise, holes counter-clockwise
};

// writes base.shp, .shx, .dbf (and .cpg); the attributes are GKZ (an integer field when every
// key is a number) and NAME; shapeType is a shapelib type (polygons by default)
void writeShapefile(const std::string& base, const std::vector<ShapeRecord>& records, int shapeType = 5);

// the 30 regions of the demo study area on a 6 x 5 grid of 1 km cells with wavy borders;
// 103 has a pond as hole, 406 a second part inside a hole of 405
std::vector<ShapeRecord> demoRegions();
