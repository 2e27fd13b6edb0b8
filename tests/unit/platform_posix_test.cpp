// What the POSIX layer settles in its own way: error codes, wildcard matching
// and order, environment names, UTF-8 in and out, the system's texts in two
// languages, the insert rules of message templates, the time text and the
// letter test of drive names. Each test of files works in a folder of its own.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "messages.h"
#include "platform/message_format.h"
#include "platform/posix.h"
#include "platform/system.h"
#include "unit/test_text.h"

namespace {

// 2022-06-15 10:20:30.1234567 UTC, with digits below the second.
constexpr uint64_t SOME_TIME = 132997620301234567ull;

std::u16string to_wide(const std::string &text) {
    std::u16string out(text.size() + 1, 0);
    size_t produced = 0;
    decode_bytes(65001, text.data(), text.size(), &out[0], out.size(), &produced);
    out.resize(produced);
    return out;
}

std::string take_text(char16_t *text) {
    std::string out = text ? to_utf8(text) : "(null)";
    free(text);
    return out;
}

class PlatformTest : public ::testing::Test {
  protected:
    std::string dir;
    std::u16string wide_dir;
    std::string old_cwd;

    void SetUp() override {
        char pattern[] = "/tmp/tolmek-platform-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        wide_dir = to_wide(dir);
        old_cwd = std::filesystem::current_path().string();
    }
    void TearDown() override {
        std::filesystem::current_path(old_cwd);
        std::error_code ignored;
        std::filesystem::permissions(dir + "/locked", std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(dir, ignored);
    }
    std::u16string path(const char16_t *name) const { return wide_dir + u"/" + name; }
    void make_file(const char16_t *name, const char *content = "") const {
        std::string os = to_utf8(path(name));
        int fd = open(os.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        ASSERT_GE(fd, 0) << os;
        ASSERT_EQ(write(fd, content, strlen(content)), static_cast<ssize_t>(strlen(content)));
        close(fd);
    }
    std::string read_back(const char16_t *name) const {
        std::string os = to_utf8(path(name)), bytes;
        int fd = open(os.c_str(), O_RDONLY);
        char chunk[256];
        for (ssize_t n; fd >= 0 && (n = read(fd, chunk, sizeof chunk)) > 0;)
            bytes.append(chunk, static_cast<size_t>(n));
        if (fd >= 0) close(fd);
        return bytes;
    }
};

// Saves an environment variable and puts it back at the end of the scope.
struct saved_env {
    std::string name, value;
    bool was_set;
    explicit saved_env(const char *n) : name(n), was_set(getenv(n) != nullptr) {
        if (was_set) value = getenv(n);
    }
    ~saved_env() {
        if (was_set)
            setenv(name.c_str(), value.c_str(), 1);
        else
            unsetenv(name.c_str());
    }
};

TEST_F(PlatformTest, WildcardsMatchAsOnTheCommandPromptInFoldedOrder) {
    for (const char16_t *name : {u"b.c", u"a.C", u"A.c", u"noext", u".hidden", u"x.obj", u"ab.c"})
        make_file(name);
    auto list = [&](const char16_t *pattern) {
        std::string names;
        const char16_t *name = nullptr;
        find_state *search = find_first((wide_dir + u"\\" + pattern).c_str(), &name);
        for (bool more = search != nullptr; more; more = find_next(search, &name))
            names += to_utf8(name) + " ";
        find_close(search);
        return names;
    };
    EXPECT_EQ(list(u"*.c"), "A.c a.C ab.c b.c ");
    EXPECT_EQ(list(u"?.c"), "A.c a.C b.c ");
    EXPECT_EQ(list(u"*.*"), ". .. .hidden A.c a.C ab.c b.c noext x.obj ");
    EXPECT_EQ(list(u"noext.*"), "noext ");
    EXPECT_EQ(list(u"*ext"), "noext ");
    EXPECT_EQ(list(u"X.OBJ"), "x.obj ");
    EXPECT_EQ(list(u"*.zz"), "");
    const char16_t *name = nullptr;
    EXPECT_EQ(find_first(path(u"missing/*.c").c_str(), &name), nullptr);

    // No directory part: the current directory.
    ASSERT_EQ(change_dir(wide_dir.c_str()), 0u);
    find_state *search = find_first(u"b*", &name);
    ASSERT_NE(search, nullptr);
    EXPECT_EQ(to_utf8(name), "b.c");
    EXPECT_FALSE(find_next(search, &name));
    find_close(search);
}

TEST_F(PlatformTest, WildcardTimeAndExistenceComeFromTheFirstMatch) {
    make_file(u"B.c");
    make_file(u"a.c");
    ASSERT_EQ(set_file_time(path(u"a.c").c_str(), SOME_TIME), 0u);
    ASSERT_EQ(set_file_time(path(u"B.c").c_str(), SOME_TIME + 5), 0u);
    EXPECT_EQ(file_time(path(u"*.c").c_str()), SOME_TIME);
    EXPECT_EQ(file_time(path(u"*.zz").c_str()), 0u);
    EXPECT_TRUE(file_exists(path(u"?.C").c_str()));
    EXPECT_FALSE(file_exists(path(u"*.zz").c_str()));
    EXPECT_FALSE(file_exists(path(u"missing/*").c_str()));
}

TEST_F(PlatformTest, ALinkHasItsTargetsTimeOrItsOwnWhenItLeadsNowhere) {
    make_file(u"real.c");
    ASSERT_EQ(set_file_time(path(u"real.c").c_str(), SOME_TIME), 0u);
    ASSERT_EQ(symlink("real.c", to_utf8(path(u"good.c")).c_str()), 0);
    ASSERT_EQ(symlink("gone.c", to_utf8(path(u"dangling.c")).c_str()), 0);
    EXPECT_EQ(file_time(path(u"good.c").c_str()), SOME_TIME);
    EXPECT_NE(file_time(path(u"dangling.c").c_str()), 0u);
    EXPECT_NE(file_time(path(u"dangling.c").c_str()), SOME_TIME);
    EXPECT_TRUE(file_exists(path(u"dangling.c").c_str()));
    EXPECT_FALSE(file_exists(path(u"gone.c").c_str()));
}

TEST_F(PlatformTest, TemporaryFilesAreNewEmptyAndUniquelyNamed) {
    saved_env tmp("TMP"), temp("TEMP"), tmpdir("TMPDIR");
    setenv("TMP", dir.c_str(), 1);
    const std::regex shape(dir + "/QX[0-9A-F]{1,4}\\.TMP");
    std::set<std::string> names;
    for (int i = 0; i < 40; ++i) {
        char16_t *name = nullptr;
        os_handle handle = INVALID_FILE;
        ASSERT_EQ(create_temp_file(&name, i % 2 ? &handle : nullptr, false), 0u);
        std::string os = to_utf8(name);
        EXPECT_TRUE(std::regex_match(os, shape)) << os;
        EXPECT_TRUE(std::regex_match(os, std::regex(".*/QX(0|[1-9A-F][0-9A-F]{0,3})\\.TMP"))) << os;
        EXPECT_TRUE(names.insert(os).second) << "name given twice: " << os;
        struct stat info;
        ASSERT_EQ(stat(os.c_str(), &info), 0);
        EXPECT_EQ(info.st_size, 0);
        if (i % 2) {
            EXPECT_EQ(write_file(handle, "xy", 2), 0u);
            EXPECT_EQ(close_file(handle), 0u);
            ASSERT_EQ(stat(os.c_str(), &info), 0);
            EXPECT_EQ(info.st_size, 2);
        }
        free(name);
    }

    // TMP empty counts as unset: TEMP is next, and a missing folder is a failure.
    setenv("TMP", "", 1);
    setenv("TEMP", (dir + "/missing").c_str(), 1);
    char16_t *name = reinterpret_cast<char16_t *>(1);
    os_handle handle = 7;
    EXPECT_EQ(create_temp_file(&name, &handle, false), ERR_FILE_NOT_FOUND);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(handle, INVALID_FILE);
}

TEST_F(PlatformTest, FilesOpenReadSeekAndReportWindowsCodes) {
    os_handle handle = 0;
    ASSERT_EQ(create_file(path(u"data").c_str(), &handle), 0u);
    EXPECT_EQ(write_file(handle, "abcdef", 6), 0u);
    EXPECT_EQ(close_file(handle), 0u);
    ASSERT_EQ(create_file(path(u"data").c_str(), &handle), 0u); // empties it
    EXPECT_EQ(write_file(handle, "xyz", 3), 0u);
    close_file(handle);

    ASSERT_EQ(open_input(path(u"data").c_str(), &handle), 0u);
    char buffer[8];
    size_t got = 0;
    uint64_t position = 99;
    EXPECT_EQ(seek_file(handle, 1), 0u);
    EXPECT_EQ(file_position(handle, &position), 0u);
    EXPECT_EQ(position, 1u);
    EXPECT_EQ(read_file(handle, buffer, sizeof buffer, &got), 0u);
    EXPECT_EQ(std::string(buffer, got), "yz");
    EXPECT_EQ(read_file(handle, buffer, sizeof buffer, &got), 0u);
    EXPECT_EQ(got, 0u); // end of file
    EXPECT_NE(write_file(handle, "q", 1), 0u);
    close_file(handle);

    EXPECT_EQ(open_input(path(u"missing").c_str(), &handle), ERR_FILE_NOT_FOUND);
    EXPECT_EQ(handle, INVALID_FILE);
    EXPECT_EQ(open_input(path(u"missing/x").c_str(), &handle), ERR_FILE_NOT_FOUND);
    EXPECT_EQ(open_input(path(u"data/x").c_str(), &handle), ERR_PATH_NOT_FOUND);
    EXPECT_EQ(open_input(wide_dir.c_str(), &handle), ERR_ACCESS_DENIED);
    EXPECT_EQ(create_file(wide_dir.c_str(), &handle), ERR_ACCESS_DENIED);
    EXPECT_EQ(delete_file(path(u"data").c_str()), 0u);
    EXPECT_EQ(delete_file(path(u"data").c_str()), ERR_FILE_NOT_FOUND);
    EXPECT_EQ(close_file(12345), ERR_INVALID_HANDLE);
}

TEST(EnvironmentTest, NamesIgnoreCaseAndEmptyValuesReadAsUnset) {
    saved_env a("TolmekTestVar"), b("TOLMEKTESTVAR"), c("tolmektestvar");
    unsetenv("TOLMEKTESTVAR");
    unsetenv("tolmektestvar");
    EXPECT_EQ(set_env(u"TolmekTestVar", u"v1 \u00C5\U0001D11E"), 0u);
    EXPECT_EQ(take_text(get_env(u"TOLMEKTESTVAR")), "v1 \u00C5\U0001D11E");
    EXPECT_EQ(set_env(u"TOLMEKTESTVAR", u"v2"), 0u); // replaces the other spelling
    EXPECT_EQ(getenv("TolmekTestVar"), nullptr);
    EXPECT_STREQ(getenv("TOLMEKTESTVAR"), "v2");
    EXPECT_EQ(take_text(get_env(u"tolmekTestVar")), "v2");
    EXPECT_EQ(set_env(u"TolmekTestVar", u""), 0u);
    EXPECT_STREQ(getenv("TolmekTestVar"), ""); // set, but empty
    EXPECT_EQ(get_env(u"TOLMEKTESTVAR"), nullptr);
    EXPECT_EQ(set_env(u"TolmekTestVar", nullptr), 0u);
    EXPECT_EQ(getenv("TolmekTestVar"), nullptr);

    std::u16string long_value(5000, u'v');
    EXPECT_EQ(set_env(u"TolmekTestVar", long_value.c_str()), 0u);
    EXPECT_EQ(take_text(get_env(u"TolmekTestVar")), to_utf8(long_value));
    EXPECT_NE(set_env(u"A=B", u"x"), 0u);
    EXPECT_NE(set_env(u"", u"x"), 0u);
    EXPECT_EQ(get_env(u""), nullptr);
}

TEST(OutputTest, WriteTextGoesOutAsUtf8WithReplacedLoneSurrogates) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const char16_t text[] = {u'a',   0x7F,   0x80, 0x7FF,  0x800, 0xD834,
                             0xDD1E, 0xD800, u'b', 0xDC00, 0};
    EXPECT_EQ(write_text(fds[1], text, 0), 0u);
    EXPECT_EQ(write_text(fds[1], u"", 0), 0u);
    EXPECT_EQ(out_printf(fds[1], u"<%ls>", u"\u00C5"), 0u);
    close(fds[1]);
    char buffer[64];
    ssize_t n = read(fds[0], buffer, sizeof buffer);
    close(fds[0]);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(n > 0 ? n : 0)),
              "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xF0\x9D\x84\x9E\xEF\xBF\xBD"
              "b\xEF\xBF\xBD<\xC3\x85>");
    EXPECT_EQ(write_text(fds[1], u"x", 0), ERR_INVALID_HANDLE);
}

