#include "platform/settings.h"

#include <set>

#include "platform/safe_output.h"

#include <SimpleIni.h>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <strings.h>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

#include "platform/dictionary.h"
#include "platform/installation.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"

namespace si {

std::string programPath;
std::string appDir = "./App/";
std::string release;
std::string localeName;
int kommentar = 1;
int spaltenname = 2;
char decimalPoint = '.';
char separator = ';';
int csvBom = 1;
int csvAscii = 1;
std::string intFormat = "0";
std::string floatFormat;
int logfile = 1;
std::string Directory;
std::string Version;

namespace {

// A profile file held in memory as long as it is unchanged on disk, so that reading
// a hundred keys does not parse the file a hundred times.
struct Profile {
    std::unique_ptr<CSimpleIniA> ini;
    bool exists = false;
    bool bom = false;
    bool crlf = false;
    std::string tail;   // comment lines after the last entry, which the library does not keep
    // comment lines that lost their place (a removed key or section carried them, or a removed
    // key is kept as a comment), by the section at whose end they are written ("" the top)
    std::vector<std::pair<std::string, std::string>> kept;
    struct timespec mtime {};
    off_t size = -1;
};

std::unordered_map<std::string, Profile> g_profiles;

// the comment lines that end a file, with line feeds only
std::string trailingComments(const std::string& data)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < data.size()) {
        size_t end = data.find('\n', start);
        if (end == std::string::npos) end = data.size();
        std::string line = data.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    size_t first = lines.size();
    while (first > 0) {
        const std::string& l = lines[first - 1];
        size_t a = l.find_first_not_of(" \t");
        if (a != std::string::npos && l[a] != ';' && l[a] != '#') break;
        --first;
    }
    std::string tail;
    bool any = false;
    for (size_t i = first; i < lines.size(); ++i) {
        size_t a = lines[i].find_first_not_of(" \t");
        if (a == std::string::npos) continue;
        tail += lines[i] + "\n";
        any = true;
    }
    return any ? tail : "";
}

Profile& profile(const std::string& file)
{
    Profile& p = g_profiles[file];
    struct stat st;
    bool exists = stat(file.c_str(), &st) == 0 && S_ISREG(st.st_mode);
    if (p.ini && p.exists == exists &&
        (!exists || (st.st_mtim.tv_sec == p.mtime.tv_sec && st.st_mtim.tv_nsec == p.mtime.tv_nsec &&
                     st.st_size == p.size)))
        return p;
    p.ini = std::make_unique<CSimpleIniA>(true, true, false);
    p.ini->SetSpaces(false);
    p.exists = exists;
    p.bom = p.crlf = false;
    p.tail.clear();
    if (exists) {
        p.mtime = st.st_mtim;
        p.size = st.st_size;
        std::string data;
        if (FILE* f = fopen(file.c_str(), "rb")) {
            char buffer[8192];
            size_t n;
            while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) data.append(buffer, n);
            fclose(f);
        }
        p.bom = data.size() >= 3 && data.compare(0, 3, "\xEF\xBB\xBF") == 0;
        p.crlf = data.find("\r\n") != std::string::npos;
        p.tail = trailingComments(data);
        p.ini->LoadData(data);
    }
    return p;
}

