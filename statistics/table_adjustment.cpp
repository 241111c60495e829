#include "statistics/table_adjustment.h"

#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "numerics/chi_square_adjustment.h"
#include "platform/settings.h"
#include "statistics/cell_numbers.h"
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
    FILE* file;
};

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
    while ((status = reader.next(cell, sizeof cell)) > 0) {
        if (reader.isComment) {
            std::fprintf(out, "%s%c", cell, status);
            continue;
        }
        if (current.cells.empty()) current.number = reader.lineNumber();
        double value;
        if (!cellNumber(cell, value)) {
            log.line("%zu: %s: %s", size_t(reader.lineNumber()), reader.currentLine().c_str(),
                     (std::string("not a number: \"") + cell + "\"").c_str());
            return false;
        }
        current.cells.push_back(value);
        if (status == '\n') {
            lines.push_back(std::move(current));
            current = DataLine();
        }
    }
    if (status != -1) {
        log.line("%zu: %s: %s", size_t(reader.lineNumber()), reader.currentLine().c_str(),
                 CsvReader::errorText(status).c_str());
        return false;
    }
    if (lines.size() < 3) {
        log.line("%s: %zu data lines: the table needs at least one row and the lines of the lower and the upper "
                 "column targets",
                 inputName, lines.size());
        return false;
    }
    size_t columns = lines[0].cells.size();
    for (const DataLine& l : lines)
        if (l.cells.size() != columns) {
            log.line("%s: line %zu has %zu cells, the first data line %zu", inputName, size_t(l.number),
                     l.cells.size(), columns);
            return false;
        }
    return true;
}

// the table, its row sums, its total and the column weights; false after a message
bool fillTable(const std::vector<DataLine>& lines, const AdjustmentProblem& problem, AdjustmentTable& table,
               AdjustmentLog& log)
{
    const int R = problem.rows, C = problem.columns;
    const std::vector<double>& lower = lines[size_t(R)].cells;
    const std::vector<double>& upper = lines[size_t(R) + 1].cells;
    for (int j = 0; j < C; ++j)
        if (lower[size_t(j)] != upper[size_t(j)]) {
            log.line("Spaltenziele Untergrenze ungleich Obergrenze");
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
        log.line("usage: adeton input.csv output.csv");
        return;
    }

    FILE* in = std::fopen(argv[0], "rb");
    if (!in) {
        log.line("open %s: %s", argv[0], std::strerror(errno));
        return;
    }
    FILE* out = std::fopen(argv[1], "wb");
    if (!out) {
        log.line("open %s: %s", argv[1], std::strerror(errno));
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
            log.line("Not enough memory for table data");
            ok = false;
        }
    }
    ok = ok && fillTable(lines, problem, table, log);
    if (ok) {
        AdjustmentResult result = adjustTable(problem, table);
        switch (result.outcome) {
        case Adjustment::NoMemoryForWork: log.line("Not enough memory for SVD data"); break;
        case Adjustment::DecompositionFailed: log.line("in Golub Reinsch Algorithm"); break;
        case Adjustment::NullMatrix: log.line("SVD Null Matrix!"); break;
        case Adjustment::Done: log.line("Singular Value Decomposition completed"); break;
        }
        ok = result.outcome == Adjustment::Done;
    }
    if (ok) {
        // the adjusted rows; the target lines are not written
        for (int i = 0; i < problem.rows; ++i)
            for (int j = 0; j < problem.columns; ++j)
                csvWriteCell(out, "%.15g", table.b[size_t(i) * size_t(problem.columns) + size_t(j)],
                             j + 1 == problem.columns);
    }
    std::fclose(out);
}
