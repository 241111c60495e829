// The progress line of a forecast: on a terminal one line per year, rewritten in place and
// cleared at the end; nothing of it when the output goes to a file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/sandbox.h"

TEST(ProgressLine, ShownOnATerminalOnlyAndRewrittenInPlace)
{
    Sandbox s;
    s.write("var/v.ini", "[DEFAULTS]\nSTARTJAHR=2024\nENDJAHR=2026\n");
    if (std::system("command -v script >/dev/null 2>&1") != 0) GTEST_SKIP() << "no script(1) for a terminal";
    // script(1) gives the program a terminal and keeps what it showed
    std::string cmd = "cd '" + s.root() + "' && env -u LC_ALL LANG=C.UTF-8 XDG_CONFIG_HOME=cfg script -qec "
                      "'./App/orvane orvane -d var/ -v v' terminal.txt >/dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    std::string shown = s.read("terminal.txt");
    for (const char* year : {"\rJahr 1 von 3 (2024), ", "\rJahr 2 von 3 (2025), ", "\rJahr 3 von 3 (2026), "})
        EXPECT_NE(shown.find(year), std::string::npos) << year;
    EXPECT_NE(shown.find("noch etwa ?\033[K"), std::string::npos);
    // the line is cleared before the end of the forecast is told
    size_t last = shown.rfind("\rJahr 3 von 3");
    size_t cleared = shown.find("\r\033[K", last + 1);
    size_t end = shown.find("Ende der Prognose");
    ASSERT_NE(cleared, std::string::npos);
    EXPECT_LT(cleared, end);
    // one line per year: no line feed between the updates
    EXPECT_EQ(shown.substr(shown.find("\rJahr 2"), last - shown.find("\rJahr 2")).find('\n'), std::string::npos);

    RunResult r = s.run({"orvane", "-d", "var/", "-v", "v"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("von 3"), std::string::npos);
    EXPECT_EQ(r.out.find('\r'), std::string::npos);
    EXPECT_EQ(r.out.find('\033'), std::string::npos);
}
