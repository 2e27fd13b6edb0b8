// Child processes and command dispatch: the argument split of the direct road,
// starting and waiting for programs and the command processor, and the road
// that spawn_command picks for a text. The command processor is replaced by a
// small script that records what it was given, so the road can be read back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "exec/exec.h"
#include "platform/process.h"
#include "run/make.h"
#include "run/report.h"
#include "unit/scratch_dir.h"
#include "unit/test_text.h"

namespace fs = std::filesystem;

namespace {

// Shows the words as "[a][b c]".
std::string split(const char16_t *line) {
    size_t count = 99;
    char16_t **words = split_program_arguments(line, &count);
    std::string shown;
    for (size_t i = 0; i < count; ++i) {
        shown += "[" + to_utf8(words[i]) + "]";
        free(words[i]);
    }
    EXPECT_EQ(words[count], nullptr) << to_utf8(line);
    free(words);
    return shown;
}

TEST(SplitProgramArguments, StartUpRules) {
    struct row {
        const char16_t *line;
        const char *words;
    } rows[] = {
        {u"", ""},
        {u" \t ", ""},
        {u"prog a b", "[prog][a][b]"},
        {u"  prog\ta\t\tb ", "[prog][a][b]"},
        // The program word: quotes only at its start, backslashes always literal.
        {u"\"C:\\Program Files\\x.exe\" a", "[C:\\Program Files\\x.exe][a]"},
        {u"\"prog\"x y", "[prog][x][y]"},
        {u"pro\"g x\" y", "[pro\"g][x y]"},
        {u"\"prog", "[prog]"},
        {u"\"\" a", "[][a]"},
        {u"p\\\"q a", "[p\\\"q][a]"},
        // Quotes group and are taken off.
        {u"p \"a b\" c", "[p][a b][c]"},
        {u"p a\"b c\"d e", "[p][ab cd][e]"},
        {u"p \"a\tb\"", "[p][a\tb]"},
        {u"p \"unterminated x", "[p][unterminated x]"},
        {u"p a\"", "[p][a]"},
        {u"p \"\" x", "[p][][x]"},
        {u"p a \"\"", "[p][a][]"},
        // Backslashes count only in front of a quote.
        {u"p a\\b\\\\c\\", "[p][a\\b\\\\c\\]"},
        {u"p a\\\"b", "[p][a\"b]"},
        {u"p a\\\\\"b c\"", "[p][a\\b c]"},
        {u"p a\\\\\\\"b c", "[p][a\\\"b][c]"},
        {u"p a\\\\\\\\\"b c\"", "[p][a\\\\b c]"},
        {u"p \\\"", "[p][\"]"},
        {u"p \"a\\\" b\"", "[p][a\" b]"},
        // Two quotes inside quotes: one literal quote, and the stretch ends.
        {u"p \"a\"\"b c\" d", "[p][a\"b][c d]"},
        {u"p \"a\"\"b\" c", "[p][a\"b c]"},
        {u"p \"\"\"\"", "[p][\"]"},
        // Outside quotes a pair opens and closes an empty stretch.
        {u"p a\"\"b c", "[p][ab][c]"},
    };
    for (const row &r : rows)
        EXPECT_EQ(split(r.line), r.words) << "line: " << to_utf8(r.line);
}

TEST(SplitProgramArguments, ManyWordsGrowTheVector) {
    std::u16string line = u"p";
    std::string expected = "[p]";
    for (int i = 0; i < 40; ++i) {
        line += u" w" + std::u16string(1, static_cast<char16_t>(u'A' + i % 26));
        expected += std::string("[w") + static_cast<char>('A' + i % 26) + "]";
    }
    EXPECT_EQ(split(line.c_str()), expected);
}

struct ran {
    uint32_t result;
    uint32_t exit_code;
    bool operator==(const ran &other) const {
        return result == other.result && exit_code == other.exit_code;
    }
};
std::ostream &operator<<(std::ostream &out, const ran &r) {
    return out << "{result " << r.result << ", exit " << r.exit_code << "}";
}

ran program(const std::u16string &line) {
    ran r{0, 0xDEAD};
    r.result = run_program(line.c_str(), &r.exit_code);
    return r;
}

TEST(RunProgram, ExitCodesAndSignals) {
    struct row {
        const char16_t *line;
        ran expected;
    } rows[] = {
        {u"true", {0, 0}},
        {u"false", {0, 1}},
        {u"sh -c \"exit 7\"", {0, 7}},
        {u"sh -c \"exit 255\"", {0, 255}},
        {u"sh -c \"kill -TERM $$\"", {0, 128 + 15}},
        {u"no-such-program-of-tolmek", {2, 0}},
        {u"/no/such/dir/prog", {2, 0}},
        // A separator of either kind makes the word a path.
        {u"\\bin\\sh -c \"exit 3\"", {0, 3}},
        // Quotes and backslashes reach the child as the start-up rules say.
        {u"sh -c \"test \\\"$1\\\" = \\\"a b\\\"\" x \"a b\"", {0, 0}},
        {u"sh -c \"test \\\"$1\\\" = 'q\\\"'\" x q\\\"", {0, 0}},
        {u"sh -c \"test $# = 2\" x \"\" \"\"", {0, 0}},
    };
    for (const row &r : rows)
        EXPECT_EQ(program(r.line), r.expected) << to_utf8(r.line);
}

TEST(RunProgram, FilesThatAreNoProgramsAreNotHandedToAShell) {
    scratch_dir s;
    s.write("plain", "exit 3\n");
    s.write("script", "exit 3\n", true);
    EXPECT_EQ(program(s.path("plain")), (ran{5, 0}));
    EXPECT_EQ(program(s.path("script")), (ran{193, 0}));
    s.write("real", "#!/bin/sh\nexit 3\n", true);
    EXPECT_EQ(program(s.path("real")), (ran{0, 3}));
}

ran shell(const char16_t *name, const char16_t *text) {
    ran r{0, 0xDEAD};
    r.result = run_shell(name, text, &r.exit_code);
    return r;
}

TEST(RunShell, TheTextGoesWholeToTheProcessor) {
    EXPECT_EQ(shell(nullptr, u"echo x | grep -q x"), (ran{0, 0}));
    EXPECT_EQ(shell(nullptr, u"echo x | grep -q y"), (ran{0, 1}));
    EXPECT_EQ(shell(nullptr, u"exit 9"), (ran{0, 9}));
    EXPECT_EQ(shell(u"sh", u"exit 4"), (ran{0, 4})); // no separator: looked for on PATH
    EXPECT_EQ(shell(u"/no/such/shell", u"exit 4"), (ran{2, 0}));
}

// spawn_command with the command processor replaced by a recorder, which logs
// "count|first|second" for each call and, for a response file, its name and
// its content.
class Dispatch : public testing::Test {
  protected:
    scratch_dir s;
    char16_t *saved_comspec = nullptr;
    char16_t *saved_dir = nullptr;

