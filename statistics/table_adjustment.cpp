#include "statistics/table_adjustment.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "numerics/chi_square_adjustment.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "statistics/cell_numbers.h"
#include "statistics/file_end.h"
#include "tables/table_text.h"

namespace {

// the tool's log, log.txt in the data directory; every line ends with a line feed
class AdjustmentLog {
public:
    explicit AdjustmentLog(FILE* f) : file(f) {}
    ~AdjustmentLog() { std::fclose(file); }
    void line(const char* format, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list ap;
        va_start(ap, format);
        std::vfprintf(file, format, ap);
        va_end(ap);
        std::fputc('\n', file);
    }
    // a line of the log that the user must see: also on standard error, with the place
    // (file and line) in front when there is one
    void say(const std::string& place, const char* format, ...) __attribute__((format(printf, 3, 4)))
    {
        char text[2048];
        va_list ap;
        va_start(ap, format);
        std::vsnprintf(text, sizeof text, format, ap);
        va_end(ap);
        std::fprintf(file, "%s\n", text);
        std::fflush(file);
        std::fprintf(stderr, "adeton: %s%s%s\n", place.c_str(), place.empty() ? "" : ": ", text);
    }
    FILE* file;
};

std::string at(const char* name, uint64_t line) { return std::string(name) + ":" + std::to_string(line); }


struct DataLine {
    std::vector<double> cells;
    uint64_t number = 0;   // line in the file, from 1
};

// the data lines of the input; comment lines go to the output as they come. false after a
// message to the log.
bool readTable(FILE* in, FILE* out, const char* inputName, AdjustmentLog& log, std::vector<DataLine>& lines)
{
    char separator[2] = {si::separator, 0};
    CsvReader reader(in, separator);
    char cell[1024];
    DataLine current;
    int status;
    bool open = lastLineOpen(in);
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) {
            std::fprintf(out, "%s%c", cell, status);
            continue;
        }
        if (current.cells.empty()) current.number = reader.lineNumber();
        double value;
        if (!cellNumber(cell, value)) {
            log.say(inputName, "%zu: %s: %s", size_t(reader.lineNumber()), reader.currentLine().c_str(),
                    (std::string("not a number: \"") + cell + "\"").c_str());
            return false;
        }
        if (!std::isfinite(value)) {
            log.say(inputName, "%zu: %s: %s", size_t(reader.lineNumber()), reader.currentLine().c_str(),
                    (std::string("not a finite number: \"") + cell + "\"").c_str());
            return false;
        }
        current.cells.push_back(value);
        if (status == '\n') {
            lines.push_back(std::move(current));
            current = DataLine();
        }
    }
    if (status != -1) {
        log.say(inputName, "%zu: %s: %s", size_t(reader.lineNumber()), reader.currentLine().c_str(),
                CsvReader::errorText(status).c_str());
        return false;
    }
    if (open && !lines.empty())
        log.say(at(inputName, lines.back().number), "warning: the last line has no line end, the file may be cut");
    if (lines.size() < 3) {
        log.say(inputName, "%zu data lines: the table needs at least one row and the lines of the lower and the upper "
                           "column targets",
                lines.size());
        return false;
    }
    size_t columns = lines[0].cells.size();
    for (const DataLine& l : lines)
        if (l.cells.size() != columns) {
            log.say(at(inputName, l.number), "line %zu has %zu cells, the first data line %zu", size_t(l.number),
                    l.cells.size(), columns);
            return false;
        }
    // the table holds counts: a negative cell has no root
    for (size_t i = 0; i + 2 < lines.size(); ++i)
        for (size_t j = 0; j < columns; ++j)
            if (lines[i].cells[j] < 0) {
                log.say(at(inputName, lines[i].number), "negative count %g in column %zu", lines[i].cells[j], j + 1);
                return false;
            }
    return true;
}