// the text with the kept comment lines at the end of their sections
std::string withKeptComments(const std::string& text, const std::vector<std::pair<std::string, std::string>>& kept)
{
    std::vector<bool> done(kept.size(), false);
    std::string out;
    // the lines go before the comment above the next section's name, which belongs to that one
    size_t commentStart = 0;
    auto flush = [&](const std::string& section) {
        std::string lines;
        for (size_t i = 0; i < kept.size(); ++i) {
            if (done[i] || strcasecmp(kept[i].first.c_str(), section.c_str()) != 0) continue;
            done[i] = true;
            lines += kept[i].second;
            if (lines.back() != '\n') lines += '\n';
        }
        out.insert(commentStart, lines);
    };
    flush("");
    std::string section;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        size_t close = line.find(']');
        bool comment = !line.empty() && (line[0] == ';' || line[0] == '#');
        if (!line.empty() && line[0] == '[' && close != std::string::npos) {
            flush(section);
            section = line.substr(1, close - 1);
        }
        if (!comment) commentStart = out.size() + line.size() + 1;
        out += line;
        out += '\n';
        start = end + 1;
    }
    commentStart = out.size();
    flush(section);
    // the sections that are gone: their lines at the end
    for (size_t i = 0; i < kept.size(); ++i)
        if (!done[i]) {
            commentStart = out.size();
            flush(kept[i].first);
        }
    return out;
}

// keeps the comment of an entry that is removed, at the end of section
void keepComment(Profile& p, const std::string& section, const char* comment)
{
    if (comment && *comment) p.kept.emplace_back(section, comment);
}

bool save(const std::string& file, Profile& p)
{
    std::string out;
    if (p.ini->Save(out, false) < 0) return false;
    // the library sets sections apart by empty lines; a profile file has none
    std::string packed;
    packed.reserve(out.size());
    for (size_t i = 0; i < out.size(); ++i) {
        if (out[i] == '\n' && (packed.empty() || packed.back() == '\n')) continue;
        packed += out[i];
    }
    out.swap(packed);
    if (!p.kept.empty()) out = withKeptComments(out, p.kept);
    if (!p.tail.empty()) {
        if (!out.empty() && out.back() != '\n') out += '\n';
        out += p.tail;
    }
    if (p.crlf) {
        std::string conv;
        conv.reserve(out.size() + out.size() / 16);
        for (char c : out) {
            if (c == '\n') conv += '\r';
            conv += c;
        }
        out.swap(conv);
    }
    if (p.bom) out.insert(0, "\xEF\xBB\xBF");
    // the user's file is replaced whole or not at all: a full disk never leaves it shorter
    int err = safeOutput::writeFile(file, out);
    g_profiles.erase(file);   // read afresh next time
    if (err) errno = err;
    return err == 0;
}

// files whose changes are kept in memory until profileCommit
std::set<std::string> g_batched;
std::set<std::string> g_dirty;

// writes the profile now, or marks it for the commit of its batch
bool store(const std::string& file, Profile& p)
{
    if (g_batched.count(file)) {
        g_dirty.insert(file);
        return true;
    }
    return save(file, p);
}

std::string g_dataDirectory;
bool g_dataDirectoryKnown = false;

} // namespace

std::string profileString(const std::string& file, const char* section, const char* key, const char* def)
{
    Profile& p = profile(file);
    const char* v = p.ini->GetValue(section, key, nullptr);
    return v ? v : (def ? def : "");
}

bool profileWrite(const std::string& file, const char* section, const char* key, const char* value)
{
    Profile& p = profile(file);
    if (!key) {
        // the comment above the section's name ends the section before it in the file
        CSimpleIniA::TNamesDepend sections;
        p.ini->GetAllSections(sections);
        const CSimpleIniA::Entry* gone = nullptr;
        for (const auto& e : sections)
            if (strcasecmp(e.pItem, section) == 0) gone = &e;
        if (gone && gone->pComment) {
            const CSimpleIniA::Entry* before = nullptr;
            for (const auto& e : sections)
                if (e.nOrder < gone->nOrder && (!before || e.nOrder > before->nOrder)) before = &e;
            keepComment(p, before ? before->pItem : "", gone->pComment);
        }
        p.ini->Delete(section, nullptr, true);
    } else if (!value) {
        // the comment above the key stays in its section
        if (const CSimpleIniA::TKeyVal* keys = p.ini->GetSection(section)) {
            for (auto it = keys->find(CSimpleIniA::Entry(key)); it != keys->end() && strcasecmp(it->first.pItem, key) == 0; ++it)
                keepComment(p, section, it->first.pComment);
        }
        p.ini->Delete(section, key, false);
    } else {
        // an existing key keeps the spelling it has in the file
        CSimpleIniA::TNamesDepend keys;
        std::string name = key;
        if (p.ini->GetAllKeys(section, keys))
            for (const auto& k : keys)
                if (strcasecmp(k.pItem, key) == 0) name = k.pItem;
        p.ini->SetValue(section, name.c_str(), value, nullptr, true);
    }
    return store(file, p);
}

