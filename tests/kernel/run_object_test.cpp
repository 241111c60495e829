// Tests of the kernel state: module switches and their assertions, reduced extents, regions,
// dense and sparse region tables, the flow list, and the shared numeric helpers.
#include "kernel/run_object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/protocol.h"

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

TEST(KernelHelpers, SafeDivision) {
    EXPECT_EQ(safe(1, 1e-31, 7), 7);
    EXPECT_EQ(safe(1, -1e-31, 7), 7);
    EXPECT_DOUBLE_EQ(safe(1, 1e-30, 7), 1e30);
    EXPECT_EQ(safe(3, 4, 1), 0.75);
}

TEST(KernelHelpers, RoundingWithCarry) {
    RoundCarry r;
    EXPECT_EQ(r(0.5), 1);
    EXPECT_EQ(r.carry, -0.5);
    EXPECT_EQ(r(0.5), 0);
    EXPECT_EQ(r.carry, 0);
    EXPECT_EQ(r(0.25), 0);
    EXPECT_EQ(r(0), 0);   // leaves the carry
    EXPECT_EQ(r.carry, 0.25);
    EXPECT_EQ(r(0.25), 1);   // 0.5 rounds up
    RoundCarry n;
    EXPECT_EQ(n(-0.5), -1);   // half away from zero
    EXPECT_EQ(n(-2.4), -2);   // -2.4 + 0.5 = -1.9
    EXPECT_EQ(roundHalfAway(2.5), 3);
    EXPECT_EQ(roundHalfAway(-2.5), -3);
    EXPECT_EQ(roundHalfAway(-2.49), -2);
}

TEST(KernelHelpers, CompareThroughTheBinaryExponent) {
    EXPECT_EQ(Compare(1, 1, 0), 0);
    EXPECT_EQ(Compare(1.1, 1, 1e-3), 1);
    EXPECT_EQ(Compare(1, 1.1, 1e-3), -1);
    // 1.0 = 0.5 * 2^1: the tolerance doubles; 0.99 = 0.99 * 2^0: it stays
    EXPECT_EQ(Compare(1.0, 1.0 - 1.5e-3, 1e-3), 0);
    EXPECT_EQ(Compare(0.99, 0.99 - 1.5e-3, 1e-3), 1);
    // 1000.5 = 0.977 * 2^10: d = tol * 1024
    EXPECT_EQ(Compare(1000, 1000.5, 1e-3), 0);
    EXPECT_EQ(Compare(1000, 1000.5, 1e-4), -1);
    // the larger value by magnitude decides, also when negative
    EXPECT_EQ(Compare(-1000, -1000.5, 1e-3), 0);
    // small values are compared relatively: 0.0005 = 0.512 * 2^-10
    EXPECT_EQ(Compare(0, 0.0005, 1e-3), -1);
    EXPECT_EQ(Compare(0.0005 * (1 + 5e-4), 0.0005, 1e-3), 0);
    EXPECT_EQ(Compare(0.0005 * (1 + 5e-3), 0.0005, 1e-3), 1);
}

// a run object over saved module settings, with a protocol in a temporary directory
class StateTest : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        dir = fs::temp_directory_path() / ("veldor_state_" + std::to_string(getpid()) + "_" + std::to_string(counter++));
        fs::create_directories(dir);
        for (const char* p = moduleLetters; *p; ++p) {
            savedModules[*p - 'A'] = ini::module(*p);
            ini::setModule(*p, 0);
        }
        savedDims[0] = ini::NAG;
        savedDims[1] = ini::NGG;
        savedDims[2] = ini::NBG;
        savedDims[3] = ini::NTYA;
        ini::NAG = 5;
        ini::NGG = 2;
        ini::NBG = 3;
        ini::NTYA = 1;
        DD::clear();
        Prot::reset();
    }
    void TearDown() override {
        Prot::close();
        Prot::reset();
        for (const char* p = moduleLetters; *p; ++p) ini::setModule(*p, savedModules[*p - 'A']);
        ini::NAG = savedDims[0];
        ini::NGG = savedDims[1];
        ini::NBG = savedDims[2];
        ini::NTYA = savedDims[3];
        std::error_code ec;
        fs::remove_all(dir, ec);
    }
    fs::path openProtocol() {
        Prot::setup(dir.string() + "/", "v", 3, 0);
        fs::path p = dir / "protocol.html";
        EXPECT_EQ(Prot::open(p.string(), ""), 0);
        return p;
    }
    // the protocol text after a failed check of the module combinations
    std::string failedCheck(const char* modules) {
        fs::path p = openProtocol();
        Orvane run;
        for (const char* p = moduleLetters; *p; ++p) run.setModule(*p, 0);
        for (const char* m = modules; *m; m += 2) run.setModule(m[0], m[1] - '0');
        EXPECT_THROW(run.checkModules(), std::runtime_error);
        Prot::close();
        return slurp(p);
    }
    fs::path dir;
    int savedModules[26] = {};
    int savedDims[4] = {};
};

