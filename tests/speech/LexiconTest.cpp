#include "speech/Lexicon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pwd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <thread>

#include "frame/Json.h"
#include "frame/StateLock.h"
#include "frame/Text.h"
#include "frame/UniqueFd.h"
#include "support/TempDir.h"

namespace sonra {

std::ostream& operator<<(std::ostream& out, const Lexicon::Entry& entry) {
    return out << entry.match << " -> " << entry.say;
}

namespace {

using Entries = Lexicon::Entries;

const Entries nginx{{"nginx", "engine x"}};

std::string spoken(const Entries& entries, std::string_view text) {
    return Lexicon::apply(text, Lexicon::compile(entries));
}

std::string profileOf(const test::TempDir& dir) {
    return dir / "profile.json";
}

struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status;
}

void setTimes(const std::string& path, const struct stat& status) {
    const timespec times[] = {status.st_atim, status.st_mtim};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

Entries numbered(int count) {
    Entries entries;
    for (int i = 0; i < count; ++i) entries.push_back({"word" + std::to_string(i), "x"});
    return entries;
}

struct Replacement {
    const char* name;
    Entries entries;
    std::string input;
    std::string output;
};

std::ostream& operator<<(std::ostream& out, const Replacement& row) {
    return out << row.name;
}

class LexiconReplaces : public testing::TestWithParam<Replacement> {};

TEST_P(LexiconReplaces, As) {
    const auto& row = GetParam();
    EXPECT_EQ(spoken(row.entries, row.input), row.output);
}

INSTANTIATE_TEST_SUITE_P(
    Words, LexiconReplaces,
    testing::Values(
        Replacement{"whole word", nginx, "restart nginx now", "restart engine x now"},
        Replacement{"part of a word", nginx, "mynginxbox", "mynginxbox"},
        Replacement{"underscore", nginx, "my_nginx and nginx_conf", "my_nginx and nginx_conf"},
        Replacement{"digit", {{"k8s", "kubernetes"}}, "the k8s2 cluster", "the k8s2 cluster"},
        Replacement{"case", nginx, "NGINX and Nginx", "engine x and engine x"},
        Replacement{"longer match",
                    {{"git", "short"}, {"git hub", "long"}},
                    "git hub and git",
                    "long and short"},
        Replacement{"longer match first in the file",
                    {{"git hub", "long"}, {"git", "short"}},
                    "git hub and git",
                    "long and short"},
        Replacement{"same length", {{"ab.", "one"}, {"AB.", "two"}}, "ab. AB.", "one one"},
        Replacement{"output isn't scanned", {{"a", "b"}, {"b", "c"}}, "a", "b"},
        Replacement{"empty say", {{"foo", ""}}, "a foo b", "a  b"},
        Replacement{"metacharacters",
                    {{"c++", "see plus plus"}},
                    "I like c++ a lot",
                    "I like see plus plus a lot"}));

INSTANTIATE_TEST_SUITE_P(
    Corners, LexiconReplaces,
    testing::Values(
        Replacement{"empty text", nginx, "", ""},
        Replacement{"no match", nginx, "apache", "apache"},
        Replacement{"at both ends", nginx, "nginx, nginx", "engine x, engine x"},
        Replacement{"every metacharacter",
                    {{R"(\*?+[](){}^$|./)", "signs"}},
                    R"(x \*?+[](){}^$|./ y)",
                    "x signs y"},
        Replacement{"dot is only a dot", {{"a.b", "x"}}, "a.b axb", "x axb"},
        Replacement{"quote marks of patterns", {{R"(\Qa\E)", "x"}}, R"(\Qa\E a)", "x a"},
        Replacement{"template characters", {{"cash", R"($1 \0 $0)"}}, "cash", R"($1 \0 $0)"},
        Replacement{"say isn't re-cased", {{"API", "a p i"}}, "API Api", "a p i a p i"},
        Replacement{
            "letters beyond ASCII", {{"größe", "size"}}, "die GRÖSSE, GRÖßE", "die GRÖSSE, size"},
        Replacement{"other letters are no boundary", nginx, "énginxé", "éengine xé"},
        Replacement{"same case-blind letter, another lower case",
                    {{"mass", "x"}},
                    "ma\u017Fs mass",
                    "ma\u017Fs x"},
        Replacement{"kelvin sign is a k in lower case", {{"3k", "x"}}, "3\u212A", "x"},
        Replacement{
            "beyond the basic plane", {{"\U0001F680", "rocket"}}, "go \U0001F680!", "go rocket!"},
        Replacement{"words with blanks", {{"pull request", "p r"}}, "a Pull Request", "a p r"},
        Replacement{
            "invalid entries don't count", {{"  ", "x"}, {"", "x"}, {"a", "b"}}, "a  ", "b  "}));

TEST(Lexicon, OfEqualMatchesTheFirstInTheFileWins) {
    EXPECT_EQ(spoken({{"Nginx", "first"}, {"nginx", "second"}, {"NGINX", "third"}}, "nginx"),
              "first");
}

TEST(Lexicon, OfTwoThatFitWithTheSameLengthTheFirstInTheFileWins) {
    // Both fit "mas\u017F" without regard to case, and only their order decides which is tried.
    EXPECT_EQ(spoken({{"mas\u017F", "one"}, {"mass", "two"}}, "mas\u017F"), "one");
    EXPECT_EQ(spoken({{"mas\u017F", "one"}, {"mass", "two"}}, "mass"), "two");
}

TEST(Lexicon, KeepsTheFilesOrderAmongManyOfOneLength) {
    // Few entries would keep their order in any way of sorting.
    const auto filler = [](int first) {
        Entries entries;
        for (int i = first; i < first + 20; ++i) entries.push_back({"w" + std::to_string(i), "x"});
        return entries;
    };
    Entries entries = filler(100);
    entries.insert(entries.end(), {{"mas\u017F", "one"}, {"NGIN", "upper"}});
    std::ranges::copy(filler(200), std::back_inserter(entries));
    entries.insert(entries.end(), {{"mass", "two"}, {"ngin", "lower"}});
    std::ranges::copy(filler(300), std::back_inserter(entries));
    for (const auto& entry : entries) ASSERT_EQ(text::utf16Length(entry.match), 4U);
    EXPECT_EQ(spoken(entries, "mas\u017F"), "one");
    EXPECT_EQ(spoken(entries, "ngin NGIN Ngin"), "upper upper upper");
}

TEST(Lexicon, EmptyListCompilesToAbsentWhichIsTheIdentity) {
    EXPECT_FALSE(Lexicon::compile({}));
    EXPECT_FALSE(Lexicon::compile({{"", "x"}, {" ", "y"}}));
    EXPECT_EQ(Lexicon::apply("as it stands", std::nullopt), "as it stands");
}

TEST(Lexicon, TextThatIsNotUtf8StaysWhereNothingMatches) {
    EXPECT_EQ(spoken(nginx, "half \xC3 of a letter"), "half \xC3 of a letter");
}

TEST(Lexicon, FullLexiconAppliesToLongText) {
    std::string text, expected;
    for (int i = 0; i < 2000; ++i) {
        text += "word" + std::to_string(i % 600) + " ";
        expected += (i % 600 < 500 ? std::string("x") : "word" + std::to_string(i % 600)) + " ";
    }
    EXPECT_EQ(spoken(numbered(600), text), expected);
}

struct Validity {
    const char* name;
    std::string match;
    std::string say;
    std::optional<std::string> reason;
};

std::ostream& operator<<(std::ostream& out, const Validity& row) {
    return out << row.name;
}

class LexiconValidates : public testing::TestWithParam<Validity> {};

TEST_P(LexiconValidates, Entry) {
    EXPECT_EQ(Lexicon::validateEntry(GetParam().match, GetParam().say), GetParam().reason);
}

std::string repeated(std::size_t count, std::string_view unit) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += unit;
    return text;
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, LexiconValidates,
    testing::Values(
        Validity{"match of 64", std::string(64, 'm'), "x", {}},
        Validity{"match of 65", std::string(65, 'm'), "x", "match too long (max 64 characters)"},
        Validity{"match of 64 units in 32 characters", repeated(32, "\U0001F680"), "x", {}},
        Validity{"match of 66 units in 33 characters", repeated(33, "\U0001F680"), "x",
                 "match too long (max 64 characters)"},
        Validity{"match of 64 units in 128 bytes", repeated(64, "é"), "x", {}},
        Validity{"say of 256", "m", std::string(256, 's'), {}},
        Validity{"say of 257", "m", std::string(257, 's'), "say too long (max 256 characters)"},
        Validity{"empty match", "", "x", "match must be 1..64 characters"},
        Validity{"blanks", " \t\n\u00A0\u2003", "x", "match must not be whitespace-only"},
        Validity{"65 blanks", std::string(65, ' '), "x", "match too long (max 64 characters)"},
        Validity{"empty match before long say", "", std::string(257, 's'),
                 "match must be 1..64 characters"},
        Validity{"empty say", "m", "", {}}, Validity{"blanks around", " m ", "x", {}}));

TEST(Lexicon, SixHundredEntriesAreCutToFiveHundred) {
    const auto kept = Lexicon::sanitize(numbered(600));
    ASSERT_EQ(kept.size(), 500u);
    EXPECT_EQ(kept.back().match, "word499");
}

TEST(Lexicon, SanitizeDropsInvalidEntriesAndKeepsTheOrder) {
    EXPECT_EQ(Lexicon::sanitize({{"b", "1"}, {"", "2"}, {"a", ""}, {std::string(65, 'x'), "3"}}),
              (Entries{{"b", "1"}, {"a", ""}}));
}

TEST(LexiconProfile, MissingFileIsEmptyAndTheIdentity) {
    const test::TempDir dir;
    EXPECT_TRUE(Lexicon::load(dir.path()).empty());
    EXPECT_FALSE(Lexicon::loadCompiledCached(dir.path()));
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "nginx");
}