    void SetUp() override {
        opt_env = 1; // as at the start of a process
        saved_comspec = get_env(u"COMSPEC");
        saved_dir = current_dir();
        std::string log = (s.dir / "log.txt").string();
        s.write("rec.sh",
                "#!/bin/sh\n"
                "printf '%s|%s|%s\\n' \"$#\" \"$1\" \"$2\" >> '" +
                    log +
                    "'\n"
                    "case \"$2\" in *' @'*)\n"
                    "  f=${2#* @}\n"
                    "  printf '%s\\n' \"$f\" > '" +
                    (s.dir / "name.txt").string() +
                    "'\n"
                    "  cat \"$f\" >> '" +
                    log +
                    "';;\n"
                    "esac\n",
                true);
        ASSERT_EQ(set_env(u"COMSPEC", s.path("rec.sh").c_str()), 0u);
    }

    void TearDown() override {
        set_env(u"COMSPEC", saved_comspec);
        free(saved_comspec);
        change_dir(saved_dir);
        free(saved_dir);
        make_free();
    }

    ran spawn(const std::u16string &text, bool plus = false,
              const char16_t *make_value = u"tolmek-test") {
        ran r{0, 0xDEAD};
        r.result = spawn_command(text.c_str(), &r.exit_code, plus, make_value);
        return r;
    }

