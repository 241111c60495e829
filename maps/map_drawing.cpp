#include "maps/map_drawing.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "tables/gnuplot_bridge.h"
#include "tables/table_text.h"

namespace {

const char* const PLAIN_COLOUR = "#ebe6d6";
const char* const NO_DATA_COLOUR = "#8c8c8c";
const char* const BORDER_COLOUR = "#5a5a5a";
// the parts of pies and bars
const char* const PART_COLOURS[] = {"#3b6fb6", "#e8883a", "#5aa55a", "#c94c4c", "#8c6bb1", "#d4b13f", "#4fb3bf", "#a0522d"};
constexpr double PI = 3.14159265358979323846;

// the data of one block, written through the table writer in pieces
class Block {
public:
    explicit Block(FILE* f) : f(f) {}
    ~Block() { flush(); }
    void point(double x, double y)
    {
        number(x);
        text += ';';
        number(y);
        text += '\n';
        if (text.size() > 60000) flush();
    }
    void line(const std::string& l) { text += l + '\n'; }
    void gap() { text += '\n'; }
    void flush()
    {
        if (!text.empty()) csvWrite(f, text.data(), text.size());
        text.clear();
    }

private:
    FILE* f;
    std::string text;
    void number(double v)
    {
        char b[32];
        auto r = std::to_chars(b, b + sizeof b, v);
        text.append(b, r.ptr);
    }
};

void ring(Block& b, const Ring& r)
{
    for (size_t i = 0; i < r.size(); ++i) b.point(r.x[i], r.y[i]);
}

// an outer ring with its holes as one closed path: each hole is reached from the first point of
// the outer ring and left back to it, so the fill leaves the hole open
void keyhole(Block& b, const Polygon& p)
{
    ring(b, p.outer);
    for (const Ring& h : p.holes) {
        ring(b, h);
        b.point(p.outer.x[0], p.outer.y[0]);
    }
}

std::string hex(int r, int g, int b)
{
    char t[8];
    snprintf(t, sizeof t, "#%02x%02x%02x", std::clamp(r, 0, 255), std::clamp(g, 0, 255), std::clamp(b, 0, 255));
    return t;
}

// colour at t in [0, 1] between two colours
std::string blend(const int* a, const int* b, double t)
{
    return hex(int(std::lround(a[0] + (b[0] - a[0]) * t)), int(std::lround(a[1] + (b[1] - a[1]) * t)),
               int(std::lround(a[2] + (b[2] - a[2]) * t)));
}

// a lower class bound rounded down to two significant digits, so the value it came from opens the class
double roundBound(double v)
{
    if (v == 0 || !std::isfinite(v)) return v;
    double m = std::pow(10.0, std::floor(std::log10(std::fabs(v))) - 1);
    return std::floor(v / m + 1e-9) * m;
}

// the squared distance from a point to the nearest edge of a ring
double edgeDistance2(const Ring& r, double x, double y)
{
    double best = INFINITY;
    for (size_t i = 0; i + 1 < r.size(); ++i) {
        double ax = r.x[i], ay = r.y[i], dx = r.x[i + 1] - ax, dy = r.y[i + 1] - ay;
        double len2 = dx * dx + dy * dy;
        double t = len2 > 0 ? std::clamp(((x - ax) * dx + (y - ay) * dy) / len2, 0.0, 1.0) : 0.0;
        double ex = ax + t * dx - x, ey = ay + t * dy - y;
        best = std::min(best, ex * ex + ey * ey);
    }
    return best;
}

double areaOf(const Polygon& p)
{
    double a = -ringArea2(p.outer);
    for (const Ring& h : p.holes) a -= ringArea2(h);
    return a / 2;
}

// the crossings of the horizontal line at y with the edges of a ring
void crossings(const Ring& r, double y, std::vector<double>& xs)
{
    for (size_t i = 0; i + 1 < r.size(); ++i) {
        double y0 = r.y[i], y1 = r.y[i + 1];
        if ((y0 > y) != (y1 > y)) xs.push_back(r.x[i] + (r.x[i + 1] - r.x[i]) * (y - y0) / (y1 - y0));
    }
}

} // namespace

