#include "platform/option_scanner.h"

#include <cstdio>
#include <cstring>

int Getopt::operator()(int argc, char* const* argv, const char* options)
{
    if (sp == 1) {
        if (optind >= argc || argv[optind][0] != '-' || argv[optind][1] == '\0') return -1;
        if (std::strcmp(argv[optind], "--") == 0) {
            ++optind;
            return -1;
        }
    }
    int c = optopt = static_cast<unsigned char>(argv[optind][sp]);
    const char* cp = c == ':' ? nullptr : std::strchr(options, c);
    if (!cp) {
        if (opterr) fprintf(stderr, "%s: illegal option -- %c\n", argv[0], c);
        if (argv[optind][++sp] == '\0') {
            ++optind;
            sp = 1;
        }
        return '?';
    }
    if (cp[1] == ':') {
        if (argv[optind][sp + 1] != '\0') {
            optarg = &argv[optind++][sp + 1];
        } else if (++optind >= argc) {
            if (opterr) fprintf(stderr, "%s: option requires an argument -- %c\n", argv[0], c);
            sp = 1;
            return '?';
        } else {
            optarg = argv[optind++];
        }
        sp = 1;
    } else {
        if (argv[optind][++sp] == '\0') {
            sp = 1;
            ++optind;
        }
        optarg = nullptr;
    }
    return c;
}