    std::string log() { return s.read("log.txt"); }
};

TEST_F(Dispatch, RoadChoice) {
    struct row {
        const char16_t *text;
        bool plus;
        const char *log; // what the processor received; empty: the direct road
    } rows[] = {
        {u"true x", false, ""},
        {u"true dir", false, ""},
        {u"true x", true, "2|-c|true x\n"},
        {u"true a|b", false, "2|-c|true a|b\n"},
        {u"true a<b", false, "2|-c|true a<b\n"},
        {u"true \"a>b\"", false, "2|-c|true \"a>b\"\n"},
        {u"MkDir newdir", false, "2|-c|MkDir newdir\n"},
        {u"TYPE here.txt", false, "2|-c|TYPE here.txt\n"},
        {u"\"echo\" quoted first word", false, "2|-c|\"echo\" quoted first word\n"},
        {u"vol", false, "2|-c|vol\n"},
        {u"cd", false, "2|-c|cd\n"},
        {u"cd a b", false, "2|-c|cd a b\n"},
        {u"set", false, "2|-c|set\n"},
        {u"set A=1 B=2", false, "2|-c|set A=1 B=2\n"},
        {u"ENDLOCAL", false, "2|-c|ENDLOCAL\n"},
        {u"verify", false, "2|-c|verify\n"},
        // Texts without words do nothing.
        {u"", false, ""},
        {u"\"\" \"\"", false, ""},
    };
    for (const row &r : rows) {
        fs::remove(s.dir / "log.txt");
        EXPECT_EQ(spawn(r.text, r.plus), (ran{0, 0})) << to_utf8(r.text);
        EXPECT_EQ(log(), r.log) << to_utf8(r.text);
    }
    EXPECT_FALSE(fs::exists(s.dir / "newdir"));
    char16_t *here = current_dir();
    EXPECT_EQ(str_cmp(here, saved_dir), 0);
    free(here);
}

TEST_F(Dispatch, ExitCodesAndFailuresComeBackApart) {
    EXPECT_EQ(spawn(u"false"), (ran{0, 1}));
    EXPECT_EQ(spawn(u"no-such-program-of-tolmek a"), (ran{2, 0}));
    ASSERT_EQ(set_env(u"COMSPEC", u"/no/such/shell"), 0u);
    EXPECT_EQ(spawn(u"true a|b"), (ran{2, 0}));
    ASSERT_EQ(set_env(u"COMSPEC", nullptr), 0u);
    EXPECT_EQ(spawn(u"exit 6|exit 5"), (ran{0, 5})); // unset: the platform's own processor
    EXPECT_EQ(spawn(u"echoes x"), (ran{2, 0}));      // no processor word, no program
    // Without a value of MAKE there is no nested run.
    EXPECT_EQ(spawn(u"tolmek-test /S", false, nullptr), (ran{2, 0}));
    EXPECT_EQ(spawn(u"tolmek-test /S", false, u""), (ran{2, 0}));
    // The in-process forms fail with the system's codes.
    EXPECT_EQ(spawn(u"cd " + s.path("missing")), (ran{2, 0}));
    EXPECT_EQ(spawn(u"set TOLMEK_DISPATCH_NONE"), (ran{203, 0}));
    EXPECT_EQ(spawn(u"set =x"), (ran{87, 0}));
}

TEST_F(Dispatch, LongShellTextsGoThroughAResponseFile) {
    // "echo " and " > out.txt" around a run of y: exactly 4000 units, then 4001.
    const std::u16string at_limit = u"echo " + std::u16string(3985, u'y') + u" > out.txt";
    const std::u16string over = u"echo " + std::u16string(3986, u'y') + u" > out.txt";
    ASSERT_EQ(at_limit.size(), 4000u);
    ASSERT_EQ(over.size(), 4001u);

    EXPECT_EQ(spawn(at_limit), (ran{0, 0}));
    EXPECT_EQ(log(), "2|-c|" + to_utf8(at_limit) + "\n");
    EXPECT_FALSE(fs::exists(s.dir / "name.txt"));

    fs::remove(s.dir / "log.txt");
    EXPECT_EQ(spawn(over), (ran{0, 0}));
    std::string name = s.read("name.txt");
    ASSERT_FALSE(name.empty());
    name.pop_back();
    EXPECT_EQ(log(), "2|-c|echo @" + name + "\n" + std::string(3986, 'y') + "\r\n>\r\nout.txt\r\n");
    EXPECT_FALSE(fs::exists(name)); // removed after the run
    EXPECT_FALSE(fs::exists(s.dir / "out.txt"));
}

} // namespace