class LexiconLoads : public testing::TestWithParam<std::pair<std::string, Entries>> {};

TEST_P(LexiconLoads, Profile) {
    const test::TempDir dir;
    test::writeFile(profileOf(dir), GetParam().first);
    EXPECT_EQ(Lexicon::load(dir.path()), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, LexiconLoads,
    testing::Values(
        std::pair{"{ this is not json", Entries{}}, std::pair{"", Entries{}},
        std::pair{R"({"version":1,"lexicon":42})", Entries{}},
        std::pair{R"([{"match":"a","say":"b"}])", Entries{}},
        std::pair{R"({"version":1})", Entries{}},
        std::pair{R"({"lexicon":[{"match":"a","say":"b"}]})", Entries{{"a", "b"}}},
        std::pair{R"({"version":"9","lexicon":[{"match":"a","say":"b","x":1}]})",
                  Entries{{"a", "b"}}},
        std::pair{R"({"lexicon":[1,null,{"match":"a"},{"say":"b"},{"match":1,"say":"b"},)"
                  R"({"match":"a","say":null},{"match":"","say":""},{"match":"z","say":""}]})",
                  Entries{{"z", ""}}}));

TEST(LexiconProfile, LoadStopsAtFiveHundredKept) {
    const test::TempDir dir;
    Json list = Json::array({7, Json::object()});
    for (const auto& entry : numbered(600)) list.push_back({{"match", entry.match}, {"say", "x"}});
    test::writeFile(profileOf(dir), json::dump({{"lexicon", list}}));
    EXPECT_EQ(Lexicon::load(dir.path()), numbered(500));
}

TEST(LexiconProfile, SaveReturnsWhatALoadThenGives) {
    const test::TempDir dir;
    const auto saved = Lexicon::save(dir.path(), {{"b", "1"}, {" ", "2"}, {"a", "\"3\""}});
    EXPECT_EQ(saved, (Entries{{"b", "1"}, {"a", "\"3\""}}));
    EXPECT_EQ(Lexicon::load(dir.path()), saved);
}

TEST(LexiconProfile, SaveWritesAVersionedObjectAndALineFeed) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), nginx);
    const std::string content = test::readFile(profileOf(dir));
    EXPECT_EQ(content.back(), '\n');
    EXPECT_EQ(json::parse(content),
              Json({{"version", 1}, {"lexicon", {{{"match", "nginx"}, {"say", "engine x"}}}}}));
}

