#include "tests/maps/map_fixtures.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <stdexcept>

namespace {

constexpr double X0 = 612000, Y0 = 5731000, CELL = 1000;

// a fixed value in [-1, 1] for a pair of numbers
double wobble(int a, int b, int salt)
{
    uint32_t h = uint32_t(a) * 73856093u ^ uint32_t(b) * 19349663u ^ uint32_t(salt) * 83492791u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return double(h % 2001) / 1000.0 - 1.0;
}

std::pair<double, double> gridPoint(int i, int j)
{
    return {X0 + i * CELL + 170 * wobble(i, j, 1), Y0 + (5 - j) * CELL + 170 * wobble(i, j, 2)};
}

// the border between two grid points with two bends, the same seen from either side; without its end
Points edge(int i0, int j0, int i1, int j1)
{
    bool flip = std::make_pair(i0, j0) > std::make_pair(i1, j1);
    if (flip) {
        std::swap(i0, i1);
        std::swap(j0, j1);
    }
    auto [ax, ay] = gridPoint(i0, j0);
    auto [bx, by] = gridPoint(i1, j1);
    double len = std::hypot(bx - ax, by - ay), nx = -(by - ay) / len, ny = (bx - ax) / len;
    Points p = {{ax, ay}};
    for (int k = 1; k <= 2; ++k) {
        double t = k / 3.0, off = 90 * wobble(i0 * 7 + i1, j0 * 7 + j1, k + 3);
        p.push_back({ax + (bx - ax) * t + nx * off, ay + (by - ay) * t + ny * off});
    }
    p.push_back({bx, by});
    if (flip) std::reverse(p.begin(), p.end());
    p.pop_back();
    return p;
}

Points cellRing(int c, int r)
{
    Points ring;
    const int corners[5][2] = {{c, r}, {c + 1, r}, {c + 1, r + 1}, {c, r + 1}, {c, r}};
    for (int k = 0; k < 4; ++k) {
        Points e = edge(corners[k][0], corners[k][1], corners[k + 1][0], corners[k + 1][1]);
        ring.insert(ring.end(), e.begin(), e.end());
    }
    ring.push_back(ring.front());
    return ring;
}

std::pair<double, double> cellMiddle(int c, int r)
{
    double x = 0, y = 0;
    for (auto [i, j] : {std::pair{c, r}, {c + 1, r}, {c + 1, r + 1}, {c, r + 1}}) {
        auto [px, py] = gridPoint(i, j);
        x += px / 4;
        y += py / 4;
    }
    return {x, y};
}

// a regular polygon around a point; clockwise or counter-clockwise
Points around(std::pair<double, double> m, double radius, int corners, bool clockwise)
{
    Points p;
    for (int k = 0; k <= corners; ++k) {
        double a = 2 * M_PI * (k % corners) / corners * (clockwise ? -1 : 1) + M_PI / 4;
        p.push_back({m.first + radius * std::cos(a), m.second + radius * std::sin(a)});
    }
    return p;
}

} // namespace

std::vector<ShapeRecord> demoRegions()
{
    // rows from north to south
    const int grid[5][6] = {{201, 202, 203, 204, 205, 206},
                            {207, 208, 101, 102, 103, 401},
                            {301, 104, 105, 106, 402, 403},
                            {302, 303, 107, 304, 404, 405},
                            {305, 306, 307, 308, 309, 406}};
    const std::map<int, std::string> names = {
        {101, "Marktplatz"}, {102, "Kirchgasse"}, {103, "Mühlenviertel"}, {104, "Schlossberg"},
        {105, "Brückenvorstadt"}, {106, "Am Stadtgraben"}, {107, "Gerberviertel"}, {301, "Talstraße"},
        {302, "Am Wehr"}, {303, "Weidenhof"}, {304, "Bahnhofsviertel"}, {305, "Untere Aue"}, {306, "Obere Aue"},
        {307, "Ziegelei"}, {308, "Lindenhain"}, {309, "Schäferwiese"}, {401, "Kiefernberg Alt"},
        {402, "Am Hochbehälter"}, {403, "Sonnenhang"}, {404, "Heideweg"}, {405, "Waldsiedlung"}, {406, "Neues Feld"}};
    std::map<int, ShapeRecord> byKey;
    for (int r = 0; r < 5; ++r)
        for (int c = 0; c < 6; ++c) {
            int key = grid[r][c];
            auto n = names.find(key);
            std::string name = n != names.end() ? n->second : "Nordstadt Block " + std::to_string(key - 200);
            byKey[key] = ShapeRecord{std::to_string(key), name, {cellRing(c, r)}};
        }
    // the mill pond in 103
    byKey[103].rings.push_back(around(cellMiddle(4, 1), 220, 6, false));
    // the forest clearing of 405 belongs to 406
    auto clearing = cellMiddle(5, 3);
    byKey[405].rings.push_back(around(clearing, 230, 4, false));
    byKey[406].rings.push_back(around(clearing, 230, 4, true));
    std::vector<ShapeRecord> records;
    for (auto& [key, record] : byKey) records.push_back(std::move(record));
    return records;
}
