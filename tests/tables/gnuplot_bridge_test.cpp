// The gnuplot bridge against the real program: a PNG through the pipe, the command file with
// its error log, and a run without gnuplot.
#include <gtest/gtest.h>

#include "tests/protocol_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/gnuplot_bridge.h"

namespace fs = std::filesystem;

class GnuplotTest : public ProtocolFixture {
protected:
    void SetUp() override
    {
        ProtocolFixture::SetUp();
        plot::saveCmd = 0;
        plot::saveLog = 1;
        plot::background = "#ffffff";
    }
    void TearDown() override
    {
        plot::saveCmd = 0;
        plot::saveLog = 1;
        ProtocolFixture::TearDown();
    }
    static bool isPng(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        unsigned char b[8] = {};
        in.read(reinterpret_cast<char*>(b), 8);
        static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
        return in.gcount() == 8 && std::equal(b, b + 8, signature);
    }
    // commands of a small plot into the stream
    void draw(FILE* f, const std::string& png, const char* body = "plot sin(x)")
    {
        fprintf(f, "%s\n", plotTerminal());
        fprintf(f, "set output '%s'\n", png.c_str());
        fprintf(f, "%s\n", body);
        fprintf(f, "set output\n");
    }
};

TEST_F(GnuplotTest, HeadLines)
{
    plotSetup();
    EXPECT_EQ(plot::saveCmd, 0);
    EXPECT_EQ(plot::saveLog, 1);
    EXPECT_STREQ(plotTerminal(),
                 "set term pngcairo color solid font 'Arial,8' size 22.6cm, 16.94cm background rgb '#ffffff'");
    char old = si::separator;
    si::separator = ';';
    EXPECT_STREQ(plotSeparator(), "set datafile separator ';'");
    si::separator = old;
}

TEST_F(GnuplotTest, PathFromTheInstallationOrFromPath)
{
    EXPECT_EQ(plotPath(dir), "gnuplot");
    EXPECT_EQ(newText(), "");
    EXPECT_EQ(plotPath(dir, Prot::stream(), 3), "gnuplot");
    std::string hint = "<pre>" + dir + "gnuplot64/bin/gnuplot not found, try gnuplot in PATH=" + getenv("PATH") + "</pre>";
    EXPECT_EQ(newText(), hint);
    fs::create_directories(dir + "gnuplot64/bin");
    std::ofstream(dir + "gnuplot64/bin/gnuplot") << "#!/bin/sh\n";
    EXPECT_EQ(plotPath(dir, Prot::stream(), 3), dir + "gnuplot64/bin/gnuplot");
    EXPECT_EQ(newText(), "");
}

TEST_F(GnuplotTest, PipeDrawsAPng)
{
    FILE* f = plotOpen(Prot::stream(), 3, dir, "pipe");
    ASSERT_NE(f, nullptr);
    std::string png = dir + "pipe.png";
    draw(f, png);
    EXPECT_EQ(plotClose(Prot::stream(), 3, f, dir, "pipe"), 0);
    EXPECT_TRUE(isPng(png));
    std::string text = newText();
    EXPECT_NE(text.find("<pre>gnuplot 5"), std::string::npos);
    EXPECT_NE(text.find("PLOT_OPEN_PIPE(" + fs::current_path().string() + ", gnuplot)\n"), std::string::npos);
    EXPECT_NE(text.find("\n0=PLOT_CLOSE_PIPE\n</pre>\n"), std::string::npos);
    EXPECT_EQ(Prot::count(SEV_WARNING), 0);
    EXPECT_FALSE(fs::exists(dir + "v/prot/pltpipe.txt"));
}

TEST_F(GnuplotTest, QuietBelowLevelThree)
{
    FILE* f = plotOpen(Prot::stream(), 2, dir, "quiet");
    ASSERT_NE(f, nullptr);
    draw(f, dir + "quiet.png");
    EXPECT_EQ(plotClose(Prot::stream(), 2, f, dir, "quiet"), 0);
    EXPECT_TRUE(isPng(dir + "quiet.png"));
    EXPECT_EQ(newText(), "");
    EXPECT_EQ(plotClose(Prot::stream(), 3, nullptr, dir, "none"), 0);
}