std::string mapNumber(double v)
{
    if (!std::isfinite(v)) return "undef";
    double a = std::fabs(v);
    int decimals = a >= 100 || a == std::floor(a) ? 0 : a >= 10 ? 1 : 2;
    char t[64];
    snprintf(t, sizeof t, "%.*f", decimals, v);
    std::string s = t;
    if (decimals > 0) {
        while (s.back() == '0') s.pop_back();
        if (s.back() < '0' || s.back() > '9') s.pop_back();
    }
    return s == "-0" ? "0" : s;
}

void classify(MapPicture& picture, const std::vector<double>& values, bool colouring, int wanted)
{
    picture.classes.clear();
    picture.regionClass.assign(values.size(), 0);
    std::vector<double> sorted;
    for (double v : values)
        if (!std::isnan(v)) sorted.push_back(v);
    std::sort(sorted.begin(), sorted.end());
    int noData = -1;
    if (sorted.size() < values.size()) {
        noData = 0;
        picture.classes.push_back(MapClass{"ohne Daten", NO_DATA_COLOUR, true});
    }
    int first = int(picture.classes.size());
    if (!colouring || sorted.empty()) {
        picture.classes.push_back(MapClass{"", PLAIN_COLOUR, false});
        for (size_t i = 0; i < values.size(); ++i) picture.regionClass[i] = std::isnan(values[i]) ? noData : first;
        return;
    }
    double lo = sorted.front(), hi = sorted.back();
    std::vector<double> unique = sorted;
    size_t distinct = size_t(std::unique(unique.begin(), unique.end()) - unique.begin());
    int k = std::max(1, std::min<int>(wanted, int(distinct)));
    std::vector<double> breaks;
    for (int i = 1; i < k; ++i) {
        double b = roundBound(sorted[sorted.size() * size_t(i) / size_t(k)]);
        if (b > lo && b <= hi && (breaks.empty() || b > breaks.back())) breaks.push_back(b);
    }
    if (lo < 0 && hi > 0 && std::find(breaks.begin(), breaks.end(), 0.0) == breaks.end()) {
        breaks.insert(std::upper_bound(breaks.begin(), breaks.end(), 0.0), 0.0);
    }
    size_t classes = breaks.size() + 1;
    std::vector<int> counts(classes, 0);
    for (size_t i = 0; i < values.size(); ++i) {
        if (std::isnan(values[i])) {
            picture.regionClass[i] = noData;
            continue;
        }
        size_t c = size_t(std::upper_bound(breaks.begin(), breaks.end(), values[i]) - breaks.begin());
        picture.regionClass[i] = first + int(c);
        ++counts[c];
    }
    // classes below 0 in blues getting lighter towards 0, the others from light yellow to dark red
    static const int deepBlue[3] = {33, 82, 150}, paleBlue[3] = {198, 219, 239};
    static const int paleYellow[3] = {255, 240, 190}, deepRed[3] = {165, 20, 35};
    size_t negative = 0;
    while (negative < breaks.size() && breaks[negative] <= 0) ++negative;
    size_t positive = classes - negative;
    for (size_t c = 0; c < classes; ++c) {
        std::string colour;
        if (c < negative)
            colour = blend(deepBlue, paleBlue, negative > 1 ? double(c) / double(negative - 1) : 1.0);
        else
            colour = blend(paleYellow, deepRed, positive > 1 ? double(c - negative) / double(positive - 1) : 0.5);
        std::string label;
        if (classes == 1)
            label = lo == hi ? mapNumber(lo) : mapNumber(lo) + " bis " + mapNumber(hi);
        else if (c == 0)
            label = "unter " + mapNumber(breaks[0]);
        else if (c + 1 == classes)
            label = mapNumber(breaks[c - 1]) + " und mehr";
        else
            label = mapNumber(breaks[c - 1]) + " bis unter " + mapNumber(breaks[c]);
        label += " (" + std::to_string(counts[c]) + ")";
        picture.classes.push_back(MapClass{label, colour, false});
    }
}