TEST(LexiconProfile, SaveMakesTheDirectoryAndLeavesNothingElseInIt) {
    const test::TempDir dir;
    Lexicon::save(dir / "a/b", nginx);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir / "a/b"))
        names.push_back(entry.path().filename());
    EXPECT_EQ(names, std::vector<std::string>{"profile.json"});
}

TEST(LexiconProfile, SaveThatFailsStillReturnsTheEntries) {
    const test::TempDir dir;
    test::writeFile(dir / "file", "in the way");
    EXPECT_EQ(Lexicon::save(dir / "file", nginx), nginx);
    EXPECT_EQ(Lexicon::addEntry("a", "b", dir / "file"),
              "couldn't write " + (dir / "file/profile.json"));
    EXPECT_FALSE(Lexicon::removeEntry("a", dir / "file"));
    EXPECT_EQ(test::readFile(dir / "file"), "in the way");
}

TEST(LexiconProfile, SaveThatCannotReplaceTheProfileLeavesNoTemporaryFile) {
    const test::TempDir dir;
    std::filesystem::create_directories(profileOf(dir) + "/occupied");
    EXPECT_EQ(Lexicon::save(dir.path(), nginx), nginx);
    const std::filesystem::directory_iterator entries(dir.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(LexiconProfile, UnchangedEntriesAreNotWrittenAgain) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), nginx);
    const auto before = statusOf(profileOf(dir)).st_ino;
    Lexicon::save(dir.path(), nginx);
    EXPECT_EQ(statusOf(profileOf(dir)).st_ino, before);
    EXPECT_FALSE(Lexicon::addEntry("nginx", "engine x", dir.path()));
    EXPECT_EQ(statusOf(profileOf(dir)).st_ino, before);
}

