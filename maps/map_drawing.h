// Gnuplot data and commands that draw a map: filled polygons with holes and parts, colour classes
// with a legend, labels at a point inside each region, pie or bar glyphs per region.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

#include "maps/shapefile_reader.h"

struct MapClass {
    std::string label;      // legend text; empty: no legend entry
    std::string colour;     // "#rrggbb"
    bool hatched = false;   // regions without data
};

enum class Glyph { NONE, PIE, BAR };

struct MapPicture {
    const ShapeMap* map = nullptr;
    std::vector<int> regionClass;            // per region, index into classes
    std::vector<MapClass> classes;
    std::vector<std::string> labels;         // per region: first line of the label; empty: none
    std::vector<std::string> labelValues;    // per region: second line, may be empty
    Glyph glyph = Glyph::NONE;
    std::vector<std::string> glyphNames;     // one per part
    std::vector<std::vector<double>> glyphValues;  // per region, per part; NaN counts as 0
    std::string title;
    std::string picturePath, dataPath;
};

// where the blocks of the data file stand (gnuplot "index" numbers)
struct MapLayout {
    std::vector<int> classBlock;   // per class; -1 when no region has the class
    int borderBlock = -1;
    int labelBlock = -1;
    std::vector<int> glyphBlock;   // per glyph part; -1 when no region has the part
};

// a value as legend and labels show it, with the decimal point of the locale
std::string mapNumber(double v);

// the colour classes of values (NaN: without data, hatched): up to `wanted` classes of about
// equal count with rounded bounds, split at 0 when the values have both signs; fills
// picture.classes and picture.regionClass. Without colouring all regions with data share one class.
void classify(MapPicture& picture, const std::vector<double>& values, bool colouring, int wanted = 5);

// a point well inside the region: the middle of the widest inner stretch of a scan line across
// its largest polygon
void interiorPoint(const MapRegion& region, double& x, double& y);

// writes the data blocks; throws nothing, a failed write ends the process like every table write
MapLayout writeMapData(FILE* f, const MapPicture& picture);
void writeMapCommands(FILE* f, const MapPicture& picture, const MapLayout& layout);

// a text in single quotes for a gnuplot command
std::string gnuplotQuote(const std::string& text);