void interiorPoint(const MapRegion& region, double& x, double& y)
{
    x = y = 0;
    const Polygon* best = nullptr;
    double bestArea = -1;
    for (const Polygon& p : region.polygons) {
        double a = areaOf(p);
        if (a > bestArea) {
            bestArea = a;
            best = &p;
        }
    }
    if (!best) return;
    const Ring& o = best->outer;
    double ylo = *std::min_element(o.y.begin(), o.y.end()), yhi = *std::max_element(o.y.begin(), o.y.end());
    x = o.x[0];
    y = o.y[0];
    // candidates on scan lines across the polygon: the middle and the quarters of each inner
    // stretch; the one furthest from every edge wins
    double bestScore = -1;
    std::vector<double> xs;
    const int lines = 15;
    for (int k = 1; k <= lines; ++k) {
        double yy = ylo + (yhi - ylo) * double(k) / (lines + 1);
        xs.clear();
        crossings(o, yy, xs);
        for (const Ring& h : best->holes) crossings(h, yy, xs);
        std::sort(xs.begin(), xs.end());
        for (size_t i = 0; i + 1 < xs.size(); i += 2)
            for (double t : {0.5, 0.25, 0.75}) {
                double xx = xs[i] + (xs[i + 1] - xs[i]) * t;
                double d = edgeDistance2(o, xx, yy);
                for (const Ring& h : best->holes) d = std::min(d, edgeDistance2(h, xx, yy));
                if (d > bestScore) {
                    bestScore = d;
                    x = xx;
                    y = yy;
                }
            }
    }
}