TEST(LexiconProfile, ApplyToSynthTextSeesASaveAtOnce) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), {{"nginx", "one"}});
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "one");
    const auto before = statusOf(profileOf(dir));
    Lexicon::save(dir.path(), {{"nginx", "two"}});
    // On a coarse clock two saves have the same time, and these have the same length.
    setTimes(profileOf(dir), before);
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "two");
    std::filesystem::remove(profileOf(dir));
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "nginx");
}

TEST(LexiconProfile, ApplyToSynthTextSeesAnotherProgramsSave) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), nginx);
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "engine x");
    test::writeFile(dir / "other", R"({"lexicon":[{"match":"nginx","say":"web server"}]})");
    std::filesystem::rename(dir / "other", profileOf(dir));
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "web server");
}

TEST(LexiconProfile, UnchangedFileIsNotReadAgain) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), nginx);
    ASSERT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "engine x");
    const auto before = statusOf(profileOf(dir));
    // Other words in the same file, with the old size and times: nobody who only looks at those can
    // tell.
    std::string content = test::readFile(profileOf(dir));
    content.replace(content.find("engine x"), 8, "ENGINE Y");
    test::writeFile(profileOf(dir), content);
    setTimes(profileOf(dir), before);
    EXPECT_EQ(Lexicon::applyToSynthText("nginx", dir.path()), "engine x");
}

TEST(LexiconProfile, AddEntryAppends) {
    const test::TempDir dir;
    EXPECT_FALSE(Lexicon::addEntry("a", "1", dir.path()));
    EXPECT_FALSE(Lexicon::addEntry("b", "2", dir.path()));
    EXPECT_EQ(Lexicon::load(dir.path()), (Entries{{"a", "1"}, {"b", "2"}}));
}

