// The help of the program and of its tools: exit status 0, every option of a tool named with an
// example, nothing written, and option values that merely look like a request for help.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "commands/tool_help.h"
#include "tests/sandbox.h"

TEST(ToolHelp, ProgramHelpFollowsTheWrongArgumentText)
{
    Sandbox s;
    for (const char* asked : {"--help", "-h"}) {
        RunResult r = s.run({asked});
        EXPECT_EQ(r.status, 0) << asked;
        EXPECT_EQ(r.err, std::string("./App/orvane: wrong argument: ") + asked +
                             ", use adeton dstmak hhprog orvane shp2plt zrgem\n");
        for (const char* tool : {"orvane", "hhprog", "dstmak", "zrgem", "adeton", "shp2plt"})
            EXPECT_NE(r.out.find(std::string("\n  ") + tool + " "), std::string::npos) << tool;
        EXPECT_NE(r.out.find("orvane TOOL --help"), std::string::npos);
    }
}

TEST(ToolHelp, EveryToolExplainsEachOptionWithAnExample)
{
    // the letters each tool acts on, and its words
    const std::pair<const char*, const char*> tools[] = {
        {"orvane", "cdejlopvw"}, {"hhprog", "dFlMNOPQRTUVw"}, {"zrgem", "alor"},
        {"shp2plt", "acdglprstx"}, {"dstmak", ""}, {"adeton", ""}};
    Sandbox s;
    for (const auto& [tool, letters] : tools) {
        for (const char* asked : {"--help", "-h"}) {
            RunResult r = s.run({tool, asked});
            EXPECT_EQ(r.status, 0) << tool << " " << asked;
            EXPECT_EQ(r.err, "") << tool;
            EXPECT_EQ(r.out, toolHelp(tool));
        }
        std::istringstream lines(toolHelp(tool));
        std::string line;
        std::string seen;
        while (std::getline(lines, line)) {
            if (line.size() < 4 || line.compare(0, 3, "  -") != 0 || line[3] == 'h') continue;
            seen += line[3];
            // the example is the tool's own call
            EXPECT_NE(line.find(std::string("orvane ") + tool + " "), std::string::npos) << line;
        }
        EXPECT_EQ(seen, letters) << tool;
    }
    for (const char* word : {"list", "makro", "indi"})
        EXPECT_NE(toolHelp("dstmak").find(std::string("orvane dstmak ") + word), std::string::npos);
    // no run happened: no protocol, no variant directory
    EXPECT_FALSE(s.exists("var/v"));
}

TEST(ToolHelp, HelpIsAskedOnlyInAnOptionsPlace)
{
    auto asked = [](const char* tool, std::vector<const char*> args) {
        return helpAsked(tool, int(args.size()), const_cast<char* const*>(args.data()));
    };
    EXPECT_TRUE(asked("orvane", {"-d", "demo/", "--help"}));
    EXPECT_TRUE(asked("orvane", {"-ph"}));
    // the value of -t and of -d, not a request
    EXPECT_FALSE(asked("shp2plt", {"-t", "-h", "gebiete"}));
    EXPECT_FALSE(asked("orvane", {"-d", "--help"}));
    EXPECT_FALSE(asked("orvane", {"-d--help"}));
    EXPECT_FALSE(asked("orvane", {"--", "--help"}));
    EXPECT_FALSE(asked("orvane", {"-d", "demo/", "-v", "demo"}));
    EXPECT_TRUE(asked("adeton", {"-h"}));
    EXPECT_FALSE(asked("nosuchtool", {"--help"}));
}
