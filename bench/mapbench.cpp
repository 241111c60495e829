// Times the map converter on a large shapefile: regions of many vertices on a grid, a result
// table of one value per region, colour classes, labels, and the PNG drawn by gnuplot.
// usage: mapbench [regions] [vertices per region] [directory]   (default 1000 x 100 in a temporary directory)
// Run it from build/ so that ./App/ holds the dictionary.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "maps/map_drawing.h"
#include "maps/map_tool.h"
#include "maps/shapefile_reader.h"
#include "maps/shapefile_writer.h"
#include "platform/settings.h"

namespace fs = std::filesystem;

namespace {

double seconds(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

} // namespace

int main(int argc, char** argv)
{
    const int regions = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int vertices = argc > 2 ? std::atoi(argv[2]) : 100;
    std::string dir = argc > 3 ? std::string(argv[3]) : (fs::temp_directory_path() / "mapbench").string();
    fs::create_directories(dir);
    si::separator = ';';

    // wavy rings of the given number of points, clockwise, one per grid cell
    int side = int(std::ceil(std::sqrt(double(regions))));
    std::vector<ShapeRecord> records;
    std::ofstream table(dir + "/werte.csv");
    table << "#Jahr;GKZ;Anzahl\n";
    for (int r = 0; r < regions; ++r) {
        double cx = (r % side) * 1000.0, cy = (r / side) * 1000.0;
        Points ring;
        for (int k = 0; k < vertices - 1; ++k) {
            double a = -2 * M_PI * k / (vertices - 1);
            double radius = 450 + 30 * std::sin(7 * a + r);
            ring.push_back({cx + radius * std::cos(a), cy + radius * std::sin(a)});
        }
        ring.push_back(ring.front());
        records.push_back(ShapeRecord{std::to_string(r + 1), "Gebiet", {ring}});
        table << "2040;" << r + 1 << ";" << (r * 37) % 1000 << "\n";
    }
    table.close();
    writeShapefile(dir + "/gross", records);

    auto t0 = std::chrono::steady_clock::now();
    ShapeMap map = readShapefile(dir + "/gross", "GKZ");
    double read = seconds(t0);

    t0 = std::chrono::steady_clock::now();
    MapPicture picture;
    picture.map = &map;
    std::vector<double> values(map.regions.size());
    for (size_t i = 0; i < values.size(); ++i) values[i] = double(i % 97);
    classify(picture, values, true);
    picture.labels.assign(map.regions.size(), "1");
    FILE* f = fopen((dir + "/daten.dat").c_str(), "w");
    writeMapData(f, picture);
    fclose(f);
    double data = seconds(t0);

    std::string d = dir, g = "karte.png", r = "werte.csv";
    std::vector<std::string> args = {"-d", d, "-r", r, "-c", "-l", "-g", g, "gross"};
    std::vector<char*> argvTool;
    for (std::string& a : args) argvTool.push_back(a.data());
    t0 = std::chrono::steady_clock::now();
    int status = mapTool(int(argvTool.size()), argvTool.data());
    double whole = seconds(t0);

    printf("%d regions, %zu vertices\n", regions, map.vertices);
    printf("read shapefile      %8.3f s\n", read);
    printf("data with labels    %8.3f s\n", data);
    printf("shp2plt with gnuplot %7.3f s (status %d, %llu bytes of PNG)\n", whole, status,
           (unsigned long long)(fs::exists(dir + "/karte.png") ? fs::file_size(dir + "/karte.png") : 0));
    // a directory of its own choosing goes again; one the caller named stays for a look
    if (argc <= 3) {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    return status;
}
