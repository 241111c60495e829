#include "maps/shapefile_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <map>
#include <memory>
#include <shapefil.h>

#include "platform/operating_system.h"
#include "platform/text_format.h"

namespace {

// what shapelib complained about last, for the message that names the file
std::string g_libraryError;

void collectError(const char* message)
{
    if (!g_libraryError.empty()) g_libraryError += "; ";
    g_libraryError += message;
}

SAHooks hooks()
{
    SAHooks h;
    SASetupDefaultHooks(&h);
    h.Error = collectError;
    return h;
}

std::string withLibraryError(const std::string& text)
{
    return g_libraryError.empty() ? text : text + " (" + g_libraryError + ")";
}

const char* shapeTypeName(int type)
{
    switch (type) {
    case SHPT_NULL: return "leer";
    case SHPT_POINT: case SHPT_POINTZ: case SHPT_POINTM: return "Punkte";
    case SHPT_ARC: case SHPT_ARCZ: case SHPT_ARCM: return "Linien";
    case SHPT_MULTIPOINT: case SHPT_MULTIPOINTZ: case SHPT_MULTIPOINTM: return "Punktgruppen";
    case SHPT_MULTIPATCH: return "Flächenstücke";
    default: return "unbekannt";
    }
}

bool isPolygonType(int type) { return type == SHPT_POLYGON || type == SHPT_POLYGONZ || type == SHPT_POLYGONM; }

struct ShpCloser { void operator()(SHPInfo* h) const { SHPClose(h); } };
struct DbfCloser { void operator()(DBFInfo* h) const { DBFClose(h); } };
struct ObjectDestroyer { void operator()(SHPObject* o) const { SHPDestroyObject(o); } };

void reverseRing(Ring& r)
{
    std::reverse(r.x.begin(), r.x.end());
    std::reverse(r.y.begin(), r.y.end());
}

// the rings of one record as outer rings with their holes
std::vector<Polygon> polygonsOf(const SHPObject& o)
{
    std::vector<Ring> outers, holes;
    for (int p = 0; p < o.nParts; ++p) {
        int begin = o.panPartStart[p];
        int end = p + 1 < o.nParts ? o.panPartStart[p + 1] : o.nVertices;
        if (begin < 0 || end > o.nVertices || begin >= end) continue;
        Ring r;
        r.x.assign(o.padfX + begin, o.padfX + end);
        r.y.assign(o.padfY + begin, o.padfY + end);
        if (r.x.front() != r.x.back() || r.y.front() != r.y.back()) {
            r.x.push_back(r.x.front());
            r.y.push_back(r.y.front());
        }
        double a = r.size() >= 4 ? ringArea2(r) : 0;
        if (a < 0)
            outers.push_back(std::move(r));
        else if (a > 0)
            holes.push_back(std::move(r));
    }
    // rings all the wrong way round are taken as outer rings
    if (outers.empty()) {
        outers.swap(holes);
        for (Ring& r : outers) reverseRing(r);
    }
    std::vector<Polygon> polygons(outers.size());
    std::vector<double> areas(outers.size());
    for (size_t i = 0; i < outers.size(); ++i) {
        areas[i] = -ringArea2(outers[i]);
        polygons[i].outer = std::move(outers[i]);
    }
    for (Ring& h : holes) {
        // the smallest outer ring that holds the hole
        int best = -1;
        for (size_t i = 0; i < polygons.size(); ++i) {
            bool holds = false;
            for (size_t k = 0; k + 1 < h.size() && k < 3 && !holds; ++k)
                holds = insideRing(polygons[i].outer, h.x[k], h.y[k]);
            if (holds && (best < 0 || areas[i] < areas[size_t(best)])) best = int(i);
        }
        if (best >= 0) {
            polygons[size_t(best)].holes.push_back(std::move(h));
        } else {
            // a ring against the clockwise order that lies in no outer ring is an island of its own
            reverseRing(h);
            polygons.push_back(Polygon{std::move(h), {}});
        }
    }
    return polygons;
}

} // namespace

std::string regionKey(const std::string& text)
{
    size_t b = text.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    size_t e = text.find_last_not_of(" \t\r\n");
    std::string t = text.substr(b, e - b + 1);
    size_t i = (t[0] == '+') ? 1 : 0;
    size_t digits = i;
    while (digits < t.size() && t[digits] >= '0' && t[digits] <= '9') ++digits;
    if (digits == i) return t;
    size_t end = digits;
    if (end < t.size() && t[end] == '.') {
        ++end;
        while (end < t.size() && t[end] == '0') ++end;
    }
    if (end != t.size()) return t;
    std::string whole = t.substr(i, digits - i);
    size_t nz = whole.find_first_not_of('0');
    return nz == std::string::npos ? "0" : whole.substr(nz);
}

double ringArea2(const Ring& r)
{
    double a = 0;
    for (size_t i = 0; i + 1 < r.size(); ++i) a += r.x[i] * r.y[i + 1] - r.x[i + 1] * r.y[i];
    return a;
}

bool insideRing(const Ring& r, double x, double y)
{
    bool in = false;
    for (size_t i = 0, j = r.size() - 1; i < r.size(); j = i++) {
        if ((r.y[i] > y) != (r.y[j] > y) && x < (r.x[j] - r.x[i]) * (y - r.y[i]) / (r.y[j] - r.y[i]) + r.x[i])
            in = !in;
    }
    return in;
}