TEST(CodecTest, DecodingReplacesEachMalformedByte) {
    struct row {
        std::string bytes;
        std::u16string text;
    };
    const row rows[] = {
        {"abc", u"abc"},
        {"\xC3\xA5\xE2\x82\xAC", u"\u00E5\u20AC"},
        {"\xF0\x9D\x84\x9E", u"\U0001D11E"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
        {"\xC0\x80", u"\uFFFD\uFFFD"},                     // overlong
        {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},           // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},           // an encoded surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"}, // beyond U+10FFFF
        {"\x80x", u"\uFFFDx"},
        {"\xE2\x82", u"\uFFFD\uFFFD"}, // cut off by the end
        {"\xE2\x82"
         "A",
         u"\uFFFD\uFFFDA"},
        {"\xFF\xFE", u"\uFFFD\uFFFD"},
        {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
        {"", u""},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.bytes);
        for (uint32_t code_page : {0u, 1u, 65001u}) {
            char16_t out[16];
            size_t produced = 99;
            ASSERT_EQ(decode_bytes(code_page, r.bytes.data(), r.bytes.size(), out, 16, &produced),
                      0u);
            EXPECT_EQ(std::u16string(out, produced), r.text);
            EXPECT_EQ(out[produced], 0);
        }
    }
}

TEST(MessageTest, FormatMessageLooksUpEitherTableInTheUserLanguage) {
    saved_env all("LC_ALL");
    setenv("LC_ALL", "en_GB.UTF-8", 1);
    const fmt_arg program(u"TOLMEK");
    EXPECT_EQ(take_text(format_message(MSG_PROGRAM, &program, 1, true)), "TOLMEK: ");
    EXPECT_EQ(take_text(format_message(14, nullptr, 0, true)),
              "Not enough memory resources are available to process this command.\r\n");
    // A system text with an insert of its own prints it as written.
    EXPECT_EQ(take_text(format_message(193, nullptr, 0, true)),
              "%1 is not a valid application.\r\n");
    EXPECT_EQ(format_message(MSG_LAST + 1, nullptr, 0, true), nullptr);
    setenv("LC_ALL", "sv_SE.UTF-8", 1);
    EXPECT_EQ(take_text(format_message(MSG_FATAL_WORD, nullptr, 0, true)), "fatalt fel: ");
    EXPECT_EQ(take_text(format_message(2, nullptr, 0, true)),
              "Det g\u00E5r inte att hitta filen.\r\n");
}

TEST(TimeTest, ClockCalendarAndCompare) {
    EXPECT_GT(system_time(), 132000000000000000ull); // later than 2019
    EXPECT_LT(compare_time(1, 2), 0);
    EXPECT_EQ(compare_time(5, 5), 0);
    EXPECT_GT(compare_time(0xFFFFFFFFFFFFFFFFull, 1), 0); // unsigned
    saved_env tz("TZ");
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(take_text(format_date_time(SOME_TIME)), "2022-06-15, 10:20:30");
}

struct format_row {
    const char16_t *format;
    std::vector<fmt_arg> args;
    const char16_t *expected;
};

TEST(FormatTest, InsertsFollowTheMessageTemplateRules) {
    const format_row rows[] = {
        {u"%1 and %2", {u"a", u"b"}, u"a and b"},
        {u"%2%1", {u"a", u"b"}, u"ba"},
        {u"(%2!u!)", {u"f", 42u}, u"(42)"},
        {u"%1!lu!", {4000000000u}, u"4000000000"},
        {u"'/%1!c!'", {char16_t(u'\u00E5')}, u"'/\u00E5'"},
        {u"%1!04X!|%1!s!", {255u}, u"00FF|"}, // wrong kind for !s!: nothing
        {u"%1!s!", {u"t"}, u"t"},
        {u"%1!-4s!|", {u"ab"}, u"ab  |"},
        {u"%1!*s!|", {3, u"a"}, u"  a|"}, // * takes the next insert
        {u"%10", {u"a"}, u"%10"},         // two digits: insert 10
        {u"%1", {}, u"%1"},               // inserts not passed are not read
        {u"%1!u! is %2", {}, u"%1!u! is %2"},
        {u"%3", {u"a", u"b"}, u"%3"},
        {u"%1!u", {u"t"}, u"t!u"}, // no closing mark: no format
        {u"a%0b\r\n", {}, u"a"},
        {u"line\r\n%0", {}, u"line\r\n"},
        {u"50%% %. %! % x", {}, u"50% . !  x"},
        {u"x%ny%rz%t", {}, u"x\r\ny\rz\t"},
        {u"%q%", {}, u"%q%"},
        {u"%1|", {static_cast<const char16_t *>(nullptr)}, u"|"},
    };
    for (const format_row &r : rows) {
        SCOPED_TRACE(to_utf8(r.format));
        char16_t *text = apply_inserts(r.format, r.args.data(), r.args.size());
        EXPECT_EQ(to_utf8(text), to_utf8(r.expected));
        free(text);
    }
}

TEST(TextTest, DriveLetterTestTakesLettersBeyondAscii) {
    struct row {
        char16_t c;
        bool letter;
    };
    const row rows[] = {
        {u'A', true},  {u'z', true},  {u'0', false},   {u':', false},   {u'@', false},
        {u'[', false}, {0xAA, true},  {0xB5, true},    {0xBA, true},    {0xBF, false},
        {0xC0, true},  {0xD7, false}, {0xF7, false},   {0xFF, true},    {0xA0, false},
        {0x100, true}, {0x3B1, true}, {0xD800, false}, {0xDFFF, false}, {0xE000, true},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(static_cast<unsigned>(r.c));
        EXPECT_EQ(is_char_alpha(r.c), r.letter);
    }
}

} // namespace
