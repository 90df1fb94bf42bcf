#include "frame/AtomicFile.h"

#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

namespace sonra {
namespace {

using test::TempDir;

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777;
}

TEST(AtomicFile, WritesTheWholeFileForTheUserAlone) {
    const TempDir directory;
    const std::string bytes("one\0two\n\xff", 9);
    EXPECT_TRUE(AtomicFile::write(directory / "doc", bytes));
    EXPECT_EQ(test::readFile(directory / "doc"), bytes);
    EXPECT_EQ(modeOf(directory / "doc"), 0600U);
    EXPECT_FALSE(std::filesystem::exists(directory / "doc.tmp"));
}

TEST(AtomicFile, ReplacesALongerFileAndALeftoverTemporary) {
    const TempDir directory;
    test::writeFile(directory / "doc", std::string(100'000, 'x'));
    test::writeFile(directory / "doc.tmp", std::string(1000, 'y'));
    ASSERT_EQ(chmod((directory / "doc.tmp").c_str(), 0644), 0);
    EXPECT_TRUE(AtomicFile::write(directory / "doc", "short"));
    EXPECT_EQ(test::readFile(directory / "doc"), "short");
    EXPECT_EQ(modeOf(directory / "doc"), 0600U);
}

TEST(AtomicFile, GivesUpWithoutTouchingTheDocument) {
    const TempDir directory;
    test::writeFile(directory / "doc", "old");
    // The temporary file's place is taken.
    std::filesystem::create_directory(directory / "doc.tmp");
    EXPECT_FALSE(AtomicFile::write(directory / "doc", "new"));
    EXPECT_EQ(test::readFile(directory / "doc"), "old");
}

TEST(AtomicFile, LeavesNoTemporaryBehindWhenTheReplacementFails) {
    const TempDir directory;
    std::filesystem::create_directory(directory / "doc");
    EXPECT_FALSE(AtomicFile::write(directory / "doc", "new"));
    EXPECT_FALSE(std::filesystem::exists(directory / "doc.tmp"));
    EXPECT_FALSE(AtomicFile::write(directory / "missing/doc", "new"));
}

TEST(AtomicFile, ReadsWhatIsThere) {
    const TempDir directory;
    for (const std::size_t size : {0U, 1U, 65'535U, 65'536U, 300'000U}) {
        const std::string bytes(size, 'z');
        test::writeFile(directory / "doc", bytes);
        EXPECT_EQ(AtomicFile::read(directory / "doc"), bytes) << size;
    }
}

TEST(AtomicFile, ReadsFilesWhoseSizeIsNotKnown) {
    const auto content = AtomicFile::read("/proc/self/status");
    ASSERT_TRUE(content);
    EXPECT_TRUE(content->starts_with("Name:"));
}

TEST(AtomicFile, ReadsNothingElse) {
    const TempDir directory;
    EXPECT_EQ(AtomicFile::read(directory / "missing"), std::nullopt);
    EXPECT_EQ(AtomicFile::read(directory.path()), std::nullopt);
    ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(AtomicFile::read(directory / "fifo"), std::nullopt);
}

TEST(AtomicFile, AReaderNeverSeesHalfADocument) {
    const TempDir directory;
    const std::string path = directory / "doc";
    ASSERT_TRUE(AtomicFile::write(path, std::string(50'000, 'a')));
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (char c = 'a'; !stop; c = c == 'z' ? 'a' : static_cast<char>(c + 1))
            AtomicFile::write(path, std::string(50'000, c));
    });
    for (int i = 0; i < 300; ++i) {
        const auto seen = AtomicFile::read(path).value_or("");
        ASSERT_EQ(seen.size(), 50'000U);
        ASSERT_EQ(seen.find_first_not_of(seen.front()), std::string::npos);
    }
    stop = true;
    writer.join();
}

}  // namespace
}  // namespace sonra