ShapeMap readShapefile(const std::string& path, const std::string& keyField)
{
    std::string base = path;
    if (base.size() > 4) {
        std::string ext = base.substr(base.size() - 4);
        std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
        if (ext == ".shp" || ext == ".shx" || ext == ".dbf") base.resize(base.size() - 4);
    }
    ShapeMap map;
    map.shpPath = base + ".shp";
    map.dbfPath = base + ".dbf";
    std::string shxPath = base + ".shx";
    for (const std::string* p : {&map.shpPath, &shxPath, &map.dbfPath})
        if (!os::isFile(*p)) throw MapError(*p + ": Datei fehlt");

    g_libraryError.clear();
    SAHooks h = hooks();
    std::unique_ptr<SHPInfo, ShpCloser> shp(SHPOpenLL(map.shpPath.c_str(), "rb", &h));
    if (!shp) throw MapError(withLibraryError(map.shpPath + ", " + shxPath + ": nicht lesbar"));
    int count = 0, type = 0;
    double lo[4], hi[4];
    SHPGetInfo(shp.get(), &count, &type, lo, hi);
    if (!isPolygonType(type))
        throw MapError(format("%s: Formtyp %d (%s) ist kein Polygon", map.shpPath.c_str(), type, shapeTypeName(type)));
    if (os::fileSize(map.shpPath) < shp->nFileSize)
        throw MapError(format("%s: abgeschnitten, %llu Bytes statt %u", map.shpPath.c_str(),
                              (unsigned long long)os::fileSize(map.shpPath), shp->nFileSize));
    map.xmin = lo[0];
    map.ymin = lo[1];
    map.xmax = hi[0];
    map.ymax = hi[1];

    g_libraryError.clear();
    std::unique_ptr<DBFInfo, DbfCloser> dbf(DBFOpenLL(map.dbfPath.c_str(), "rb", &h));
    if (!dbf) throw MapError(withLibraryError(map.dbfPath + ": nicht lesbar"));
    unsigned long long expected =
        (unsigned long long)dbf->nHeaderLength + (unsigned long long)dbf->nRecords * (unsigned long long)dbf->nRecordLength;
    if (os::fileSize(map.dbfPath) < expected)
        throw MapError(format("%s: abgeschnitten, %llu Bytes statt %llu für %d Datensätze", map.dbfPath.c_str(),
                              (unsigned long long)os::fileSize(map.dbfPath), expected, dbf->nRecords));
    int field = DBFGetFieldIndex(dbf.get(), keyField.c_str());
    if (field < 0) {
        std::string names;
        for (int i = 0; i < DBFGetFieldCount(dbf.get()); ++i) {
            char name[XBASE_FLDNAME_LEN_READ + 1] = {};
            DBFGetFieldInfo(dbf.get(), i, name, nullptr, nullptr);
            names += (i ? ", " : "") + std::string(name);
        }
        throw MapError(map.dbfPath + ": kein Attribut " + keyField + " (vorhanden: " + names + ")");
    }
    if (DBFGetRecordCount(dbf.get()) != count)
        throw MapError(format("%s: %d Datensätze, aber %s: %d Formen", map.dbfPath.c_str(),
                              DBFGetRecordCount(dbf.get()), map.shpPath.c_str(), count));

    std::map<std::string, size_t> byKey;
    for (int i = 0; i < count; ++i) {
        g_libraryError.clear();
        std::unique_ptr<SHPObject, ObjectDestroyer> o(SHPReadObject(shp.get(), i));
        if (!o)
            throw MapError(withLibraryError(
                format("%s: Form %d nicht lesbar, Datei abgeschnitten oder beschädigt", map.shpPath.c_str(), i + 1)));
        if (o->nSHPType == SHPT_NULL || o->nVertices == 0) continue;
        if (!isPolygonType(o->nSHPType))
            throw MapError(format("%s: Form %d hat den Formtyp %d (%s), kein Polygon", map.shpPath.c_str(), i + 1,
                                  o->nSHPType, shapeTypeName(o->nSHPType)));
        const char* value = DBFReadStringAttribute(dbf.get(), i, field);
        if (!value)
            throw MapError(withLibraryError(format("%s: Datensatz %d, Attribut %s nicht lesbar", map.dbfPath.c_str(),
                                                   i + 1, keyField.c_str())));
        std::string key = regionKey(value);
        auto [it, fresh] = byKey.emplace(key, map.regions.size());
        if (fresh) map.regions.push_back(MapRegion{key, {}});
        for (Polygon& p : polygonsOf(*o)) {
            map.vertices += p.outer.size();
            for (const Ring& r : p.holes) map.vertices += r.size();
            map.regions[it->second].polygons.push_back(std::move(p));
        }
    }
    std::string prj = base + ".prj";
    if (os::isFile(prj))
        if (FILE* f = fopen(prj.c_str(), "r")) {
            char head[8] = {};
            map.geographic = fread(head, 1, 6, f) == 6 && std::string(head) == "GEOGCS";
            fclose(f);
        }
    return map;
}
