// Regions of a shapefile (.shp, .shx, .dbf): their polygons with holes and parts, keyed by
// one attribute of the attribute table.
#pragma once
#include <stdexcept>
#include <string>
#include <vector>

// a failure of the map tool that names the file and the field at fault; the text is the message
class MapError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// a closed ring: the last point repeats the first
struct Ring {
    std::vector<double> x, y;
    size_t size() const { return x.size(); }
};

// one outer ring, clockwise, with its holes, counter-clockwise
struct Polygon {
    Ring outer;
    std::vector<Ring> holes;
};

struct MapRegion {
    std::string key;                 // the key attribute, normalised by regionKey
    std::vector<Polygon> polygons;   // parts of all records with this key
};

struct ShapeMap {
    std::string shpPath, dbfPath;
    std::vector<MapRegion> regions;  // in the order of their first record
    double xmin = 0, ymin = 0, xmax = 0, ymax = 0;
    size_t vertices = 0;
    bool geographic = false;         // a .prj beside it says the coordinates are longitude and latitude
};

// the key of a region as the tables and the attribute table are compared: blanks trimmed, and a
// whole number written without sign, leading zeros and decimals ("0101", "101.000" -> "101")
std::string regionKey(const std::string& text);

// twice the signed area of a ring: positive when it runs counter-clockwise
double ringArea2(const Ring& r);
// whether the point lies inside the ring (even-odd rule)
bool insideRing(const Ring& r, double x, double y);

// reads the shapefile `path` (with or without ".shp"), keyed by the attribute `keyField`;
// throws MapError for a missing or damaged file, a missing attribute or shapes that are no polygons
ShapeMap readShapefile(const std::string& path, const std::string& keyField);
