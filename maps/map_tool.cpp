#include "maps/map_tool.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "maps/map_drawing.h"
#include "maps/region_values.h"
#include "maps/shapefile_reader.h"
#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/option_scanner.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "tables/gnuplot_bridge.h"

namespace {

const char* const USAGE =
    "usage: shp2plt -a attribute[=column] -c -d directory -g picture.png -l -p parts -r table[,table] "
    "-s value -t title -x parts shapefile";

struct MapOptions {
    std::string keyField = "GKZ", keyColumn = "GKZ";
    bool colours = false, labels = false;
    std::string directory, picture = "karte.png", pie, bar, tables, title, value;
    bool valueGiven = false;
    std::string shapefile;
};

std::string inDirectory(const std::string& directory, const std::string& path)
{
    if (directory.empty() || path.empty() || path[0] == '/') return path;
    return directory.back() == '/' ? directory + path : directory + "/" + path;
}

std::vector<std::string> tableList(const MapOptions& o)
{
    std::vector<std::string> list;
    size_t start = 0;
    while (start <= o.tables.size()) {
        size_t comma = o.tables.find(',', start);
        std::string t = o.tables.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!t.empty()) list.push_back(inDirectory(o.directory, t));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return list;
}

std::string joined(const std::vector<std::string>& items)
{
    std::string text;
    for (size_t i = 0; i < items.size(); ++i) text += (i ? " " : "") + (items[i].empty() ? "\"\"" : items[i]);
    return text;
}

// 0 when the command line was understood
int parseOptions(int argc, char** argv, MapOptions& o)
{
    Getopt scan;
    scan.opterr = 0;
    scan.optind = 0;
    int errors = 0;
    while (scan.optind < argc) {
        int c = scan(argc, argv, "a:cd:g:lp:r:t:s:x:");
        if (c == -1) {
            // the shapefile may stand between the options
            if (scan.optind >= argc) break;
            if (!o.shapefile.empty()) ++errors;
            o.shapefile = argv[scan.optind++];
            continue;
        }
        switch (c) {
        case 'a': {
            std::string a = scan.optarg;
            size_t eq = a.find('=');
            o.keyField = a.substr(0, eq);
            o.keyColumn = eq == std::string::npos ? o.keyField : a.substr(eq + 1);
            if (o.keyField.empty() || o.keyColumn.empty()) ++errors;
            break;
        }
        case 'c': o.colours = true; break;
        case 'd': o.directory = scan.optarg; break;
        case 'g': o.picture = scan.optarg; break;
        case 'l': o.labels = true; break;
        case 'p': o.pie = scan.optarg; break;
        case 'r': o.tables = scan.optarg; break;
        case 's': o.value = scan.optarg; o.valueGiven = true; break;
        case 't': o.title = scan.optarg; break;
        case 'x': o.bar = scan.optarg; break;
        default: ++errors; break;
        }
    }
    if (o.shapefile.empty()) ++errors;
    return errors;
}

void report(const char* what, const std::vector<std::string>& keys)
{
    if (keys.empty()) return;
    printf("shp2plt: %s (%zu): %s\n", what, keys.size(), joined(keys).c_str());
}

// draws the picture through the plot bridge; false when gnuplot failed or left no whole picture
bool draw(const MapPicture& picture, const MapLayout& layout)
{
    std::string dir = picture.picturePath, name = lastComponent(picture.picturePath);
    size_t slash = dir.rfind('/');
    dir = slash == std::string::npos ? "." : dir.substr(0, slash == 0 ? 1 : slash);
    size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    // the bridge keeps command files in the protocol folder beside the picture
    Prot::setup(dir, "", 0, 0);
    if (plot::saveCmd && !os::isDirectory(dir + "/prot")) os::createDirectory(dir + "/prot");
    FILE* f = plotOpen(nullptr, 0, si::appDir, name.c_str());
    if (!f) {
        os::messageBox("shp2plt", "could not launch gnuplot");
        return false;
    }
    writeMapCommands(f, picture, layout);
    int status = plotClose(nullptr, 0, f, si::appDir, name.c_str());
    if (status != 0 || !plotPictureComplete(picture.picturePath)) {
        os::messageBox("shp2plt", "%s: gnuplot hat die Karte nicht gezeichnet (Status %d, %lld Bytes)",
                       picture.picturePath.c_str(),
                       status, static_cast<long long>(os::fileSize(picture.picturePath)));
        return false;
    }
    return true;
}

int run(const MapOptions& o)
{
    bool glyphs = !o.pie.empty() || !o.bar.empty();
    if (o.tables.empty() && (o.colours || glyphs || o.valueGiven))
        throw MapError("-c, -s, -p und -x brauchen eine Ergebnistabelle (-r)");
    if (!o.pie.empty() && !o.bar.empty()) throw MapError("-p und -x schließen sich aus: Kreise oder Balken");

    ShapeMap map = readShapefile(inDirectory(o.directory, o.shapefile), o.keyField);
    MapPicture picture;
    picture.map = &map;
    picture.picturePath = inDirectory(o.directory, o.picture);
    size_t slash = picture.picturePath.rfind('/');
    size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    size_t dot = picture.picturePath.rfind('.');
    picture.dataPath = picture.picturePath.substr(0, dot != std::string::npos && dot > nameStart ? dot : std::string::npos) + ".dat";
    if (slash != std::string::npos && slash > 0 && !os::isDirectory(picture.picturePath.substr(0, slash)))
        throw MapError(picture.picturePath.substr(0, slash) + ": Verzeichnis fehlt");

    std::vector<double> values(map.regions.size(), 0.0);
    JoinResult join;
    std::vector<std::string> tables = tableList(o);
    if (!tables.empty()) {
        ValueChoice value = parseValueChoice(o.value);
        std::vector<ValueChoice> parts;
        if (glyphs) parts = parseGlyphParts(value, o.pie.empty() ? o.bar : o.pie);
        join = joinTables(map, tables, o.keyColumn, value, parts);
        values = join.value;
    }
    if (glyphs && !o.colours) {
        // without colour classes a region whose glyph has data is drawn plain, not hatched
        for (size_t r = 0; r < values.size(); ++r)
            for (double v : join.parts[r])
                if (!std::isnan(v)) values[r] = 0;
    }
    classify(picture, values, o.colours);
    if (glyphs) {
        picture.glyph = o.pie.empty() ? Glyph::BAR : Glyph::PIE;
        picture.glyphNames = join.partNames;
        picture.glyphValues = join.parts;
    }
    if (o.labels) {
        for (size_t r = 0; r < map.regions.size(); ++r) {
            picture.labels.push_back(map.regions[r].key.empty() ? "?" : map.regions[r].key);
            picture.labelValues.push_back(!tables.empty() && !glyphs && !std::isnan(values[r]) ? mapNumber(values[r]) : "");
        }
    }
    picture.title = o.title;
    if (picture.title.empty()) {
        std::string names;
        for (const std::string& t : tables) names += (names.empty() ? "" : ", ") + lastComponent(t);
        std::string what = join.valueName;
        if (glyphs) {
            what.clear();
            for (const std::string& n : join.partNames) what += (what.empty() ? "" : ", ") + n;
            what += join.conditions;
        }
        picture.title = tables.empty() ? lastComponent(map.shpPath) : names + ": " + what;
    }

    // everything is read and checked: now the files are written, the data whole before gnuplot
    // reads them; a picture that gnuplot did not finish is removed
    FILE* data = safeOutput::open(picture.dataPath);
    if (!data) throw MapError(picture.dataPath + ": " + std::strerror(errno));
    MapLayout layout = writeMapData(data, picture);
    if (int err = safeOutput::commit(data)) throw MapError(picture.dataPath + ": " + std::strerror(err));
    if (!draw(picture, layout)) {
        std::remove(picture.picturePath.c_str());
        std::remove(picture.dataPath.c_str());
        return 1;
    }
    report("Gebiete ohne Daten", join.regionsWithoutData);
    std::string tableNames;
    for (const std::string& t : tables) tableNames += (tableNames.empty() ? "" : ", ") + t;
    report(("Schlüssel ohne Fläche in " + tableNames).c_str(), join.keysWithoutShape);
    size_t polygons = 0;
    for (const MapRegion& r : map.regions) polygons += r.polygons.size();
    printf("shp2plt: %s (%zu Gebiete, %zu Flächen, %zu Punkte)\n", picture.picturePath.c_str(), map.regions.size(),
           polygons, map.vertices);
    return 0;
}

} // namespace

int mapTool(int argc, char** argv)
{
    MapOptions o;
    if (parseOptions(argc, argv, o) != 0) {
        std::string text = "shp2plt";
        for (int i = 0; i < argc; ++i) text += std::string(" ") + argv[i];
        os::messageBox(USAGE, "%s", text.c_str());
        return 1;
    }
    // column names of the tables may be texts of the dictionary
    DD::load("de", {});
    try {
        int status = run(o);
        fflush(stdout);
        return status;
    } catch (const MapError& e) {
        os::messageBox("shp2plt", "%s", e.what());
        return 1;
    }
}
