// Writing a shapefile of regions, for the demo study area, the tests and the benchmarks.
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
// key is a number) and NAME; shapeType is a shapelib type (polygons by default). Throws MapError
// when the files cannot be created.
void writeShapefile(const std::string& base, const std::vector<ShapeRecord>& records, int shapeType = 5);
