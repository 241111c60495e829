#include "platform/dictionary.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <expat.h>
#include <string_view>
#include <unordered_map>

#include "platform/operating_system.h"
#include "platform/settings.h"

namespace {

std::unordered_map<std::string, std::string> g_dict;
std::string g_language;
std::vector<std::string> g_variants;
FILE* g_echo = nullptr;
bool g_echoOn = false;

// the loader's state: element name and id attribute per nesting depth
constexpr int MAXDEPTH = 5;
struct Loader {
    int depth = 0;
    std::string name[MAXDEPTH];
    std::string id[MAXDEPTH];
};
Loader g_loader;

void echoText(const char* s, int len)
{
    if (g_echoOn && g_echo) fwrite(s, 1, size_t(len), g_echo);
}

void XMLCALL startElement(void* data, const XML_Char* name, const XML_Char** atts)
{
    auto* l = static_cast<Loader*>(data);
    if (g_echoOn && g_echo) {
        fprintf(g_echo, "&lt;%s", name);
        for (int i = 0; atts[i]; i += 2) fprintf(g_echo, " %s=\"%s\"", atts[i], atts[i + 1]);
        fprintf(g_echo, "&gt;");
    }
    if (l->depth < MAXDEPTH) {
        l->name[l->depth] = name;
        l->id[l->depth].clear();
        if (l->depth >= 1 && l->name[0] == "data-dictionary")
            for (int i = 0; atts[i]; i += 2)
                if (std::strcmp(atts[i], "id") == 0) l->id[l->depth] = atts[i + 1];
    }
    ++l->depth;
}

void XMLCALL endElement(void* data, const XML_Char* name)
{
    auto* l = static_cast<Loader*>(data);
    if (g_echoOn && g_echo) fprintf(g_echo, "&lt;/%s&gt;", name);
    --l->depth;
}

void XMLCALL characters(void* data, const XML_Char* s, int len)
{
    auto* l = static_cast<Loader*>(data);
    echoText(s, len);
    if (len > 1023) len = 1023;
    if (l->name[0] != "data-dictionary") return;
    if (l->depth == 2 && l->name[1] == "k") {
        g_dict[l->id[1]].append(s, size_t(len));
    } else if (l->depth == 3 && !g_variants.empty() && l->name[1] == "k") {
        // a text extended for a variant of a module that the forecast uses
        for (const auto& v : g_variants)
            if (!v.empty() && v == l->name[2]) {
                g_dict[l->id[1]].append(s, size_t(len));
                break;
            }
    }
}

int expand(char* target, size_t size, const char* src, bool& found)
{
    size_t out = 0;
    auto put = [&](char c) {
        if (out + 1 < size) target[out++] = c;
    };
    const char* p = src;
    while (*p) {
        if (*p != '@') {
            put(*p++);
            continue;
        }
        const char* semi = std::strchr(p + 1, ';');
        if (!semi) {
            while (*p) put(*p++);
            break;
        }
        std::string key(p + 1, size_t(std::min<std::ptrdiff_t>(semi - p - 1, 79)));
        auto it = g_dict.find(key);
        if (it != g_dict.end()) {
            char inner[1024];
            bool dummy = false;
            expand(inner, sizeof inner, it->second.c_str(), dummy);
            for (const char* q = inner; *q; ++q)
                if (*q != '~') put(*q);
            found = true;
        } else {
            put('[');
            for (char c : key) put(c);
            put(']');
        }
        p = semi + 1;
    }
    if (size) target[out] = '\0';
    return found ? 1 : 0;
}

} // namespace

int DD::load(const std::string& language, const std::vector<std::string>& variants)
{
    std::string path = si::appDir + "datadict_" + language + ".xml";
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) {
        os::messageBox(std::strerror(errno), "%s", path.c_str());
        // there are no texts to say it with: plain English, and the languages at hand
        std::string languages;
        for (const auto& name : os::glob(si::appDir.empty() ? "." : si::appDir, "datadict_*.xml"))
            languages += " " + name.substr(9, name.size() - 13);
        if (os::isDirectory(si::appDir.empty() ? "." : si::appDir))
            fprintf(stderr, "%s: messages show their keys in [brackets]; languages at hand:%s\n", path.c_str(),
                    languages.empty() ? " none" : languages.c_str());
        else
            fprintf(stderr, "%s: no %s in %s: start the program in the directory that holds App/, or name that "
                            "directory with -w\n", path.c_str(), si::appDir.c_str(), os::currentDirectory().c_str());
        return 0;
    }
    g_language = language.substr(0, 31);
    g_variants = variants;
    g_loader = Loader();
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &g_loader);
    XML_SetElementHandler(parser, startElement, endElement);
    XML_SetCharacterDataHandler(parser, characters);
    char buffer[512];
    for (;;) {
        size_t n = fread(buffer, 1, sizeof buffer, f);
        bool last = n < sizeof buffer;
        if (XML_Parse(parser, buffer, int(n), last) == XML_STATUS_ERROR) {
            // before the protocol is open the console is the only place that can show where the fault is
            fprintf(g_echo ? g_echo : stderr, "datadict_%s.xml: %s at line %lu\n", language.c_str(),
                    XML_ErrorString(XML_GetErrorCode(parser)), (unsigned long)XML_GetCurrentLineNumber(parser));
            os::messageBox("missing file leads to cryptic output", "open datadict_%s.xml", path.c_str());
            break;
        }
        if (last) break;
    }
    if (g_echoOn && g_echo) fputc('\n', g_echo);
    XML_ParserFree(parser);
    fclose(f);
    return 0;
}

