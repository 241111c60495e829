// The comparison rules shared by all stages.
#include "kernel/kernel_helpers.h"

#include <cctype>
#include <cmath>
#include <string>
#include <vector>

#include "platform/protocol.h"
#include "platform/variant_settings.h"

void moduleCheck(bool condition, const char* source, int line, const char* text, const char* guard)
{
    if (condition) {
        Prot::check(true, source, line, text);
        return;
    }
    // the module keys of a text: the letters of "_(A_0)", "K_()", "N_2", a capital followed by
    // "_" that ends no longer name
    auto keysOf = [](const std::string& t) {
        std::vector<std::string> keys;
        for (size_t i = 0; i + 1 < t.size(); ++i) {
            const unsigned char before = i ? static_cast<unsigned char>(t[i - 1]) : ' ';
            if (!std::isupper(static_cast<unsigned char>(t[i])) || t[i + 1] != '_' || std::isalnum(before) ||
                before == '_' || before == '.')
                continue;
            for (const ini::Module& m : ini::modules)
                if (m.letter == t[i]) keys.push_back(m.key);
        }
        return keys;
    };
    // a default that the check stood under is named first and alone: it made the check apply;
    // else the defaults of the condition itself
    std::string note = ini::defaultsFilledNote(keysOf(guard));
    if (note.empty()) note = ini::defaultsFilledNote(keysOf(text));
    Prot::check(false, source, line, (std::string(text) + note).c_str());
}


int Compare(double a, double b, double tol) {
    double m = std::fabs(a) > std::fabs(b) ? a : b;
    int e = 0;
    std::frexp(m, &e);
    double d = std::ldexp(tol, e);
    double diff = a - b;
    if (diff > d) return 1;
    if (diff < -d) return -1;
    return 0;
}

double dampedRatio(double a, double b, double sce) {
    if (std::fabs(b) < 1e-30) return 1.0;
    double r = a / b;
    // the undamped ratio needs no power: pow(r, 1) is r exactly
    if (sce == 1.0 || r <= 0) return r;
    return std::pow(r, sce);
}

