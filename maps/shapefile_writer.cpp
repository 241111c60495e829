#include "maps/shapefile_writer.h"

#include <cstdlib>
#include <shapefil.h>

#include "maps/shapefile_reader.h"

void writeShapefile(const std::string& base, const std::vector<ShapeRecord>& records, int shapeType)
{
    SHPHandle shp = SHPCreate(base.c_str(), shapeType);
    DBFHandle dbf = DBFCreateEx(base.c_str(), "UTF-8");
    if (!shp || !dbf) {
        if (shp) SHPClose(shp);
        if (dbf) DBFClose(dbf);
        throw MapError(base + ": nicht anlegbar");
    }
    bool numeric = true;
    for (const ShapeRecord& r : records)
        numeric = numeric && !r.key.empty() && r.key.find_first_not_of("0123456789") == std::string::npos;
    int key = DBFAddField(dbf, "GKZ", numeric ? FTInteger : FTString, numeric ? 9 : 20, 0);
    int name = DBFAddField(dbf, "NAME", FTString, 40, 0);
    for (size_t i = 0; i < records.size(); ++i) {
        std::vector<int> starts;
        std::vector<double> x, y;
        for (const Points& ring : records[i].rings) {
            starts.push_back(int(x.size()));
            for (const auto& [px, py] : ring) {
                x.push_back(px);
                y.push_back(py);
            }
        }
        SHPObject* o = SHPCreateObject(shapeType, -1, int(starts.size()), starts.data(), nullptr, int(x.size()),
                                       x.data(), y.data(), nullptr, nullptr);
        SHPWriteObject(shp, -1, o);
        SHPDestroyObject(o);
        if (numeric)
            DBFWriteIntegerAttribute(dbf, int(i), key, std::atoi(records[i].key.c_str()));
        else
            DBFWriteStringAttribute(dbf, int(i), key, records[i].key.c_str());
        DBFWriteStringAttribute(dbf, int(i), name, records[i].name.c_str());
    }
    SHPClose(shp);
    DBFClose(dbf);
}