TEST_F(StateTest, RunObjectIsCurrentWhileItLives) {
    {
        Orvane run;
        EXPECT_EQ(Orvane::current, &run);
        EXPECT_EQ(run.NAG, 5);
        EXPECT_EQ(run.NBG, 3);
    }
    EXPECT_EQ(Orvane::current, nullptr);
}

TEST_F(StateTest, ModuleSwitches) {
    ini::setModule('K', 3);
    ini::setModule('M', 2);
    Orvane run;
    EXPECT_TRUE(_(A_0));
    EXPECT_TRUE(_(K_3));
    EXPECT_FALSE(_(K_1));
    EXPECT_EQ(K_(), 3);
    EXPECT_TRUE(K_() > K_1);
    EXPECT_TRUE(inrange(K_1, K_(), K_4));
    run.setModule('K', 5);
    EXPECT_EQ(K_(), 5);
    EXPECT_TRUE(run.module('K', 5));

    // reduced extents: M 2 keeps the cohort, K 5 keeps areas and groups
    run.NTYA = 4;
    EXPECT_EQ(run.NMAG(), 5);
    EXPECT_EQ(run.NMGG(), 2);
    EXPECT_EQ(run.ENMAG(4), 4);
    EXPECT_EQ(run.NKTYA(), 4);
    EXPECT_EQ(run.NKBG(), 3);
    EXPECT_EQ(run.NKGG(), 2);
    run.setModule('K', 3);
    EXPECT_EQ(run.NKGG(), 1);
    EXPECT_EQ(run.ENKGG(1), 0);   // a reduced table of extent 1 is read at 0
    EXPECT_EQ(run.ENKBG(2), 2);
    run.setModule('M', 1);
    EXPECT_EQ(run.NMAG(), 1);
    EXPECT_EQ(run.ENMAG(4), 0);
    EXPECT_EQ(run.NCTYA(), 1);
    EXPECT_EQ(run.NNBG(), 1);

    double v = 0;
    EXPECT_TRUE(run.variable("$NKBG", v));
    EXPECT_EQ(v, 3);
    EXPECT_TRUE(run.variable("$K", v));
    EXPECT_EQ(v, 3);
    EXPECT_TRUE(run.variable("$NTYA", v));
    EXPECT_EQ(v, 4);
    EXPECT_FALSE(run.variable("$NOPE", v));
}

TEST_F(StateTest, ModuleAssertionsQuoteTheirCondition) {
    std::string t = failedCheck("D1");   // T 0 with new building
    EXPECT_NE(t.find("source\\c\\rkini: "), std::string::npos);
    EXPECT_NE(t.find(": _(A_0) && _(B_0) && _(C_0) && _(D_0) && _(E_0) && _(I_0) && _(K_0) && _(M_0) && _(N_0) && "
                     "_(P_0) && _(V_0) && C.NTYA == 1</span>"),
              std::string::npos)
        << t;
    Prot::reset();
    t = failedCheck("T1E2");   // demolition without internal migration
    EXPECT_NE(t.find(": _(D_0) && _(E_0)</span>"), std::string::npos) << t;
    Prot::reset();
    t = failedCheck("T1I1A1");
    EXPECT_NE(t.find(": !(_(N_0) && _(M_0) && _(A_1))</span>"), std::string::npos) << t;
    Prot::reset();
    t = failedCheck("T1I1B1");
    EXPECT_NE(t.find(": !(_(N_0) && _(M_0) && _(B_1))</span>"), std::string::npos) << t;
    Prot::reset();

    // valid combinations pass
    Orvane run;
    for (const char* p = moduleLetters; *p; ++p) run.setModule(*p, 0);
    EXPECT_NO_THROW(run.checkModules());
    run.setModule('T', 1);
    run.setModule('I', 2);
    run.setModule('D', 1);
    run.setModule('A', 1);
    run.setModule('M', 1);
    EXPECT_NO_THROW(run.checkModules());
    run.setModule('T', 0);
    run.setModule('I', 0);
    run.setModule('D', 0);
    run.setModule('A', 0);
    run.setModule('M', 0);
    run.NTYA = 2;
    EXPECT_THROW(run.checkModules(), std::runtime_error);
}

