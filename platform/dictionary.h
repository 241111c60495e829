// The text catalogue: keys "@key;" expanded from App/datadict_<language>.xml, and the
// conversions between UTF-8, the 8-bit Latin form of file names and plain ASCII.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

class DD {
public:
    // variants: the active variant names (NEUBAU, ...); may be empty. Always returns 0.
    static int load(const std::string& language, const std::vector<std::string>& variants);
    static void echo(FILE* stream, bool on);
    static const std::string& language();
    // the text of key without a leading "~"; a missing key is stored as "[key]"
    static std::string lookup(const std::string& key);
    static std::string lookup(const std::string& key, const std::string& def);
    static bool has(const std::string& key);
    // expands every "@key;" of src into target (size bytes, always terminated);
    // 1 when any key was found
    static int expKey(char* target, size_t size, const char* src);
    static std::string expKey(const std::string& src);      // through a 1024-byte buffer
    // A message the system writes as literal German text: unchanged in a German run (or before
    // any dictionary is loaded); in another language the text of the key "de:" + text when the
    // dictionary has one, else the German text as it stands. The result stays valid for the run.
    static const char* literal(const char* german);
    static std::string literal(const std::string& german);
    // true when the loaded language is German or none is loaded
    static bool german();
    static void clear();
};

std::string utf2ascii(const std::string& text);
std::string utf8ToLatin1(const std::string& text);
std::string latin1ToUtf8(const std::string& text);
std::string fileUrl(const std::string& path);
std::string lastComponent(const std::string& path);