MapLayout writeMapData(FILE* f, const MapPicture& picture)
{
    const ShapeMap& map = *picture.map;
    MapLayout layout;
    int block = 0;
    auto endBlock = [&](Block& b) {
        b.gap();
        b.gap();
        b.flush();
        ++block;
    };
    // one block per class: the polygons of its regions, a blank line between polygons
    layout.classBlock.assign(picture.classes.size(), -1);
    for (size_t c = 0; c < picture.classes.size(); ++c) {
        Block b(f);
        bool any = false;
        for (size_t r = 0; r < map.regions.size(); ++r) {
            if (picture.regionClass[r] != int(c)) continue;
            for (const Polygon& p : map.regions[r].polygons) {
                if (any) b.gap();
                keyhole(b, p);
                any = true;
            }
        }
        if (!any) continue;
        layout.classBlock[c] = block;
        endBlock(b);
    }
    {
        Block b(f);
        bool any = false;
        for (const MapRegion& region : map.regions)
            for (const Polygon& p : region.polygons) {
                if (any) b.gap();
                ring(b, p.outer);
                for (const Ring& h : p.holes) {
                    b.gap();
                    ring(b, h);
                }
                any = true;
            }
        if (!any) b.point(map.xmin, map.ymin);
        layout.borderBlock = block;
        endBlock(b);
    }

    std::vector<double> px(map.regions.size()), py(map.regions.size());
    for (size_t r = 0; r < map.regions.size(); ++r) interiorPoint(map.regions[r], px[r], py[r]);
    // the typical size of a region sets the size of the glyphs
    double width = map.xmax - map.xmin, height = map.ymax - map.ymin;
    double cell = std::sqrt(std::max(width * height, 1e-300) / double(std::max<size_t>(1, map.regions.size())));
    std::vector<double> labelShift(map.regions.size(), 0);

    if (picture.glyph != Glyph::NONE) {
        size_t parts = picture.glyphNames.size();
        auto valueOf = [&](size_t r, size_t k) {
            double v = r < picture.glyphValues.size() && k < picture.glyphValues[r].size() ? picture.glyphValues[r][k] : 0;
            return std::isnan(v) ? 0.0 : v;
        };
        auto hasGlyph = [&](size_t r) {
            if (r >= picture.glyphValues.size()) return false;
            for (double v : picture.glyphValues[r])
                if (!std::isnan(v)) return true;
            return false;
        };
        double largest = 0;
        for (size_t r = 0; r < map.regions.size(); ++r) {
            if (!hasGlyph(r)) continue;
            double total = 0;
            for (size_t k = 0; k < parts; ++k) {
                double v = valueOf(r, k);
                if (picture.glyph == Glyph::PIE)
                    total += std::max(0.0, v);
                else
                    largest = std::max(largest, std::fabs(v));
            }
            if (picture.glyph == Glyph::PIE) largest = std::max(largest, total);
        }
        layout.glyphBlock.assign(parts, -1);
        for (size_t k = 0; k < parts; ++k) {
            Block b(f);
            bool any = false;
            for (size_t r = 0; r < map.regions.size() && largest > 0; ++r) {
                if (!hasGlyph(r)) continue;
                double v = valueOf(r, k);
                if (picture.glyph == Glyph::PIE) {
                    double total = 0, before = 0;
                    for (size_t j = 0; j < parts; ++j) {
                        total += std::max(0.0, valueOf(r, j));
                        if (j < k) before += std::max(0.0, valueOf(r, j));
                    }
                    double radius = 0.3 * cell * std::sqrt(total / largest);
                    labelShift[r] = radius + 0.08 * cell;
                    if (v <= 0 || total <= 0) continue;
                    // clockwise from twelve o'clock
                    double a0 = PI / 2 - 2 * PI * before / total, a1 = PI / 2 - 2 * PI * (before + v) / total;
                    int steps = std::max(2, int(std::ceil(64 * (a0 - a1) / (2 * PI))));
                    if (any) b.gap();
                    b.point(px[r], py[r]);
                    for (int s = 0; s <= steps; ++s) {
                        double a = a0 + (a1 - a0) * s / steps;
                        b.point(px[r] + radius * std::cos(a), py[r] + radius * std::sin(a));
                    }
                    b.point(px[r], py[r]);
                } else {
                    double barWidth = 0.6 * cell / double(parts), top = 0.5 * cell * v / largest;
                    double left = px[r] - 0.3 * cell + barWidth * double(k);
                    labelShift[r] = 0.12 * cell;
                    if (v == 0) continue;
                    if (any) b.gap();
                    b.point(left, py[r]);
                    b.point(left, py[r] + top);
                    b.point(left + barWidth * 0.85, py[r] + top);
                    b.point(left + barWidth * 0.85, py[r]);
                    b.point(left, py[r]);
                }
                any = true;
            }
            if (!any) continue;
            layout.glyphBlock[k] = block;
            endBlock(b);
        }
    }

    if (!picture.labels.empty()) {
        Block b(f);
        bool any = false;
        for (size_t r = 0; r < map.regions.size(); ++r) {
            if (r >= picture.labels.size() || picture.labels[r].empty() || map.regions[r].polygons.empty()) continue;
            std::string key = picture.labels[r], value = r < picture.labelValues.size() ? picture.labelValues[r] : "";
            std::replace(key.begin(), key.end(), '"', '\'');
            std::replace(value.begin(), value.end(), '"', '\'');
            char xy[80];
            auto e = std::to_chars(xy, xy + 38, px[r]);
            *e.ptr++ = ';';
            e = std::to_chars(e.ptr, xy + 78, py[r] - labelShift[r]);
            b.line(std::string(xy, e.ptr) + ";\"" + key + "\";\"" + value + "\"");
            any = true;
        }
        if (any) {
            layout.labelBlock = block;
            endBlock(b);
        }
    }
    return layout;
}

std::string gnuplotQuote(const std::string& text)
{
    std::string q = "'";
    for (char c : text) {
        if (c == '\'') q += '\'';
        q += c;
    }
    return q + "'";
}

