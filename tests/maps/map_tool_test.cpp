// The map converter: polygons read from a generated shapefile and the gnuplot data written for
// them, the join of result tables by region key, whole runs with a real PNG, and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "maps/map_drawing.h"
#include "maps/region_values.h"
#include "maps/shapefile_reader.h"
#include "tables/gnuplot_bridge.h"
#include "tests/maps/map_fixtures.h"
#include "tests/protocol_fixture.h"
#include "tests/sandbox.h"

namespace fs = std::filesystem;

namespace {

struct TempDir {
    std::string dir;
    TempDir()
    {
        char tmpl[] = "/tmp/veldor-mapXXXXXX";
        dir = mkdtemp(tmpl);
    }
    ~TempDir() { fs::remove_all(dir); }
};

// region 1: a square with a square hole; region 2: a triangle and a second triangle whose ring
// runs the wrong way round and lies in no other ring
std::vector<ShapeRecord> knownRegions()
{
    return {{"1", "Eins", {{{0, 0}, {0, 10}, {10, 10}, {10, 0}, {0, 0}}, {{3, 3}, {7, 3}, {7, 7}, {3, 7}, {3, 3}}}},
            {"2", "Zwei", {{{20, 0}, {22, 4}, {24, 0}, {20, 0}}, {{30, 0}, {34, 0}, {32, 4}, {30, 0}}}},
            {"3", "Drei", {{{40, 0}, {40, 2}, {42, 2}, {42, 0}, {40, 0}}}}};
}

bool isPng(const std::string& bytes) { return bytes.size() > 8 && bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") == 0; }

} // namespace

TEST(MapDrawing, KnownPolygonsGiveTheirDataBlocks)
{
    TempDir t;
    writeShapefile(t.dir + "/known", knownRegions());
    ShapeMap map = readShapefile(t.dir + "/known.shp", "GKZ");
    ASSERT_EQ(map.regions.size(), 3u);
    EXPECT_EQ(map.vertices, 5u + 5 + 4 + 4 + 5);
    EXPECT_EQ(map.regions[0].polygons.size(), 1u);
    EXPECT_EQ(map.regions[0].polygons[0].holes.size(), 1u);
    EXPECT_EQ(map.regions[1].polygons.size(), 2u);
    EXPECT_DOUBLE_EQ(map.xmax, 42);

    MapPicture p;
    p.map = &map;
    classify(p, {1, 2, NAN}, true);
    ASSERT_EQ(p.classes.size(), 3u);
    EXPECT_TRUE(p.classes[0].hatched);
    p.labels = {"1", "2", "3"};
    p.labelValues = {"1", "2", ""};
    std::string path = t.dir + "/known.dat";
    FILE* f = fopen(path.c_str(), "w");
    MapLayout layout = writeMapData(f, p);
    fclose(f);
    EXPECT_EQ(layout.classBlock, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(layout.borderBlock, 3);
    EXPECT_EQ(layout.labelBlock, 4);
    std::string data = slurpFile(path);
    // the hole is reached from the first point of the outer ring and left back to it; the
    // wrongly turned triangle is turned clockwise
    std::string regionOne = "0;0\n0;10\n10;10\n10;0\n0;0\n3;3\n7;3\n7;7\n3;7\n3;3\n0;0\n\n\n";
    std::string regionTwo = "20;0\n22;4\n24;0\n20;0\n\n30;0\n32;4\n34;0\n30;0\n\n\n";
    std::string regionThree = "40;0\n40;2\n42;2\n42;0\n40;0\n\n\n";
    std::string borders = "0;0\n0;10\n10;10\n10;0\n0;0\n\n3;3\n7;3\n7;7\n3;7\n3;3\n\n20;0\n22;4\n24;0\n20;0\n\n"
                          "30;0\n32;4\n34;0\n30;0\n\n40;0\n40;2\n42;2\n42;0\n40;0\n\n\n";
    ASSERT_EQ(data.substr(0, regionThree.size() + regionOne.size() + regionTwo.size() + borders.size()),
              regionThree + regionOne + regionTwo + borders);
    // labels: inside the square, clear of its hole
    std::istringstream labels(data.substr(regionThree.size() + regionOne.size() + regionTwo.size() + borders.size()));
    std::string line;
    std::getline(labels, line);
    double x = std::stod(line), y = std::stod(line.substr(line.find(';') + 1));
    EXPECT_TRUE(insideRing(map.regions[0].polygons[0].outer, x, y));
    EXPECT_FALSE(insideRing(map.regions[0].polygons[0].holes[0], x, y));
    EXPECT_NE(line.find(";\"1\";\"1\""), std::string::npos);

    std::string commandPath = t.dir + "/known.txt";
    p.picturePath = "karte.png";
    p.dataPath = "it's.dat";
    f = fopen(commandPath.c_str(), "w");
    writeMapCommands(f, p, layout);
    fclose(f);
    std::string commands = slurpFile(commandPath);
    EXPECT_NE(commands.find("set size ratio -1\n"), std::string::npos);
    EXPECT_NE(commands.find("plot 'it''s.dat' index 0 using 1:2 with filledcurves closed fc rgb '#d9d9d9' notitle"),
              std::string::npos);
    EXPECT_NE(commands.find("fs transparent pattern 4 title 'ohne Daten'"), std::string::npos);
    EXPECT_NE(commands.find("index 3 using 1:2 with lines"), std::string::npos);
    EXPECT_NE(commands.find("index 4 using 1:2:(strcol(4)"), std::string::npos);
}

TEST(MapDrawing, ClassesOfEqualCountAndSplitAtZero)
{
    MapPicture p;
    classify(p, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, NAN}, true);
    std::vector<std::string> labels;
    for (const MapClass& c : p.classes) labels.push_back(c.label);
    EXPECT_EQ(labels, (std::vector<std::string>{"ohne Daten", "unter 3 (2)", "3 bis unter 5 (2)", "5 bis unter 7 (2)",
                                                "7 bis unter 9 (2)", "9 und mehr (2)"}));
    EXPECT_EQ(p.regionClass[2], 2);
    EXPECT_EQ(p.regionClass[10], 0);

    classify(p, {-5, -1, 2, 80}, true);
    labels.clear();
    for (const MapClass& c : p.classes) labels.push_back(c.label);
    EXPECT_EQ(labels, (std::vector<std::string>{"unter -1 (1)", "-1 bis unter 0 (1)", "0 bis unter 2 (0)",
                                                "2 bis unter 80 (1)", "80 und mehr (1)"}));
    // below zero blue, from zero on warm colours
    EXPECT_LT(p.classes[0].colour.substr(1, 2), p.classes[0].colour.substr(5, 2));
    EXPECT_GT(p.classes[4].colour.substr(1, 2), p.classes[4].colour.substr(5, 2));
}

class MapJoin : public ::testing::Test {
protected:
    TempDir t;
    SettingsGuard guard;
    ShapeMap map;
    std::string table;
    void SetUp() override
    {
        si::separator = ';';
        for (const char* key : {"1", "2", "3"}) map.regions.push_back(MapRegion{key, {}});
        table = t.dir + "/gem.csv";
        std::ofstream(table) << "\xEF\xBB\xBF# Tabelle\n#Jahr;GKZ;AG;Anzahl\n"
                                "2024;001;0;10\n2024;1;70;5\n2024;2;0;7\n2024;9;0;1\n"
                                "2040;1;0;12\n2040;1;70;9,5\n2040;2;0;3\n2040;2;70;undef\n";
    }
    JoinResult join(const std::string& choice, const std::string& parts = "")
    {
        ValueChoice v = parseValueChoice(choice);
        return joinTables(map, {table}, "GKZ", v, parts.empty() ? std::vector<ValueChoice>{} : parseGlyphParts(v, parts));
    }
};

TEST_F(MapJoin, SumsOverTheOtherKeysAndListsMissingAndExtraKeys)
{
    JoinResult r = join("");
    EXPECT_DOUBLE_EQ(r.value[0], 36.5);
    EXPECT_DOUBLE_EQ(r.value[1], 10);
    EXPECT_TRUE(std::isnan(r.value[2]));
    EXPECT_EQ(r.regionsWithoutData, std::vector<std::string>{"3"});
    EXPECT_EQ(r.keysWithoutShape, std::vector<std::string>{"9"});
    EXPECT_EQ(r.valueName, "Anzahl");

    r = join("2024:2040");
    EXPECT_DOUBLE_EQ(r.value[0], 21.5 - 15);
    EXPECT_DOUBLE_EQ(r.value[1], 3 - 7);
    EXPECT_EQ(r.valueName, "Anzahl, 2024 bis 2040");

    // region 2 has no row of the old in 2040 (undef counts as none)
    r = join("2040,AG=65..100");
    EXPECT_DOUBLE_EQ(r.value[0], 9.5);
    EXPECT_TRUE(std::isnan(r.value[1]));
    EXPECT_EQ(r.regionsWithoutData, (std::vector<std::string>{"2", "3"}));

    r = join("2040", "AG=0..64,AG=65..100");
    EXPECT_EQ(r.parts[0], (std::vector<double>{12, 9.5}));
    EXPECT_DOUBLE_EQ(r.parts[1][0], 3);
    EXPECT_TRUE(std::isnan(r.parts[1][1]));
    EXPECT_EQ(r.partNames, (std::vector<std::string>{"AG=0..64", "AG=65..100"}));
}

TEST_F(MapJoin, BadTablesNameFileLineAndColumn)
{
    auto failure = [&](const std::string& choice) {
        try {
            join(choice);
        } catch (const MapError& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(failure("Bezirk"), table + ": keine Spalte Bezirk (Spalten: Jahr, GKZ, AG, Anzahl)");
    EXPECT_EQ(failure("2024:20x0"), "-s 2024:20x0: 2024:20x0 ist kein Jahresbereich wie 2024:2040");
    std::ofstream(table) << "#Jahr;Bezirk;Anzahl\n2024;1;4\n";
    EXPECT_EQ(failure(""), table + ": keine Spalte GKZ für den Gebietsschlüssel (Spalten: Jahr, Bezirk, Anzahl)");
    std::ofstream(table) << "#Jahr;GKZ;Anzahl\n2024;1;4\n2024;2;vier\n";
    EXPECT_EQ(failure(""), table + ", Zeile 3: kein Zahlenwert 'vier' in Spalte Anzahl");
    fs::remove(table);
    EXPECT_EQ(failure("").substr(0, table.size() + 12), table + ": Datei fehl");
}

class MapRun : public ::testing::Test {
protected:
    Sandbox s;
    void SetUp() override
    {
        s.write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[CSV]\nSpaltentrennzeichen=;\n[GNUPLOT]\nsaveCmd=1\n");
        fs::create_directories(s.path("map"));
        writeShapefile(s.path("map/regions"), knownRegions());
        s.write("map/gem2040.csv", "\xEF\xBB\xBF#VELDOR gem2040 9.4\n#Jahr;Gebietskennzeichen;Bevölkerungsgruppe;"
                                   "Geschlecht;Altersgruppe;Anzahl\n2040;1;1;1;000;4,5\n2040;1;1;2;000;5,5\n"
                                   "2040;2;1;1;000;20\n2040;9;1;1;000;1\n");
    }
    RunResult draw(std::vector<std::string> extra)
    {
        std::vector<std::string> args = {"shp2plt", "-d", "map", "-r", "gem2040.csv", "-g", "karte.png"};
        args.insert(args.end(), extra.begin(), extra.end());
        return s.run(args);
    }
};

TEST_F(MapRun, DrawsAPngAndKeepsItsCommands)
{
    RunResult r = draw({"-c", "-l", "-s", "2040", "regions"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "shp2plt: Gebiete ohne Daten (1): 3\n"
                     "shp2plt: Schlüssel ohne Fläche in map/gem2040.csv (1): 9\n"
                     "shp2plt: map/karte.png (3 Gebiete, 4 Flächen, 23 Punkte)\n");
    EXPECT_TRUE(isPng(s.read("map/karte.png")));
    // the key column was found by its text in the dictionary; region 1 sums its two rows
    std::string data = s.read("map/karte.dat");
    EXPECT_NE(data.find(";\"1\";\"10\"\n"), std::string::npos);
    EXPECT_NE(data.find(";\"2\";\"20\"\n"), std::string::npos);
    std::string commands = s.read("map/prot/pltkarte.txt");
    EXPECT_EQ(commands.substr(0, commands.find('\n') + 1),
              "set term pngcairo color solid font 'Arial,8' size 22.6cm, 16.94cm background rgb '#ffffff'\n");
    EXPECT_NE(commands.find("set output 'map/karte.png'\nset datafile separator ';'\n"), std::string::npos);
    EXPECT_NE(commands.find("set title 'gem2040.csv: Anzahl, 2040'"), std::string::npos);
    EXPECT_NE(commands.find("title 'unter 20 (1)'"), std::string::npos);
    EXPECT_NE(commands.find("title '20 und mehr (1)'"), std::string::npos);

    // pies of the two sex groups
    r = draw({"-p", "Geschlecht=1,Geschlecht=2", "regions"});
    ASSERT_EQ(r.status, 0) << r.err;
    commands = s.read("map/prot/pltkarte.txt");
    EXPECT_NE(commands.find("title 'Geschlecht=1'"), std::string::npos);
    EXPECT_NE(commands.find("set title 'gem2040.csv: Geschlecht=1, Geschlecht=2'"), std::string::npos);
}

TEST_F(MapRun, BadInputIsNamedAndWritesNothing)
{
    auto expectFailure = [&](const std::vector<std::string>& args, const std::string& message) {
        RunResult r = draw(args);
        EXPECT_EQ(r.status, 1) << message;
        EXPECT_EQ(r.err, "shp2plt: " + message + "\n");
        EXPECT_FALSE(s.exists("map/karte.png"));
        EXPECT_FALSE(s.exists("map/karte.dat"));
    };
    expectFailure({"-a", "KEY", "regions"}, "map/regions.dbf: kein Attribut KEY (vorhanden: GKZ, NAME)");
    s.write("map/bad.csv", "#Jahr;Bezirk;Anzahl\n2040;1;3\n");
    expectFailure({"-r", "bad.csv", "regions"},
                  "map/bad.csv: keine Spalte GKZ für den Gebietsschlüssel (Spalten: Jahr, Bezirk, Anzahl)");
    expectFailure({"-s", "Einwohner", "regions"},
                  "map/gem2040.csv: keine Spalte Einwohner (Spalten: Jahr, Gebietskennzeichen, Bevölkerungsgruppe, "
                  "Geschlecht, Altersgruppe, Anzahl)");

    writeShapefile(s.path("map/lines"), {{"1", "Weg", {{{0, 0}, {5, 5}}}}}, 3);
    expectFailure({"lines"}, "map/lines.shp: Formtyp 3 (Linien) ist kein Polygon");

    std::string dbf = s.read("map/regions.dbf"), shp = s.read("map/regions.shp"), shx = s.read("map/regions.shx");
    s.write("map/regions.dbf", dbf.substr(0, dbf.size() - 60));
    expectFailure({"regions"}, "map/regions.dbf: abgeschnitten, " + std::to_string(dbf.size() - 60) + " Bytes statt " +
                                   std::to_string(dbf.size() - 1) + " für 3 Datensätze");
    s.write("map/regions.dbf", dbf);
    s.write("map/regions.shp", shp.substr(0, shp.size() - 40));
    expectFailure({"regions"}, "map/regions.shp: abgeschnitten, " + std::to_string(shp.size() - 40) + " Bytes statt " +
                                   std::to_string(shp.size()));
    s.write("map/regions.shp", shp);
    s.write("map/regions.shx", shx.substr(0, shx.size() - 8));
    RunResult r = draw({"regions"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.rfind("shp2plt: map/regions.shp, map/regions.shx: nicht lesbar", 0), 0u) << r.err;
    EXPECT_FALSE(s.exists("map/karte.png"));
    fs::remove(s.path("map/regions.shx"));
    expectFailure({"regions"}, "map/regions.shx: Datei fehlt");
}

TEST_F(MapRun, AFailedWriteOrACutPictureIsSaidAndLeavesNothing)
{
    // the data for gnuplot cannot be written: the file and the cause, no picture, no success line
    RunResult r = s.run({"shp2plt", "-d", "map", "-r", "gem2040.csv", "-g", "karte.png", "regions"},
                        {"VELDOR_WRITE_LIMIT=10"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("map/karte.dat: No space left on device"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("shp2plt: map/karte.png ("), std::string::npos) << r.out;
    EXPECT_FALSE(s.exists("map/karte.png") || s.exists("map/karte.dat"));

    // a picture counts when it is whole: signature in front, end chunk behind
    ASSERT_EQ(draw({"regions"}).status, 0);
    std::string png = s.read("map/karte.png");
    EXPECT_TRUE(plotPictureComplete(s.path("map/karte.png")));
    for (size_t cut : {size_t(0), size_t(8), png.size() / 2, png.size() - 1}) {
        s.write("map/cut.png", png.substr(0, cut));
        EXPECT_FALSE(plotPictureComplete(s.path("map/cut.png"))) << cut;
    }
    EXPECT_FALSE(plotPictureComplete(s.path("map/none.png")));
}