void profileBatch(const std::string& file) { g_batched.insert(file); }

bool profileCommit(const std::string& file)
{
    g_batched.erase(file);
    if (!g_dirty.erase(file)) return true;
    return save(file, profile(file));
}

void profileAbandon(const std::string& file)
{
    g_batched.erase(file);
    g_dirty.erase(file);
    g_profiles.erase(file);
}

bool profileKeepAsComment(const std::string& file, const char* section, const char* key, const char* value,
                          const char* note)
{
    Profile& p = profile(file);
    std::string lines = note ? std::string("; ") + note + "\n" : std::string();
    lines += std::string(";") + key + "=" + (value ? value : "") + "\n";
    p.kept.emplace_back(section, lines);
    return store(file, p);
}

const std::string& dataDirectory()
{
    if (g_dataDirectoryKnown) return g_dataDirectory;
    g_dataDirectoryKnown = true;
    const std::string& path = programPath;
    for (char sep : {'/', '\\'}) {
        size_t p = path.rfind(sep);
        if (p == std::string::npos || path.compare(p + 1, 6, "orvane") != 0) continue;
        std::string dir = path.substr(0, p);
        size_t q = dir.rfind(sep);
        // App/ beside Data/: the portable installation
        size_t start = q == std::string::npos ? 0 : q + 1;
        if (dir.compare(start, 3, "App") == 0) {
            std::string candidate = dir.substr(0, start) + "Data";
            if (os::isFile(candidate + sep + "veldor.ini")) {
                g_dataDirectory = candidate;
                return g_dataDirectory;
            }
        }
        break;
    }
    const char* xdg = os::getenv("XDG_CONFIG_HOME");
    if (xdg && *xdg) {
        g_dataDirectory = std::string(xdg) + "/veldor";
    } else {
        const char* home = os::getenv("HOME");
        if (!home || !*home) {
            os::messageBox("Error", "get application data directory failed with code %8x\nspecial characters in user name ?", 2);
            std::exit(1);
        }
        g_dataDirectory = std::string(home) + "/.config/veldor";
    }
    // an installed program brings its settings template into the user's directory on first use
    installation::seedUserSettings(g_dataDirectory);
    return g_dataDirectory;
}

std::string settingsPath() { return dataDirectory() + "/veldor.ini"; }

std::string getString(const char* section, const char* key, const char* def)
{
    return profileString(settingsPath(), section, key, def);
}

int getInt(const char* section, const char* key, int def)
{
    char buffer[16];
    snprintf(buffer, sizeof buffer, "%d", def);
    return std::atoi(getString(section, key, buffer).c_str());
}

std::string variantPath(const std::string& dir, const std::string& ver) { return dir + ver + ".ini"; }
std::string variantPath() { return variantPath(Directory, Version); }

std::string varString(const char* section, const char* key, const char* def, const std::string& dir,
                      const std::string& ver)
{
    return profileString(variantPath(dir, ver), section, key, def).substr(0, 1024);
}

int varInt(const char* section, const char* key, int def, const std::string& dir, const std::string& ver)
{
    char buffer[32];
    snprintf(buffer, sizeof buffer, "%d", def);
    return std::atoi(varString(section, key, buffer, dir, ver).substr(0, 128).c_str());
}