void writeMapCommands(FILE* f, const MapPicture& picture, const MapLayout& layout)
{
    const ShapeMap& map = *picture.map;
    std::string c;
    c += std::string(plotTerminal()) + "\n";
    c += "set output " + gnuplotQuote(picture.picturePath) + "\n";
    c += std::string(plotSeparator()) + "\n";
    c += "set encoding utf8\n";
    if (!picture.title.empty()) c += "set title " + gnuplotQuote(picture.title) + " font ',12'\n";
    // equal scales on both axes; longitude degrees shrink with the cosine of the latitude
    char line[256];
    if (map.geographic) {
        double lat = (map.ymin + map.ymax) / 2 * PI / 180;
        snprintf(line, sizeof line, "set size ratio %.6g\n", -1 / std::max(0.05, std::cos(lat)));
        c += line;
    } else {
        c += "set size ratio -1\n";
    }
    c += "unset xtics\nunset ytics\nunset border\n";
    double padX = (map.xmax - map.xmin) * 0.03, padY = (map.ymax - map.ymin) * 0.03;
    if (padX <= 0) padX = 1;
    if (padY <= 0) padY = 1;
    char range[200];
    auto put = [](char* at, char* end, double v) { return std::to_chars(at, end, v).ptr; };
    char* p = range;
    p = put(p + sprintf(p, "set xrange ["), range + 200, map.xmin - padX);
    *p++ = ':';
    p = put(p, range + 200, map.xmax + padX);
    p += sprintf(p, "]\nset yrange [");
    p = put(p, range + 200, map.ymin - padY);
    *p++ = ':';
    p = put(p, range + 200, map.ymax + padY);
    p += sprintf(p, "]\n");
    c += std::string(range, p);
    c += "set key outside right top Left reverse samplen 2 spacing 1.3\n";
    c += "set style fill solid 1.0 noborder\n";
    // labels stand on a veil of white, readable on dark classes too
    c += "set style textbox opaque fc rgb '#50ffffff' noborder margins 1,0.5\n";

    std::string data = gnuplotQuote(picture.dataPath);
    std::vector<std::string> clauses;
    auto index = [](int block) { return " index " + std::to_string(block) + " using 1:2"; };
    for (size_t k = 0; k < picture.classes.size(); ++k) {
        int b = layout.classBlock[k];
        if (b < 0) continue;
        const MapClass& cl = picture.classes[k];
        std::string title = cl.label.empty() ? " notitle" : " title " + gnuplotQuote(cl.label);
        if (cl.hatched) {
            clauses.push_back(index(b) + " with filledcurves closed fc rgb '#d9d9d9' notitle");
            clauses.push_back(index(b) + " with filledcurves closed fc rgb '" + cl.colour + "' fs transparent pattern 4" + title);
        } else {
            clauses.push_back(index(b) + " with filledcurves closed fc rgb '" + cl.colour + "'" + title);
        }
    }
    clauses.push_back(index(layout.borderBlock) + " with lines lc rgb '" + BORDER_COLOUR + "' lw 0.6 notitle");
    for (size_t k = 0; k < layout.glyphBlock.size(); ++k) {
        if (layout.glyphBlock[k] < 0) continue;
        std::string colour = PART_COLOURS[k % (sizeof PART_COLOURS / sizeof *PART_COLOURS)];
        clauses.push_back(index(layout.glyphBlock[k]) + " with filledcurves closed fc rgb '" + colour +
                          "' fs solid 1.0 border lc rgb '#ffffff' title " + gnuplotQuote(picture.glyphNames[k]));
    }
    if (layout.labelBlock >= 0)
        clauses.push_back(" index " + std::to_string(layout.labelBlock) +
                          " using 1:2:(strcol(4) eq '' ? strcol(3) : strcol(3).\"\\n\".strcol(4))"
                           " with labels boxed font ',7' tc rgb '#202020' notitle");
    c += "plot";
    for (size_t i = 0; i < clauses.size(); ++i)
        c += (i ? ", \\\n     ''" : " " + data) + clauses[i];
    c += "\nset output\n";
    fputs(c.c_str(), f);
}