// the table, its row sums, its total and the column weights; false after a message
bool fillTable(const std::vector<DataLine>& lines, const AdjustmentProblem& problem, AdjustmentTable& table,
               AdjustmentLog& log, const char* inputName)
{
    const int R = problem.rows, C = problem.columns;
    const std::vector<double>& lower = lines[size_t(R)].cells;
    const std::vector<double>& upper = lines[size_t(R) + 1].cells;
    for (int j = 0; j < C; ++j)
        if (lower[size_t(j)] != upper[size_t(j)]) {
            log.say(at(inputName, lines[size_t(R) + 1].number), "Spaltenziele Untergrenze ungleich Obergrenze");
            std::fprintf(stderr, "adeton: column %d: %.17g and %.17g\n", j + 1, lower[size_t(j)], upper[size_t(j)]);
            return false;
        }
    // a column target of 0 or below would weigh the column infinitely or turn it round
    for (int j = 0; j < C; ++j)
        if (!(lower[size_t(j)] > 0)) {
            log.say(at(inputName, lines[size_t(R)].number), "column target %g of column %d is not above 0",
                    lower[size_t(j)], j + 1);
            return false;
        }
    table.H = 0.0;
    std::vector<double> columnSum(size_t(C), 0.0);
    for (int i = 0; i < R; ++i) {
        double rowSum = 0.0;
        for (int j = 0; j < C; ++j) {
            double b = lines[size_t(i)].cells[size_t(j)];
            table.b[size_t(i) * size_t(C) + size_t(j)] = b;
            rowSum += b;
            columnSum[size_t(j)] += b;
        }
        table.z[size_t(i)] = rowSum;
        table.H += rowSum;
    }
    for (int j = 0; j < C; ++j) table.w[size_t(j)] = columnSum[size_t(j)] / lower[size_t(j)];
    // targets that do not add up to the table can only be met with negative cells
    double targets = 0.0;
    for (int j = 0; j < C; ++j) targets += lower[size_t(j)];
    if (std::fabs(targets - table.H) > 1e-9 * std::max(std::fabs(targets), std::fabs(table.H)))
        log.say(at(inputName, lines[size_t(R)].number), "warning: the column targets add up to %.15g, the table to %.15g",
                targets, table.H);
    return true;
}

} // namespace

void adeton(int argc, char** argv)
{
    std::string logPath = si::dataDirectory() + "/log.txt";
    FILE* logFile = std::fopen(logPath.c_str(), "a");
    if (!logFile) {
        std::fprintf(stderr, "error: open %s %s\n", logPath.c_str(), std::strerror(errno));
        return;
    }
    AdjustmentLog log(logFile);
    std::fputs("adeton", logFile);
    for (int i = 0; i < argc; ++i) std::fprintf(logFile, " %s", argv[i]);
    std::fputc('\n', logFile);
    if (argc != 2) {
        log.say("", "usage: adeton input.csv output.csv");
        return;
    }

    FILE* in = std::fopen(argv[0], "rb");
    if (!in) {
        log.say("", "open %s: %s", argv[0], std::strerror(errno));
        return;
    }
    // the output goes to a temporary beside it and takes its place only when it is whole
    FILE* out = safeOutput::open(argv[1]);
    if (!out) {
        log.say("", "open %s: %s", argv[1], std::strerror(errno));
        std::fclose(in);
        return;
    }
    std::vector<DataLine> lines;
    bool ok = readTable(in, out, argv[0], log, lines);
    std::fclose(in);

    AdjustmentTable table;
    AdjustmentProblem problem;
    if (ok) {
        problem = AdjustmentProblem(int(lines.size()) - 2, int(lines[0].cells.size()));
        if (createTable(problem, table) != 0) {
            log.say(argv[0], "Not enough memory for table data");
            ok = false;
        }
    }
    ok = ok && fillTable(lines, problem, table, log, argv[0]);
    if (ok) {
        AdjustmentResult result = adjustTable(problem, table);
        switch (result.outcome) {
        case Adjustment::NoMemoryForWork: log.say(argv[0], "Not enough memory for SVD data"); break;
        case Adjustment::DecompositionFailed: log.say(argv[0], "in Golub Reinsch Algorithm"); break;
        case Adjustment::NullMatrix: log.say(argv[0], "SVD Null Matrix!"); break;
        case Adjustment::Done: log.line("Singular Value Decomposition completed"); break;
        }
        ok = result.outcome == Adjustment::Done;
    }
    if (!ok) {
        // nothing of a failed run is left behind, an earlier output stays as it was
        safeOutput::discard(out);
        return;
    }
    // the adjusted rows; the target lines are not written
    const int C = problem.columns;
    int negative = 0;
    size_t lowest = 0;
    for (int i = 0; i < problem.rows; ++i) {
        std::string row;
        char cell[64];
        for (int j = 0; j < C; ++j) {
            size_t k = size_t(i) * size_t(C) + size_t(j);
            double x = table.b[k];
            if (x < 0 && negative++ == 0) lowest = k;
            if (x < 0 && x < table.b[lowest]) lowest = k;
            std::snprintf(cell, sizeof cell, "%.15g", x);
            row += cell;
            row += j + 1 == C ? '\n' : si::separator;
        }
        std::fwrite(row.data(), 1, row.size(), out);
    }
    std::string target = argv[1];
    if (int err = safeOutput::commit(out)) {
        log.say("", "%s: %s", target.c_str(), std::strerror(err));
        return;
    }
    if (negative)
        log.say(at(argv[0], lines[lowest / size_t(C)].number),
                "warning: %d adjusted cells are negative, the least %.15g in column %zu", negative, table.b[lowest],
                lowest % size_t(C) + 1);
}
