// Outputs written beside their place and put there whole; the write limit of the tests.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/safe_output.h"
#include "platform/write_behind.h"

namespace fs = std::filesystem;

namespace {

class SafeOutput : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/veldor-safeXXXXXX";
        dir = mkdtemp(tmpl);
        safeOutput::setWriteLimit(-1);
    }
    void TearDown() override
    {
        safeOutput::setWriteLimit(-1);
        fs::remove_all(dir);
    }
    std::string read(const std::string& name)
    {
        std::ifstream in(dir + "/" + name, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    void write(const std::string& name, const std::string& text) { std::ofstream(dir + "/" + name) << text; }
    size_t files() { return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator())); }
    std::string dir;
};

} // namespace

TEST_F(SafeOutput, TargetChangesOnlyWhenTheOutputIsComplete)
{
    write("t.csv", "old\n");
    FILE* f = safeOutput::open(dir + "/t.csv");
    ASSERT_NE(f, nullptr);
    fputs("new\n", f);
    fflush(f);
    EXPECT_EQ(read("t.csv"), "old\n");
    EXPECT_EQ(safeOutput::target(f), dir + "/t.csv");
    EXPECT_EQ(safeOutput::commit(f), 0);
    EXPECT_EQ(read("t.csv"), "new\n");
    EXPECT_EQ(files(), 1u);
}

TEST_F(SafeOutput, FullDiskLeavesTargetAsItWasAndNoTemporary)
{
    write("t.csv", "old\n");
    write("all.csv", "2024\n");
    safeOutput::setWriteLimit(10);
    FILE* f = safeOutput::open(dir + "/t.csv");
    ASSERT_NE(f, nullptr);
    for (int i = 0; i < 100; ++i) fputs("a line of a table\n", f);
    EXPECT_EQ(safeOutput::commit(f), ENOSPC);
    EXPECT_EQ(read("t.csv"), "old\n");
    // an appended table is cut back to what it held
    safeOutput::setWriteLimit(10);
    f = safeOutput::open(dir + "/all.csv", true);
    ASSERT_NE(f, nullptr);
    fputs("2025 and more than ten bytes\n", f);
    EXPECT_EQ(safeOutput::commit(f), ENOSPC);
    EXPECT_EQ(read("all.csv"), "2024\n");
    EXPECT_EQ(files(), 2u);
    safeOutput::setWriteLimit(-1);
    f = safeOutput::open(dir + "/all.csv", true);
    fputs("2025\n", f);
    EXPECT_EQ(safeOutput::commit(f), 0);
    EXPECT_EQ(read("all.csv"), "2024\n2025\n");
}

// A table of all years is moved aside while a year's lines are appended: whatever a killed
// process wrote of them, no file under the table's name ends inside a line. A failed year puts
// it back as it was.
// A table of several windows is handed to the disk and dropped from the cache while it is
// written: every byte still stands in its place, in a new file, in one appended to and in one
// put back after a failed year.
TEST_F(SafeOutput, LargeTablesWrittenBehindKeepEveryByte)
{
    const size_t piece = size_t(1) << 20, window = writeBehind::WINDOW / piece;
    // piece k: its number in every byte, so that a piece lost, doubled or moved shows
    auto pieces = [&](size_t from, size_t to) {
        std::string text;
        for (size_t k = from; k < to; ++k) text.append(piece, static_cast<char>('A' + k % 53));
        return text;
    };
    auto writePieces = [&](FILE* f, size_t from, size_t to) {
        for (size_t k = from; k < to; ++k) {
            std::string text = pieces(k, k + 1);
            ASSERT_EQ(fwrite(text.data(), 1, text.size(), f), text.size());
            writeBehind::wrote(fileno(f), text.size());
        }
    };
    const size_t first = window * 7 / 2, failed = window * 3 / 2, last = window;
    // from the first byte, not only beyond the kernel's own limit
    writeBehind::startAfter(0);
    FILE* f = safeOutput::open(dir + "/big.csv");
    ASSERT_NE(f, nullptr);
    writePieces(f, 0, first);
    EXPECT_EQ(safeOutput::commit(f), 0);
    EXPECT_TRUE(read("big.csv") == pieces(0, first));

    f = safeOutput::open(dir + "/big.csv", true);
    writePieces(f, first, first + failed);
    fflush(f);
    safeOutput::dropAppends();
    EXPECT_EQ(fs::file_size(dir + "/big.csv"), first * piece);

    // an appended table written behind from its first byte, whatever the process wrote before
    writeBehind::startAfter(writeBehind::KERNEL_LIMIT);
    f = safeOutput::open(dir + "/big.csv", true);
    writeBehind::fromStart(fileno(f));
    writePieces(f, first, first + last);
    EXPECT_EQ(safeOutput::commit(f), 0);
    EXPECT_TRUE(read("big.csv") == pieces(0, first + last));
    EXPECT_EQ(files(), 1u);
}

TEST_F(SafeOutput, AppendedTableIsNeverSeenHalfWritten)
{
    write("bew.csv", "year\n2024\n");
    FILE* f = safeOutput::open(dir + "/bew.csv", true);
    ASSERT_NE(f, nullptr);
    fputs("2025;cut in", f);
    fflush(f);
    EXPECT_FALSE(fs::exists(dir + "/bew.csv"));
    std::string aside = safeOutput::writingPath(f);
    EXPECT_EQ(fs::path(aside).filename().string().substr(0, 9), ".~bew.csv");
    fputs(" the middle\n", f);
    EXPECT_EQ(safeOutput::commit(f), 0);
    EXPECT_EQ(read("bew.csv"), "year\n2024\n2025;cut in the middle\n");
    EXPECT_EQ(files(), 1u);

    // a year that fails: every open append is put back as it was
    FILE* g = safeOutput::open(dir + "/bew.csv", true);
    FILE* h = safeOutput::open(dir + "/agg.csv", true);
    fputs("2026\n", g);
    fputs("2026\n", h);
    fflush(g);
    safeOutput::dropAppends();
    EXPECT_FALSE(safeOutput::owns(g));
    EXPECT_EQ(read("bew.csv"), "year\n2024\n2025;cut in the middle\n");
    EXPECT_FALSE(fs::exists(dir + "/agg.csv"));
    EXPECT_EQ(files(), 1u);
}

TEST_F(SafeOutput, DiscardAndUnwritableDirectory)
{
    FILE* f = safeOutput::open(dir + "/gone.csv");
    ASSERT_NE(f, nullptr);
    fputs("x", f);
    safeOutput::discard(f);
    EXPECT_FALSE(fs::exists(dir + "/gone.csv"));
    EXPECT_EQ(files(), 0u);
    errno = 0;
    EXPECT_EQ(safeOutput::open(dir + "/missing/t.csv"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(safeOutput::writeFile(dir + "/w.ini", "[A]\nk=v\n"), 0);
    EXPECT_EQ(read("w.ini"), "[A]\nk=v\n");
}