TEST_F(StateTest, RegionsByKey) {
    Orvane run;
    for (int64_t k : {12, 15, 40}) {
        RegionRow r;
        r.key = k;
        r.name = "G" + std::to_string(k);
        run.regions.push_back(r);
    }
    run.indexRegions();
    EXPECT_EQ(run.findgem(15), 1);
    EXPECT_EQ(run.findgem(16), -1);
    EXPECT_EQ(run.maxKey, 40);
    EXPECT_EQ(run.region(2).name, "G40");
    long long key = 0;
    ASSERT_TRUE(laRegionKey);
    EXPECT_TRUE(laRegionKey(1, key));
    EXPECT_EQ(key, 15);

    // coarse keys: the key of the index list divided by the scale
    run.keyScale = 100;
    run.indexKeys = {1234, 4099, 1699};
    EXPECT_EQ(run.region(0).name, "G12");
    EXPECT_EQ(run.region(1).name, "G40");
    fs::path p = openProtocol();
    EXPECT_THROW(run.region(2), std::runtime_error);
    Prot::close();
    EXPECT_NE(slurp(p).find("Gebietskennzeichen 1699 nicht als 16 in REFTYP"), std::string::npos);
}

TEST_F(StateTest, SparseAndDenseRegionTablesAgree) {
    EXPECT_EQ(GemKey::make(1, 2, 3, 4), (uint64_t(1) << 32) | (2u << 16) | (3u << 12) | 4u);
    EXPECT_EQ(GemKey::ag(GemKey::make(7, 65535, 15, 4095)), 4095u);
    EXPECT_EQ(GemKey::gg(GemKey::make(7, 65535, 15, 4095)), 15u);
    EXPECT_EQ(GemKey::bg(GemKey::make(7, 65535, 15, 4095)), 65535u);
    EXPECT_EQ(GemKey::gz(GemKey::make(7, 65535, 15, 4095)), 7u);

    Orvane run;
    run.NGZ = 3;
    GemTable dense, sparse;
    run.sparseGem = false;
    run.makeGem(dense, "D");
    run.sparseGem = true;
    run.makeGem(sparse, "S");
    ASSERT_TRUE(sparse.sparse);
    ASSERT_FALSE(dense.sparse);
    double total = 0;
    for (GemTable* t : {&dense, &sparse}) {
        t->set(2, 1, 0, 4, 10.5);
        t->add(0, 2, 1, 0, 3);
        t->add(0, 2, 1, 0, 1);
        t->add(1, 0, 0, 2, 2.25);
        t->add(1, 0, 0, 2, -2.25);   // cancels: no key left
        t->set(1, 1, 1, 1, 0);       // writing 0 stores nothing
        t->add(2, 0, 1, 3, -0.5);
    }
    total = 10.5 + 4 - 0.5;
    EXPECT_EQ(dense.sum(), total);
    EXPECT_EQ(sparse.sum(), total);
    EXPECT_EQ(sparse.cells.size(), 3u);
    EXPECT_EQ(sparse.get(1, 1, 1, 1), 0);   // a missing key reads 0
    EXPECT_EQ(sparse.get(0, 2, 1, 0), 4);
    EXPECT_EQ(dense.regionSum(2), 10);
    EXPECT_EQ(sparse.regionSum(2), 10);
    EXPECT_EQ(sparse.regionSum(1), 0);

    // both forms walk the same elements in the same order
    std::vector<std::string> a, b;
    auto rec = [](std::vector<std::string>& out) {
        return [&out](size_t z, size_t bg, size_t gg, size_t ag, double v) {
            out.push_back(std::to_string(z) + "," + std::to_string(bg) + "," + std::to_string(gg) + "," +
                          std::to_string(ag) + "=" + std::to_string(v));
        };
    };
    dense.forEach(rec(a));
    sparse.forEach(rec(b));
    EXPECT_EQ(a, b);
    ASSERT_EQ(a.size(), 3u);
    EXPECT_EQ(a[0], "0,2,1,0=4.000000");

    // writing 0 over a stored value removes its key, the sum stays that of the rest
    sparse.set(0, 2, 1, 0, 0);
    EXPECT_EQ(sparse.cells.size(), 2u);
    EXPECT_EQ(sparse.sum(), 10);
    EXPECT_EQ(sparse.stored(), 2u);
    EXPECT_EQ(dense.stored(), 3u * 3 * 2 * 5);
}