void DD::echo(FILE* stream, bool on)
{
    g_echo = stream;
    g_echoOn = on;
}

const std::string& DD::language() { return g_language; }

std::string DD::lookup(const std::string& key)
{
    auto it = g_dict.find(key);
    if (it == g_dict.end()) it = g_dict.emplace(key, "[" + key + "]").first;
    const std::string& t = it->second;
    return !t.empty() && t[0] == '~' ? t.substr(1) : t;
}

std::string DD::lookup(const std::string& key, const std::string& def)
{
    auto it = g_dict.find(key);
    if (it == g_dict.end()) it = g_dict.emplace(key, def).first;
    const std::string& t = it->second;
    return !t.empty() && t[0] == '~' ? t.substr(1) : t;
}

bool DD::has(const std::string& key) { return g_dict.count(key) != 0; }

bool DD::german() { return g_language.empty() || g_language == "de"; }

namespace {
// the printf conversions of a text in their order ("%d", "%.2f", ...), "%%" left out
std::string conversions(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') continue;
        if (i + 1 < text.size() && text[i + 1] == '%') {
            ++i;
            continue;
        }
        size_t j = i + 1;
        while (j < text.size() && std::strchr("-+ #0123456789.*hlLqjzt", text[j])) ++j;
        out.append(text, i, j + 1 - i);
        out += ' ';
        i = j;
    }
    return out;
}
} // namespace

const char* DD::literal(const char* german)
{
    if (!german || DD::german()) return german;
    // the map does not move its texts, so the pointer holds until the dictionary is cleared
    auto it = g_dict.find(std::string("de:") + german);
    if (it == g_dict.end()) return german;
    // a translation is a format too: one whose values differ from the German would misread them
    if (conversions(it->second) != conversions(german)) return german;
    return it->second.c_str();
}

std::string DD::literal(const std::string& german) { return literal(german.c_str()); }

int DD::expKey(char* target, size_t size, const char* src)
{
    bool found = false;
    return expand(target, size, src ? src : "", found);
}

std::string DD::expKey(const std::string& src)
{
    char buffer[1024];
    expKey(buffer, sizeof buffer, src.c_str());
    return buffer;
}

void DD::clear()
{
    g_dict.clear();
    g_loader = Loader();
    g_variants.clear();
}

std::string utf2ascii(const std::string& text)
{
    std::string out;
    out.reserve(text.size() + 8);
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == 0xC3 && i + 1 < text.size()) {
            const char* r = nullptr;
            switch (static_cast<unsigned char>(text[i + 1])) {
            case 0x84: r = "Ae"; break;
            case 0x96: r = "Oe"; break;
            case 0x9C: r = "Ue"; break;
            case 0x9F: r = "ss"; break;
            case 0xA4: r = "ae"; break;
            case 0xB6: r = "oe"; break;
            case 0xBC: r = "ue"; break;
            }
            if (r) {
                out += r;
                ++i;
                continue;
            }
        }
        out += char(c);
    }
    return out;
}

std::string utf8ToLatin1(const std::string& text)
{
    std::string out;
    size_t i = 0, n = text.size();
    auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    while (i < n) {
        unsigned char c = byte(i++);
        if (c < 0x80) {
            out += char(c);
            continue;
        }
        int more;
        unsigned long cp;
        if (c >= 0xFC) { more = 5; cp = c & 0x01; }
        else if (c >= 0xF8) { more = 4; cp = c & 0x03; }
        else if (c >= 0xF0) { more = 3; cp = c & 0x07; }
        else if (c >= 0xE0) { more = 2; cp = c & 0x0F; }
        else if (c >= 0xC0) { more = 1; cp = c & 0x1F; }
        else { more = 4; cp = c & 0x3F; }   // continuation byte in lead position: five bytes
        while (more > 0 && i < n && (byte(i) & 0xC0) == 0x80) {
            cp = (cp << 6) | (byte(i++) & 0x3F);
            --more;
        }
        out += cp > 255 ? '?' : char(cp);
    }
    return out;
}

std::string latin1ToUtf8(const std::string& text)
{
    std::string out;
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        if (c < 0x80) {
            out += ch;
        } else {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string fileUrl(const std::string& path)
{
    std::string out = "file:///";
    char buffer[8];
    // an absolute path of this platform brings its own first slash
    std::string_view rest = path;
    if (!rest.empty() && rest[0] == '/') rest.remove_prefix(1);
    for (char ch : rest) {
        unsigned char c = static_cast<unsigned char>(ch);
        if (c == '\\') out += '/';
        else if (c >= 33 && c <= 126) out += ch;
        else {
            snprintf(buffer, sizeof buffer, "%%%02X", c);
            out += buffer;
        }
    }
    return out;
}

std::string lastComponent(const std::string& path)
{
    size_t p = path.rfind('/');
    if (p == std::string::npos) p = path.rfind('\\');
    if (p == std::string::npos) return path;
    if (p >= 2 && path.compare(p - 2, 2, "..") == 0) return path.substr(p - 2);
    return path.substr(p + 1);
}