TEST(LexiconProfile, AddEntryThatDiffersOnlyInCaseReplacesInPlace) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), {{"größe", "1"}, {"b", "2"}});
    EXPECT_FALSE(Lexicon::addEntry("GRÖßE", "3", dir.path()));
    EXPECT_EQ(Lexicon::load(dir.path()), (Entries{{"GRÖßE", "3"}, {"b", "2"}}));
}

TEST(LexiconProfile, AddEntryRejectsWithTheReason) {
    const test::TempDir dir;
    EXPECT_EQ(Lexicon::addEntry("", "x", dir.path()), "match must be 1..64 characters");
    EXPECT_FALSE(std::filesystem::exists(profileOf(dir)));
}

TEST(LexiconProfile, AddEntryToAFullLexiconOnlyReplaces) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), numbered(500));
    EXPECT_EQ(Lexicon::addEntry("new", "x", dir.path()), "lexicon is full (max 500 entries)");
    EXPECT_FALSE(Lexicon::addEntry("WORD499", "y", dir.path()));
    EXPECT_EQ(Lexicon::load(dir.path()).back(), (Lexicon::Entry{"WORD499", "y"}));
}

TEST(LexiconProfile, RemoveEntryIgnoresCase) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), {{"Nginx", "1"}, {"b", "2"}, {"NGINX", "3"}});
    EXPECT_TRUE(Lexicon::removeEntry("nginx", dir.path()));
    EXPECT_EQ(Lexicon::load(dir.path()), (Entries{{"b", "2"}}));
}

TEST(LexiconProfile, RemoveEntryOfAnAbsentMatchChangesNothing) {
    const test::TempDir dir;
    const std::string content = R"({"lexicon":[{"match":"a","say":"b"},7]})";
    test::writeFile(profileOf(dir), content);
    EXPECT_FALSE(Lexicon::removeEntry("absent", dir.path()));
    EXPECT_EQ(test::readFile(profileOf(dir)), content);
}

TEST(LexiconProfile, DefaultDirectoryIsBelowHome) {
    const test::TempHome home;
    EXPECT_EQ(Lexicon::defaultDirectory(), home.path() + "/.claude/tts");
    Lexicon::addEntry("nginx", "engine x");
    EXPECT_TRUE(std::filesystem::exists(home.shared() + "/profile.json"));
    EXPECT_EQ(Lexicon::applyToSynthText("nginx"), "engine x");
}

TEST(LexiconProfile, DefaultDirectoryWithoutHomeIsBelowTheAccountsHome) {
    const test::TempHome home;
    ::unsetenv("HOME");
    EXPECT_EQ(Lexicon::defaultDirectory(),
              std::string(::getpwuid(::getuid())->pw_dir) + "/.claude/tts");
}

/// Counts how often a file is opened.
class OpenCounter {
  public:
    explicit OpenCounter(const std::string& path) {
        EXPECT_GE(::inotify_add_watch(events_.get(), path.c_str(), IN_OPEN | IN_CLOSE_NOWRITE), 0);
    }
    /// Since the last call. Two that open at the same instant may count as one.
    int take() const {
        alignas(inotify_event) char buffer[4096];
        const auto got = ::read(events_.get(), buffer, sizeof buffer);
        int opens = 0;
        for (ssize_t at = 0; at < got; at += static_cast<ssize_t>(sizeof(inotify_event)))
            if ((reinterpret_cast<const inotify_event*>(buffer + at)->mask & IN_OPEN) != 0) ++opens;
        return opens;
    }

