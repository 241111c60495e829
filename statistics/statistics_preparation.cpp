#include "statistics/statistics_preparation.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdarg>
#include <cstring>
#include <regex>

#include "platform/dictionary.h"
#include "platform/exit_status.h"
#include "platform/operating_system.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "statistics/region_map.h"
#include "tables/table_text.h"
#include "platform/text_format.h"

namespace {
// per file and kind, record messages beyond this many are only counted
const size_t kRecordMessages = 100;

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// the console shows the protocol text without its entities
std::string plainText(std::string text)
{
    static const std::pair<const char*, const char*> entities[] = {{"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}};
    for (const auto& [entity, plain] : entities)
        for (size_t p = text.find(entity); p != std::string::npos; p = text.find(entity, p + 1))
            text.replace(p, strlen(entity), plain);
    return text;
}

bool endsWith(const std::string& text, const char* end)
{
    size_t n = strlen(end);
    return text.size() >= n && text.compare(text.size() - n, n, end) == 0;
}
} // namespace

size_t CountKeyHash::operator()(const CountKey& key) const
{
    // FNV-1a over the bytes of the key
    uint64_t hash = 14695981039346656037ULL;
    for (long long part : key) {
        uint64_t v = static_cast<uint64_t>(part);
        for (int b = 0; b < 8; ++b, v >>= 8) hash = (hash ^ (v & 0xFF)) * 1099511628211ULL;
    }
    return static_cast<size_t>(hash);
}

// ---------------------------------------------------------------- protocol

DstProtocol::~DstProtocol()
{
    if (temp) safeOutput::setAbortHook(nullptr);
}

bool DstProtocol::open(const std::string& dir)
{
    directory = dir;
    temp = fopen((dir + "prot.tmp").c_str(), "w+b");
    if (!temp) return false;
    // an output that fails ends the process: the protocol takes the failure as its last line and
    // is made a page all the same, and the temp file goes
    safeOutput::setAbortHook([this] {
        if (!temp) return;
        fprintf(temp, "!wFatal output error in csv: %s\n", safeOutput::fatalText().c_str());
        if (FILE* page = writePage()) safeOutput::commit(page);
    });
    return true;
}

FILE* DstProtocol::writePage()
{
    FILE* page = safeOutput::open(directory + "prot.htm");
    int err = errno;
    if (page) {
        fputs("<!DOCTYPE html>\n<html lang=\"de\">\n<head>\n<meta charset=\"utf-8\">\n<title>Protokoll</title>\n<style>\n"
              ".h { background: #99FF99; }\n.w { background: #FFCC99; }\n</style>\n</head>\n<body>\n<pre>\n",
              page);
        fflush(temp);
        rewind(temp);
        char line[8192];
        while (fgets(line, sizeof line, temp)) {
            if (line[0] == '!' && (line[1] == 'h' || line[1] == 'w')) {
                size_t n = strlen(line);
                bool newline = n > 0 && line[n - 1] == '\n';
                if (newline) line[n - 1] = 0;
                fprintf(page, "<span class=\"%c\">%s</span>%s", line[1], line + 2, newline ? "\n" : "");
            } else {
                fputs(line, page);
            }
        }
        fputs("</pre>\n</body>\n</html>\n", page);
    }
    fclose(temp);
    temp = nullptr;
    remove((directory + "prot.tmp").c_str());
    errno = err;
    return page;
}

void DstProtocol::put(const std::string& line)
{
    if (temp) fputs(line.c_str(), temp);
    std::string shown = line;
    if (shown.size() >= 2 && shown[0] == '!' && (shown[1] == 'h' || shown[1] == 'w')) shown = shown.substr(2);
    fputs(plainText(shown).c_str(), stdout);
}

void DstProtocol::message(int kind, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string line = vformat(format, args);
    va_end(args);
    if (kind == 'h' || kind == 'w') line = std::string("!") + static_cast<char>(kind) + line;
    put(line);
}

void DstProtocol::text(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    put(vformat(format, args));
    va_end(args);
}

void DstProtocol::setting(const char* key, const std::string& value)
{
    text("[%-10s] %s\n", value.c_str(), DD::lookup(key).c_str());
}

void DstProtocol::close()
{
    if (!temp) return;
    fflush(stdout);
    if (fflush(temp) != 0 || ferror(temp)) safeOutput::fatalPath(directory + "prot.tmp", errno ? errno : EIO);
    safeOutput::setAbortHook(nullptr);
    FILE* page = writePage();
    if (page) {
        // a page that cannot be put into place is the fatal output error, with its path
        safeOutput::close(page);
    } else {
        fprintf(stderr, "open %sprot.htm: %s\n", directory.c_str(), os::errorText(errno).c_str());
        exitStatus = 1;
    }
}

// ---------------------------------------------------------------- settings

void DstSettings::read()
{
    r01filter = si::getString("RATEN", "R01filter", "").substr(0, 8);
    r02map = si::getString("RATEN", "R02DST", "");
    neubau = si::getInt("RATEN", "NEUBAU", 0);
    rtgkz = si::getInt("RATEN", "RTGKZ", 0);
    w40dst = si::getInt("RATEN", "W40DST", 3);
    abm = si::getInt("RATEN", "DSTBEWABM", 1);
    anst = si::getInt("RATEN", "ANST", 0);
    neub = si::getInt("RATEN", "NEUB", 0);
    nettobew = si::getInt("RATEN", "NETTOBEW", 0);
    aggBG = si::getInt("RATEN", "aggBG", 0);
    aggGG = si::getInt("RATEN", "aggGG", 0);
    nagwu = si::getInt("INDIKATOR", "NAGWU", 20);
    nagwo = si::getInt("INDIKATOR", "NAGWO", 64);
    verbose = si::getInt("TRACE", "VERBOSE", 0);
}

// ---------------------------------------------------------------- the common record filter

RecordFilter::RecordFilter(Dstmak& t, const std::string& name, const FixedLayout& l, const char* dateField)
    : tool(t), fileName(name), layout(l), date(l.field(dateField)), fileYear(Dstmak::yearOfName(name))
{
}

bool RecordFilter::accept(std::string_view record)
{
    ++records;
    DstProtocol& prot = tool.prot();
    if (static_cast<int>(record.size()) < layout.length()) {
        if (++tooShort <= kRecordMessages)
            prot.message('w', "%s: Record %zu: %zu Zeichen, Satzlänge %s ist %d\n", fileName.c_str(), records,
                         record.size(), layout.name(), layout.length());
        return false;
    }
    if (const void* nul = memchr(record.data(), 0, record.size())) {
        if (++badField <= kRecordMessages)
            prot.message('w', "%s: Record %zu: NUL-Zeichen in Spalte %zu\n", fileName.c_str(), records,
                         static_cast<size_t>(static_cast<const char*>(nul) - record.data()) + 1);
        return false;
    }
    int year = fieldYear(record, date);
    if (year < 0) {
        std::string text(fieldText(record, date));
        if (++badField <= kRecordMessages)
            prot.message('w', "Record %zu: %s '%s' ist kein Datum\n", records, date.name, text.c_str());
        return false;
    }
    ++yearTally[year];
    if (fileYear == 0) fileYear = year;
    if (year != fileYear) {
        if (!yearWarned) {
            yearWarned = true;
            std::string text(fieldText(record, date));
            prot.message('w', "Warnung, Berichtsjahr %d aus Dateiname %s passt nicht zu Berichtsjahr %s: %s aus Statistikdatensatz %d\n",
                         fileYear, fileName.c_str(), text.substr(0, 4).c_str(), text.c_str(), static_cast<int>(records));
            // a stock at the end of the year before the one named: the file takes the record's year
            size_t accepted = records - 1 - rejectedR01 - rejectedW01 - tooShort - badField - wrongYear;
            if (year == fileYear - 1 && accepted == 0) fileYear = year;
        }
        if (year != fileYear) {
            if (++wrongYear <= kRecordMessages)
                prot.text("Record %d: %s %d nicht in Berichtsjahr %d\n", static_cast<int>(records), date.name, year,
                          fileYear);
            return false;
        }
    }
    std::string_view r01 = fieldText(record, layout.field("R01"));
    if (r01.substr(0, tool.settings.r01filter.size()) != tool.settings.r01filter) {
        ++rejectedR01;
        return false;
    }
    if (fieldText(record, layout.field("W01")) != "1") {
        ++rejectedW01;
        return false;
    }
    return true;
}

bool RecordFilter::number(std::string_view record, const char* name, long long& value)
{
    const FixedField& f = layout.field(name);
    if (fieldNumber(record, f, value)) return true;
    if (++badField <= kRecordMessages) {
        std::string text(fieldText(record, f));
        tool.prot().message('w', "Record %zu: %s '%s' ist keine Zahl\n", records, name, text.c_str());
    }
    return false;
}

void RecordFilter::finish(double seconds)
{
    DstProtocol& prot = tool.prot();
    prot.text("%zu records, verworfen %zu wegen R01-Filter + %zu wegen W01!=1, %zu Alter fehlt, %zu Anstalt %gs\n", records,
              rejectedR01, rejectedW01, ageMissing, institution, seconds);
    if (tooShort || badField || wrongYear)
        prot.message('w', "verworfen %zu zu kurz, %zu mit ungültigen Feldern, %zu aus anderem Berichtsjahr\n", tooShort,
                     badField, wrongYear);
    if (records == 0) prot.message('w', "%s: leerer Statistikdatensatz\n", fileName.c_str());
}

bool readRecords(Dstmak& tool, const std::string& name, const std::function<void(std::string_view)>& each)
{
    std::string path = tool.path(name);
    if (endsWith(name, ".lnk")) {
        std::string target;
        if (os::readLink(path, target) == 0 && !target.empty()) {
            tool.prot().text("&lt;%22s -&gt; %s\n", name.c_str(), target.c_str());
            path = target;
        } else {
            tool.prot().text("&lt;%22s\n", name.c_str());
        }
    } else {
        tool.prot().text("&lt;%22s\n", name.c_str());
    }
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        tool.prot().text("open %s:\n%s\n", path.c_str(), os::errorText(errno).c_str());
        return false;
    }
    static std::vector<char> buffer(1 << 20);
    setvbuf(file, buffer.data(), _IOFBF, buffer.size());
    // lines of at most 1024 bytes, NUL bytes included (the filter counts them); the rest of a
    // longer line is skipped
    char line[1026];
    size_t lines = 0;
    bool open = false;
    for (;;) {
        size_t n = 0;
        int c;
        while ((c = getc_unlocked(file)) != EOF && c != '\n')
            if (n < 1024) line[n++] = static_cast<char>(c);
        if (c == EOF && n == 0) break;
        open = c == EOF;
        ++lines;
        while (n > 0 && line[n - 1] == '\r') --n;
        each(std::string_view(line, n));
        if (c == EOF) break;
    }
    if (ferror(file))
        tool.prot().message('w', "%s: Lesefehler nach Satz %zu: %s\n", name.c_str(), lines, os::errorText(errno).c_str());
    if (open)
        tool.prot().message('w', "%s: Satz %zu ohne Zeilenende, die Datei ist vielleicht abgeschnitten\n", name.c_str(),
                            lines);
    fclose(file);
    return true;
}

// ---------------------------------------------------------------- the tool

int Dstmak::yearOfName(const std::string& name)
{
    static const std::regex fourDigits("\\D\\d\\d\\d\\d\\D");
    std::smatch m;
    if (!std::regex_search(name, m, fourDigits)) return 0;
    return std::atoi(m.str().substr(1, 4).c_str());
}

void Dstmak::writeTree(const char* name, const char* title, const std::vector<const char*>& columns, const CountTree& tree,
                       bool allYears, bool perYear, const std::set<long long>& years)
{
    size_t dims = columns.size() - 1;   // year and the dimensions
    std::vector<const char*> names(columns);
    names.push_back(nullptr);
    std::vector<const CountTree::value_type*> sorted;
    sorted.reserve(tree.size());
    for (const auto& entry : tree) sorted.push_back(&entry);
    std::sort(sorted.begin(), sorted.end(), [](const auto* a, const auto* b) { return a->first < b->first; });
    auto writeRows = [&](const std::string& file, int year, long long& rows, long long& sum) {
        FILE* f = safeOutput::open(path(file));
        if (!f) {
            prot().text("open %s:\n%s\n", path(file).c_str(), os::errorText(errno).c_str());
            exitStatus = 1;
            return false;
        }
        csvWriteHead(f, title, names.data(), nullptr);
        char line[256];
        for (const auto* entry : sorted) {
            const auto& [key, count] = *entry;
            if (year && key[0] != year) continue;
            // a row of whole numbers, formatted at once
            char* p = line;
            for (size_t d = 0; d < dims; ++d) {
                p = std::to_chars(p, line + sizeof line, key[d]).ptr;
                *p++ = si::separator;
            }
            p = std::to_chars(p, line + sizeof line, count).ptr;
            *p++ = '\n';
            csvWrite(f, line, static_cast<size_t>(p - line));
            ++rows;
            sum += count;
        }
        safeOutput::close(f);
        return true;
    };
    if (allYears) {
        long long rows = 0, sum = 0;
        if (writeRows(std::string(name) + "_roh.csv", 0, rows, sum))
            prot().text("%s %13s_roh.csv %d records\n", rows ? "&gt;" : "  ", name, static_cast<int>(rows));
    }
    if (perYear) {
        std::set<long long> treeYears(years);
        for (const auto* entry : sorted)
            if (treeYears.empty() || *treeYears.rbegin() != entry->first[0]) treeYears.insert(entry->first[0]);
        for (long long year : treeYears) {
            long long rows = 0, sum = 0;
            std::string file = std::string(name) + "_" + std::to_string(year) + ".csv";
            if (writeRows(file, static_cast<int>(year), rows, sum))
                prot().text("%s %12s_%d.csv %d records, Summe %d\n", rows ? "&gt;" : "  ", name, static_cast<int>(year),
                            static_cast<int>(rows), static_cast<int>(sum));
        }
    }
}

Dstmak::Dstmak(int count, char** vector)
{
    std::string command = count >= 1 ? vector[0] : "";
    if (count != 1 || (command != "list" && command != "makro" && command != "indi")) {
        std::string given;
        for (int i = 0; i < count; ++i) given += std::string(" ") + vector[i];
        fprintf(stderr, "falscher Aufruf (%d): dstmak%s\n", count, given.c_str());
        fprintf(stderr, "dstmak list | makro | indi\n"
                        "  list   die Dateien des Verzeichnisses dirDSTmak\n"
                        "  makro  Bestands- und Bewegungsdateien dst*.??? in Zähltabellen und Vorlagen von reftyp.csv\n"
                        "  indi   indikator.csv aus denselben Dateien\n"
                        "  (dirDSTmak, R02DST, ... in Abschnitt RATEN von %s)\n",
                si::settingsPath().c_str());
        return;
    }
    // the tool reads and writes in the directory of its settings only
    std::string dir = si::getString("RATEN", "dirDSTmak", "");
    if (dir.empty() || !os::isDirectory(dir)) {
        fprintf(stderr, "dstmak: kein Verzeichnis der Statistikdatensätze \"%s\" (dirDSTmak in Abschnitt RATEN von %s)\n",
                dir.c_str(), si::settingsPath().c_str());
        exitStatus = 1;
        return;
    }
    if (dir.back() != '/') dir += '/';
    snprintf(directory, sizeof directory, "%s", dir.c_str());
    settings.read();
    snprintf(r01filter, sizeof r01filter, "%s", settings.r01filter.c_str());
    std::vector<std::string> variants;
    if (settings.neubau) variants.push_back("NEUBAU");
    DD::load("de", variants);
    if (command == "list") {
        list();
        return;
    }
    indicatorRun = command == "indi";
    DstProtocol page;
    protocol = &page;
    if (indicatorRun) indicators();
    else makro();
    page.close();
    protocol = nullptr;
}

void Dstmak::list()
{
    printf("%s %s\n", DD::lookup("dst").c_str(), directory);
    for (const auto& name : os::glob(directory, "*.*")) printf("%s\n", name.c_str());
}

void Dstmak::makro()
{
    auto start = std::chrono::steady_clock::now();
    if (!protocol->open(directory)) {
        fprintf(stderr, "open %sprot.tmp:\n%s\n", directory, os::errorText(errno).c_str());
        exitStatus = 1;
        return;
    }
    prot().text("Start %s\n", DD::lookup("dstmak").c_str());
    showSettings(false);
    if (!r02map::valid(settings.r02map)) {
        prot().message('w', "%s: ungültige Abbildung in kleinräumige Gliederung\n", settings.r02map.c_str());
        exitStatus = 1;
        return;
    }
    walk();
    writeReftypTemplate();
    if (movementSeen) writeReftyaTemplate();
    if (plausibility) prot().message('w', "Bitte Plausibilitätstest Statistikdatensatz ausführen\n");
    prot().text("Ende %s %.3fs\n", DD::lookup("dstmak").c_str(), secondsSince(start));
}

void Dstmak::showSettings(bool withIndicators)
{
    prot().setting("tkrate_r01filter", settings.r01filter);
    prot().setting("tkrate_szr02", settings.r02map);
    prot().setting("rtgkz", std::to_string(settings.rtgkz));
    prot().setting("tkrate_szw40", std::to_string(settings.w40dst));
    prot().setting("tkrate_abm", std::to_string(settings.abm));
    prot().setting("tkrate_anst", std::to_string(settings.anst));
    prot().setting("tkrate_neub", std::to_string(settings.neub));
    prot().setting("tkrate_nettobew", std::to_string(settings.nettobew));
    if (withIndicators) {
        prot().text("[%-10d] %s\n", settings.verbose, "Optionen/Systemeinstellungen/Protokollumfang Tools");
        std::string span = std::to_string(settings.nagwu) + ".." + std::to_string(settings.nagwo);
        prot().text("[%-10s] %s %s\n", span.c_str(), DD::lookup("tkindi_fert_WA?").c_str(),
                    DD::lookup("tkindi_fert_WA").c_str());
    }
}

void Dstmak::walk()
{
    static const char* const ours[] = {"prot.tmp", "prot.htm", "reftya.csv", "indikator.csv",
                                       "dstbest.csv", "dstbesta.csv", "dstbestc.csv"};
    for (const auto& name : os::glob(directory, "dst*.???")) {
        bool own = false;
        for (const char* o : ours) own = own || name == o;
        if (own) continue;
        if (name.find("dstbest") != std::string::npos) {
            ++files;
            stockSeen = true;
            stockFile(name);
        } else if (name.find("dstbew") != std::string::npos) {
            ++files;
            movementSeen = true;
            movementFile(name);
        } else {
            prot().text("!h  %s: kein Statistikdatensatz\n", name.c_str());
        }
    }
    if (!indicatorRun) {
        if (stockSeen) writeStockTables();
        if (movementSeen) writeMovementTables();
    }
}

void Dstmak::writeReftypTemplate()
{
    std::string file = path("reftyp_roh.csv");
    FILE* f = safeOutput::open(file);
    if (!f) {
        prot().text("&gt;        reftyp_roh.csv %s\n", os::errorText(errno).c_str());
        exitStatus = 1;
        return;
    }
    std::string agg1 = DD::lookup("tkindi_fert_AGG1"), agg2 = DD::lookup("tkindi_fert_AGG2");
    const char* columns[] = {"GKZ", "GNAME", "TYG", "TYS", "TYB", "TYZZA", "TYQWA", "TYNEE", "TYREA", "TYWBG",
                             "TYAGF", "TYHH", agg1.c_str(), agg2.c_str(), nullptr};
    // the cut of the keys is the first line (behind the byte order mark), before the head
    if (si::csvBom) fputs("\xEF\xBB\xBF", f);
    if (settings.rtgkz > 0) fprintf(f, "%s! cut(%d)\n", "#", settings.rtgkz);
    csvWriteComment(f, "reftyp", nullptr);
    csvWriteColumnNames(f, columns);
    char sep[2] = {si::separator, 0};
    long long divisor = 1;
    for (int k = 0; k < settings.rtgkz; ++k) divisor *= 10;
    int width = std::max(1, r02map::digits(settings.r02map) - settings.rtgkz);
    char keyFormat[16];
    snprintf(keyFormat, sizeof keyFormat, "%%0%dd", width);
    std::set<long long> keys;
    for (const auto& entry : regionKeys) keys.insert(entry.first / divisor);
    for (long long key : keys) {
        fprintf(f, keyFormat, static_cast<int>(key));
        fprintf(f, "%s\"\"", sep);
        for (int k = 0; k < 12; ++k) fprintf(f, "%s1", sep);
        fputc('\n', f);
    }
    safeOutput::close(f);
    prot().text("&gt;        reftyp_roh.csv %d records\n", static_cast<int>(keys.size()));
}

void Dstmak::writeReftyaTemplate()
{
    std::string file = path("reftya_roh.csv");
    FILE* f = safeOutput::open(file);
    if (f) {
        const char* columns[] = {"W40W41", "TYA", nullptr};
        csvWriteHead(f, "reftya", columns, "Vorlage fuer Eingabedatei reftya.csv");
        char format[32];
        char sep[2] = {si::separator, 0};
        snprintf(format, sizeof format, "%%0%dlld%s%%d\n", 11, sep);
        for (const auto& [key, records] : outsideKeys) {
            auto known = reftya.find(key);
            fprintf(f, format, key, known != reftya.end() ? known->second : outsideType(key));
        }
        safeOutput::close(f);
        prot().text("&gt;        reftya_roh.csv %d records\n", static_cast<int>(outsideKeys.size()));
    } else {
        prot().text("&gt;        reftya_roh.csv %s\n", os::errorText(errno).c_str());
        exitStatus = 1;
    }
    if (!reftyaFound) return;
    if (!outsideMissing.empty()) {
        prot().message('w', "Warnung, fehlende Schlüssel in reftya:\n");
        std::string block;
        for (long long key : outsideMissing) block += std::to_string(key) + " ";
        prot().text("</pre>\n<code>%s</code><pre>\n", block.c_str());
    }
    std::string unused;
    for (const auto& [key, type] : reftya)
        if (!outsideKeys.count(key)) unused += std::to_string(key) + " ";
    if (!unused.empty()) {
        prot().message('h', "Hinweis, unbenutzte Schlüssel in reftya:\n");
        prot().text("</pre>\n<code>%s</code><pre>\n", unused.c_str());
    }
}

int Dstmak::outsideType(long long key)
{
    if (reftyaFound) {
        auto known = reftya.find(key);
        if (known != reftya.end()) return known->second;
        outsideMissing.insert(key);
        return 1;
    }
    if (settings.w40dst <= 0) return 1;
    // the leading digits of the eleven-digit key W40W41
    long long type = key;
    for (int k = settings.w40dst; k < 11; ++k) type /= 10;
    return static_cast<int>(type);
}

void dstmak(int count, char** vector)
{
    exitStatus = 0;
    Dstmak tool(count, vector);
}