// The births of a year, held as one value per cohort at age group 0, read as the sparse table
// of the same elements: the same walks, sums, scaling, rounding with carry and copies.
TEST_F(StateTest, BirthsAtAgeGroupZeroReadAsASparseTable) {
    GemTable sparse, births;
    sparse.make("S", 4, 2, 2, 5, true);
    births.makeFirstAge("B", 4, 2, 2, 5);
    ASSERT_TRUE(births.sparse);
    EXPECT_EQ(births.extents(), sparse.extents());
    EXPECT_EQ(births.row(0, 0, 0), nullptr);
    for (GemTable* t : {&sparse, &births}) {
        t->addInOrder(0, 1, 0, 0, 2.4);
        t->addInOrder(1, 0, 1, 0, 0.3);
        t->add(1, 0, 1, 0, -0.3);   // cancels: no element left
        t->addInOrder(2, 0, 0, 0, 1.7);
        t->add(2, 1, 1, 0, 0.6);
        t->set(3, 1, 0, 0, -0.0);   // writing 0 stores nothing
        t->set(3, 1, 1, 2, 0);      // nor at another age
    }
    auto walk = [](const GemTable& t) {
        std::vector<std::string> out;
        t.forEach([&out](size_t z, size_t b, size_t g, size_t a, double v) {
            out.push_back(std::to_string(z) + "," + std::to_string(b) + "," + std::to_string(g) + "," +
                          std::to_string(a) + "=" + std::to_string(v));
        });
        return out;
    };
    EXPECT_EQ(walk(births), walk(sparse));
    EXPECT_EQ(walk(births).size(), 3u);
    EXPECT_EQ(births.stored(), sparse.stored());
    EXPECT_EQ(births.sum(), sparse.sum());
    for (size_t z = 0; z < 4; ++z) EXPECT_EQ(births.regionSum(z), sparse.regionSum(z)) << z;
    EXPECT_EQ(births.get(2, 1, 1, 0), 0.6);
    EXPECT_EQ(births.get(2, 1, 1, 3), 0);
    // region 3 has no births: an infinite factor there makes nothing of nothing
    auto factor = [](size_t z) { return z == 3 ? INFINITY : 1.5 + double(z); };
    births.scaleRegions(factor);
    sparse.scaleRegions(factor);
    EXPECT_EQ(walk(births), walk(sparse));
    births.roundWithCarry();
    sparse.roundWithCarry();
    EXPECT_EQ(walk(births), walk(sparse));
    EXPECT_EQ(births.sum(), sparse.sum());
    GemTable copy;
    copy = births;
    EXPECT_EQ(walk(copy), walk(sparse));
    births.release();
    EXPECT_FALSE(births.exists());
    births.makeFirstAge("B", 4, 2, 2, 5);
    EXPECT_EQ(births.stored(), 0u);

    // a dense table rounds with carry in index order and leaves its zeros (a -0 too) as they are
    GemTable dense;
    dense.make("D", 1, 1, 1, 4, false);
    dense.set(0, 0, 0, 0, 0.6);
    dense.set(0, 0, 0, 1, -0.0);
    dense.set(0, 0, 0, 2, 0.6);
    dense.set(0, 0, 0, 3, 0.3);
    dense.roundWithCarry();
    EXPECT_EQ(dense.get(0, 0, 0, 0), 1);
    EXPECT_TRUE(std::signbit(dense.get(0, 0, 0, 1)));
    EXPECT_EQ(dense.get(0, 0, 0, 2), 0);
    EXPECT_EQ(dense.get(0, 0, 0, 3), 1);
}

TEST_F(StateTest, FlowListMatchesDenseTable) {
    LA5 d("C.DR4FB", {2, 2, 1, 2, 3}, 0.0);
    d[0][1][0][1][2] = 5;
    d[1][0][0][0][0] = 0.5;
    d[1][1][0][1][1] = -1;
    FBList l;
    l.fromDense(d);
    EXPECT_EQ(l.size(), 3u);
    EXPECT_EQ(l.sum(), d.sum());
    EXPECT_EQ(l.get(0, 1, 0, 1, 2), 5);
    EXPECT_EQ(l.get(0, 1, 0, 1, 1), 0);
    // GG in bits 0..3, AG in bits 4..15
    EXPECT_EQ(FBElem::make(0, 0, 0, 3, 100, 0).ggag, 3 | (100 << 4));
    // sorting restores the order of the dense table
    std::swap(l.elems[0], l.elems[2]);
    l.sort();
    EXPECT_EQ(l.elems[0].value, 5);
    LA5 back;
    l.toDense(back, 2, 1, 2, 3);
    EXPECT_EQ(static_cast<const LA5::Base&>(back), static_cast<const LA5::Base&>(d));
}

}  // namespace