double parseNumber(const std::string& text)
{
    // accept the decimal point of the locale as well as "." and ","
    std::string t = text;
    for (char& c : t)
        if (c == ',') c = '.';
    const char* s = t.c_str();
    char* end = nullptr;
    errno = 0;
    // strtod follows the locale; read in the "C" form through a fixed locale
    static locale_t cloc = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    double v = strtod_l(s, &end, cloc);
    return end == s ? 0.0 : v;
}

double varDouble(const char* section, const char* key, double def, const std::string& dir, const std::string& ver)
{
    char buffer[64];
    snprintf(buffer, sizeof buffer, "%g", def);
    return parseNumber(varString(section, key, buffer, dir, ver));
}

bool varWrite(const char* section, const char* key, const char* value, const std::string& dir, const std::string& ver)
{
    return profileWrite(variantPath(dir, ver), section, key, value);
}

namespace {
// Windows locale names of settings files ("German_Germany.1252", "de-DE") mapped to
// names this system knows
std::string tryLocale(const std::string& name)
{
    if (const char* r = setlocale(LC_ALL, name.c_str())) return r;
    std::string n = name;
    size_t dot = n.find('.');
    if (dot != std::string::npos) n.resize(dot);
    for (char& c : n)
        if (c == '-') c = '_';
    std::string candidates[] = {n + ".UTF-8", n + ".utf8", n};
    if (n.rfind("German", 0) == 0 || n == "de" || n == "deu") candidates[0] = "de_DE.UTF-8";
    if (n.rfind("English", 0) == 0 || n == "en") candidates[0] = "en_US.UTF-8";
    for (auto& c : candidates)
        if (const char* r = setlocale(LC_ALL, c.c_str())) return r;
    return "";
}
} // namespace

void initGlobals(const char* argv0)
{
    programPath = argv0 ? argv0 : "";
    // the installed program takes its files from share/veldor/, the portable one from ./App/
    appDir = installation::shareDirectory().empty() ? "./App/" : installation::shareDirectory();
    kommentar = getInt("CSV", "Kommentar", 1);
    spaltenname = getInt("CSV", "Spaltenname", 2);
    release = getString("DEFAULTS", "Release", "");
    std::string loc = getString("CSV", "Laendereinstellung", "").substr(0, 1024);
    // three fields "name:second:digits"; only the name counts
    std::string name = loc.substr(0, loc.find(':'));
    localeName = tryLocale(name);
    if (localeName.empty()) setlocale(LC_ALL, "C");
    const lconv* lc = localeconv();
    decimalPoint = lc && lc->decimal_point && *lc->decimal_point ? lc->decimal_point[0] : '.';
    separator = os::separatorDefault(getString("CSV", "Spaltentrennzeichen", ""), decimalPoint);
}

void processDefaults()
{
    // file names on this platform are UTF-8 themselves: the texts are taken as they stand
    if (Directory.empty()) Directory = getString("DEFAULTS", "Directory", "");
    if (Version.empty()) Version = getString("DEFAULTS", "Version", "");
    intFormat = getString("CSV", "GanzzahlFormat", "0");
    for (char& c : intFormat)
        if (c == '_') c = ' ';
    floatFormat = getString("CSV", "GleitkommaFormat", "");
    logfile = getInt("TRACE", "logfile", 1);
}

} // namespace si

namespace opt {

std::map<std::string, double>& all()
{
    static std::map<std::string, double> options;
    return options;
}

void set(const std::string& name, double value) { all()[name] = value; }
bool has(const std::string& name) { return all().count(name) != 0; }

double get(const std::string& name, double def)
{
    auto it = all().find(name);
    return it == all().end() ? def : it->second;
}

double getTrace(const std::string& name, double def)
{
    auto it = all().find(name);
    if (it == all().end()) return def;
    if (Prot::level(2)) Prot::writeln(2, "<code>!option(%s %g)</code>", name.c_str(), it->second);
    return it->second;
}

int getIntTrace(const std::string& name, int def) { return int(std::trunc(getTrace(name, def))); }

void clear() { all().clear(); }

} // namespace opt