  private:
    UniqueFd events_{::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
};

TEST(LexiconProfile, ThreadsThatAskAtOnceReadAndCompileOnce) {
    for (int round = 0; round < 20; ++round) {
        const test::TempDir dir;
        Lexicon::save(dir.path(), numbered(500));
        const OpenCounter opened(profileOf(dir));
        std::barrier together(4);
        {
            std::vector<std::jthread> threads;
            threads.reserve(4);
            for (int t = 0; t < 4; ++t)
                threads.emplace_back([&] {
                    together.arrive_and_wait();
                    EXPECT_EQ(Lexicon::applyToSynthText("word7", dir.path()), "x");
                });
        }
        ASSERT_EQ(opened.take(), 1) << round;
    }
}

TEST(LexiconProfile, ThreadsThatAddAtOnceLoseNothing) {
    const test::TempDir dir;
    {
        std::vector<std::jthread> threads;
        threads.reserve(4);
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < 10; ++i) {
                    const auto word = "w" + std::to_string(t) + "x" + std::to_string(i);
                    EXPECT_EQ(Lexicon::addEntry(word, "x", dir.path()), std::nullopt);
                    Lexicon::applyToSynthText(word, dir.path());
                }
            });
        }
    }
    EXPECT_EQ(Lexicon::load(dir.path()).size(), 40u);
}

/// Another process that holds a profile's lock until it is told to go on, and then saves.
class Rival {
  public:
    explicit Rival(const std::string& profile) {
        EXPECT_EQ(::pipe(told_), 0);
        EXPECT_EQ(::pipe(tells_), 0);
        pid_ = ::fork();
        if (pid_ == 0) holdAndSave(profile);
        char held = 'n';
        EXPECT_EQ(::read(tells_[0], &held, 1), 1);
        EXPECT_EQ(held, 'y');
    }
    ~Rival() {
        for (const int fd : {told_[0], told_[1], tells_[0], tells_[1]}) ::close(fd);
        ::waitpid(pid_, nullptr, 0);
    }
    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;
    void goOn() const { EXPECT_EQ(::write(told_[1], "g", 1), 1); }

  private:
    [[noreturn]] void holdAndSave(const std::string& profile) const {
        ::close(told_[1]);
        const bool held = StateLock::tryAcquire(profile);
        char word = 0;
        if (::write(tells_[1], held ? "y" : "n", 1) == 1 && ::read(told_[0], &word, 1) == 1)
            test::writeFile(profile, R"({"lexicon":[{"match":"theirs","say":"2"}]})");
        StateLock::release(profile);
        ::_exit(0);
    }

    int told_[2]{};
    int tells_[2]{};
    pid_t pid_ = 0;
};

TEST(LexiconProfile, LockOfAnotherProcessIsWaitedFor) {
    const test::TempDir dir;
    const Rival rival(profileOf(dir));
    const UniqueFd looks(::inotify_init1(IN_CLOEXEC));
    ASSERT_GE(
        ::inotify_add_watch(looks.get(), StateLock::lockPath(profileOf(dir)).c_str(), IN_OPEN), 0);
    std::jthread other([&] { EXPECT_FALSE(Lexicon::addEntry("mine", "1", dir.path())); });
    // Who finds the lock taken looks whose it is.
    pollfd looked{looks.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&looked, 1, 20'000), 1);
    EXPECT_TRUE(Lexicon::load(dir.path()).empty());
    rival.goOn();
    other.join();
    EXPECT_EQ(Lexicon::load(dir.path()), (Entries{{"theirs", "2"}, {"mine", "1"}}));
}

TEST(LexiconProfile, LockThatIsNeverReleasedLeavesTheProfileAlone) {
    const test::TempDir dir;
    Lexicon::save(dir.path(), nginx);
    ASSERT_TRUE(StateLock::tryAcquire(profileOf(dir)));
    {
        std::jthread adding([&] {
            EXPECT_EQ(Lexicon::addEntry("a", "b", dir.path()),
                      "state-lock: lock timeout (" + profileOf(dir) + ".lock)");
        });
        std::jthread removing([&] { EXPECT_FALSE(Lexicon::removeEntry("nginx", dir.path())); });
        EXPECT_EQ(Lexicon::save(dir.path(), {{"a", "b"}}), (Entries{{"a", "b"}}));
    }
    StateLock::release(profileOf(dir));
    EXPECT_EQ(Lexicon::load(dir.path()), nginx);
}

}  // namespace
}  // namespace sonra
