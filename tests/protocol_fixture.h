// A protocol page in a fresh temporary directory, for tests of code that reports into it.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/variant_settings.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "kernel/stages.h"

// The process-wide settings a test may change, given back when it ends.
struct SettingsGuard {
    std::string appDir = si::appDir, directory = si::Directory, version = si::Version;
    char separator = si::separator;
    int bom = si::csvBom, kommentar = si::kommentar, spaltenname = si::spaltenname;
    int start = ini::STARTJAHR, end = ini::ENDJAHR, grnd = ini::GRND, nag = ini::NAG, nbg = ini::NBG, ngg = ini::NGG;
    int year = JAHR;
    ~SettingsGuard()
    {
        si::appDir = appDir;
        si::Directory = directory;
        si::Version = version;
        si::separator = separator;
        si::csvBom = bom;
        si::kommentar = kommentar;
        si::spaltenname = spaltenname;
        ini::STARTJAHR = start;
        ini::ENDJAHR = end;
        ini::GRND = grnd;
        ini::NAG = nag;
        ini::NBG = nbg;
        ini::NGG = ngg;
        JAHR = year;
    }
};

inline std::string slurpFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class ProtocolFixture : public ::testing::Test {
protected:
    // a fresh root with the tables directory dir = root/var/ and the protocol of variant "v"
    // under it, at protocolLevel, with errors throwing as `throwing` says
    void SetUp() override
    {
        char tmpl[] = "/tmp/veldor-protXXXXXX";
        root = mkdtemp(tmpl);
        dir = root + "/var/";
        std::filesystem::create_directories(dir + "v/prot");
        Prot::setup(dir, "v", protocolLevel, 0);
        ASSERT_EQ(Prot::open(protocolPath(), ""), 0);
        Prot::reset();
        Prot::setThrow(throwing);
        fflush(Prot::stream());
        seen = std::filesystem::file_size(writingPath());
    }
    void TearDown() override
    {
        Prot::close();
        Prot::reset();
        std::filesystem::remove_all(root);
    }
    std::string protocolPath() const { return dir + "v/prot/index.html"; }
    // the page grows in a temporary beside it until it is closed
    std::string writingPath() const
    {
        std::string now = safeOutput::writingPath(Prot::stream());
        return now.empty() ? protocolPath() : now;
    }
    // what the protocol got since the last call
    std::string newText()
    {
        fflush(Prot::stream());
        std::string all = slurpFile(writingPath());
        std::string part = all.substr(std::min(seen, all.size()));
        seen = all.size();
        return part;
    }
    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(dir + name, std::ios::binary) << text;
    }

    int protocolLevel = 3;
    bool throwing = false;
    std::string root, dir;   // dir ends with "/"
    size_t seen = 0;
};