TEST_F(GnuplotTest, CommandFileWithErrorLog)
{
    plot::saveCmd = 1;
    FILE* f = plotOpen(Prot::stream(), 3, dir, "file");
    ASSERT_NE(f, nullptr);
    std::string cmd = dir + "v/prot/pltfile.txt";
    EXPECT_EQ(newText(), "<code>PLOT_OPEN_FILE(" + cmd + ")</code><br>\n");
    fprintf(f, "set decimalsign locale\n");
    std::string png = dir + "file.png";
    draw(f, png, "plot 1");
    EXPECT_EQ(plotClose(Prot::stream(), 3, f, dir, "file"), 0);
    EXPECT_TRUE(isPng(png));
    EXPECT_TRUE(fs::exists(cmd));                              // the command file stays
    EXPECT_FALSE(fs::exists(dir + "v/prot/gnuplot.log"));      // the log goes
    std::string text = newText();
    EXPECT_NE(text.find("PLOT_CLOSE_FILE 0=system(gnuplot " + cmd + " 2>" + dir + "v/prot/gnuplot.log)</code><br>\n"),
              std::string::npos);
    size_t block = text.find("<pre>gnuplot warning\n");
    ASSERT_NE(block, std::string::npos);
    EXPECT_NE(text.find("Warning: empty y range", block), std::string::npos);
    EXPECT_EQ(text.find("decimal_sign"), std::string::npos);
    EXPECT_NE(text.find("</pre>\n", block), std::string::npos);
}

TEST_F(GnuplotTest, DecimalSignAloneIsNoWarning)
{
    plot::saveCmd = 1;
    FILE* f = plotOpen(Prot::stream(), 3, dir, "ds");
    ASSERT_NE(f, nullptr);
    fprintf(f, "set decimalsign locale\n");
    draw(f, dir + "ds.png");
    EXPECT_EQ(plotClose(Prot::stream(), 3, f, dir, "ds"), 0);
    EXPECT_EQ(newText().find("gnuplot warning"), std::string::npos);
}

TEST_F(GnuplotTest, CommandFileWithoutLog)
{
    plot::saveCmd = 1;
    plot::saveLog = 0;
    FILE* f = plotOpen(Prot::stream(), 3, dir, "nolog");
    ASSERT_NE(f, nullptr);
    draw(f, dir + "nolog.png", "plot 1");
    EXPECT_EQ(plotClose(Prot::stream(), 3, f, dir, "nolog"), 0);
    std::string text = newText();
    EXPECT_NE(text.find("0=system(gnuplot " + dir + "v/prot/pltnolog.txt)</code>"), std::string::npos);
    EXPECT_EQ(text.find("2>"), std::string::npos);
    EXPECT_EQ(text.find("gnuplot warning"), std::string::npos);
    EXPECT_TRUE(isPng(dir + "nolog.png"));
}

TEST_F(GnuplotTest, MissingGnuplotGivesNoStream)
{
    std::string oldPath = getenv("PATH");
    fs::create_directories(dir + "empty");
    setenv("PATH", (dir + "empty").c_str(), 1);
    FILE* f = plotOpen(Prot::stream(), 3, dir, "missing");
    setenv("PATH", oldPath.c_str(), 1);
    EXPECT_EQ(f, nullptr);
    EXPECT_EQ(plotClose(Prot::stream(), 3, f, dir, "missing"), 0);
    std::string text = newText();
    EXPECT_NE(text.find("not found, try gnuplot in PATH=" + dir + "empty</pre>"), std::string::npos);
    EXPECT_NE(text.find("PLOT_OPEN_PIPE("), std::string::npos);
    // the caller says that the picture is missing
    EXPECT_EQ(Prot::count(SEV_WARNING), 0);
}
