// The shapefile of the demo study area is the one the generator writes, and keys the regions of
// the demo's reference table. VELDOR_WRITE_DEMO_MAP=1 writes it into examples/ anew.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "maps/shapefile_reader.h"
#include "tests/maps/map_fixtures.h"
#include "tests/protocol_fixture.h"

namespace fs = std::filesystem;

TEST(DemoMap, ExamplesHoldTheGeneratedShapefile)
{
    std::string examples = std::string(VELDOR_SOURCE_DIR) + "/examples/gebiete";
    if (std::getenv("VELDOR_WRITE_DEMO_MAP")) writeShapefile(examples, demoRegions());
    fs::path tmp = fs::temp_directory_path() / ("veldor-demomap-" + std::to_string(getpid()));
    fs::create_directories(tmp);
    writeShapefile((tmp / "gebiete").string(), demoRegions());
    for (const char* ext : {".shp", ".shx", ".dbf"})
        EXPECT_EQ(slurpFile((tmp / "gebiete").string() + ext), slurpFile(examples + ext)) << ext;
    fs::remove_all(tmp);

    // every region of the reference table has its shape, and no other
    ShapeMap map = readShapefile(examples + ".shp", "GKZ");
    std::set<std::string> keys;
    for (const MapRegion& r : map.regions) keys.insert(r.key);
    std::set<std::string> reference;
    std::ifstream ref(std::string(VELDOR_SOURCE_DIR) + "/examples/reftyp.csv");
    for (std::string line; std::getline(ref, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::string key = line.substr(0, line.find(';'));
        if (key == "201..208")
            for (int k = 201; k <= 208; ++k) reference.insert(std::to_string(k));
        else
            reference.insert(key);
    }
    EXPECT_EQ(keys, reference);
    EXPECT_EQ(map.regions.size(), 30u);
}
