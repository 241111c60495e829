// A protocol page in a fresh temporary directory, for tests of code that reports into it.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "frame/mkvers.h"
#include "frame/prot.h"
#include "frame/siinit.h"
#include "kernel/rk.h"

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
    // the protocol of variant "v" under dir, at the given level, with errors not throwing
    void SetUp() override
    {
        char tmpl[] = "/tmp/veldor-protXXXXXX";
        dir = std::string(mkdtemp(tmpl)) + "/";
        Prot::setup(dir, "v", 3, 0);
        std::filesystem::create_directories(dir + "v/prot");
        ASSERT_EQ(Prot::open(protocolPath(), ""), 0);
        Prot::reset();
        Prot::setThrow(false);
        fflush(Prot::stream());
        seen = std::filesystem::file_size(protocolPath());
    }
    void TearDown() override
    {
        Prot::close();
        Prot::reset();
        std::filesystem::remove_all(dir);
    }
    std::string protocolPath() const { return dir + "v/prot/index.html"; }
    // what the protocol got since the last call
    std::string newText()
    {
        fflush(Prot::stream());
        std::string all = slurpFile(protocolPath());
        std::string part = all.substr(std::min(seen, all.size()));
        seen = all.size();
        return part;
    }

    std::string dir;   // ends with "/"
    size_t seen = 0;
};
