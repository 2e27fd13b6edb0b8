// Child processes and command dispatch: the argument split of the direct road,
// starting and waiting for programs and the command processor, and the road
// that spawn_command picks for a text. The command processor is replaced by a
// small script that records what it was given, so the road can be read back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "exec/exec.h"
#include "macro/macro.h"
#include "platform/process.h"
#include "run/make.h"
#include "run/report.h"
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

// A private folder for files that the children read and write.
struct scratch {
    fs::path dir;
    scratch() {
        std::random_device random;
        do {
            dir = fs::temp_directory_path() / ("tolmek_process_" + std::to_string(random()));
        } while (!fs::create_directory(dir));
    }
    ~scratch() { fs::remove_all(dir); }
    std::u16string path(const char *name) const { return (dir / name).u16string(); }
    std::string read(const char *name) const {
        std::ifstream in(dir / name, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    void write(const char *name, const std::string &text, bool executable = false) const {
        std::ofstream(dir / name, std::ios::binary) << text;
        if (executable)
            fs::permissions(dir / name, fs::perms::owner_all, fs::perm_options::replace);
    }
};

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
    scratch s;
    s.write("plain", "exit 3\n");
    s.write("script", "exit 3\n", true);
    EXPECT_EQ(program(s.path("plain")), (ran{5, 0}));
    EXPECT_EQ(program(s.path("script")), (ran{193, 0}));
    s.write("real", "#!/bin/sh\nexit 3\n", true);
    EXPECT_EQ(program(s.path("real")), (ran{0, 3}));
}

TEST(RunProgram, ChildInheritsDirectoryAndEnvironment) {
    scratch s;
    char16_t *saved = current_dir();
    ASSERT_EQ(change_dir(s.path("").c_str()), 0u);
    ASSERT_EQ(set_env(u"TOLMEK_PROCESS_TEST", u"inherited"), 0u);
    EXPECT_EQ(program(u"sh -c \"pwd > where.txt; echo $TOLMEK_PROCESS_TEST >> where.txt\""),
              (ran{0, 0}));
    EXPECT_EQ(change_dir(saved), 0u);
    free(saved);
    set_env(u"TOLMEK_PROCESS_TEST", nullptr);
    EXPECT_EQ(s.read("where.txt"), fs::canonical(s.dir).string() + "\ninherited\n");
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

    scratch s;
    s.write("args.sh", "#!/bin/sh\nprintf '%s|' \"$#\" \"$@\" > \"$(dirname \"$0\")/args.txt\"\n",
            true);
    EXPECT_EQ(shell(s.path("args.sh").c_str(), u"a \"b\"  c"), (ran{0, 0}));
    EXPECT_EQ(s.read("args.txt"), "2|-c|a \"b\"  c|");
}

// spawn_command with the command processor replaced by a recorder, which logs
// "count|first|second" for each call and, for a response file, its name and
// its content.
class Dispatch : public testing::Test {
  protected:
    scratch s;
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
        opt_no_exec = 0;
        opt_shell = 0;
        opt_env = 1;
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

TEST_F(Dispatch, EveryProcessorWordInAnyCaseTakesTheShellRoad) {
    const char16_t *words[] = {
        u"assoc",  u"break",    u"call",   u"chdir", u"cls",      u"color",  u"copy", u"date",
        u"del",    u"dir",      u"dpath",  u"echo",  u"ENDLOCAL", u"erase",  u"exit", u"for",
        u"ftype",  u"goto",     u"if",     u"md",    u"mkdir",    u"mklink", u"move", u"path",
        u"pause",  u"popd",     u"prompt", u"pushd", u"rd",       u"rem",    u"ren",  u"rename",
        u"rmdir",  u"SetLocal", u"shift",  u"start", u"time",     u"title",  u"type", u"ver",
        u"verify", u"vol",      u"Echo",   u"Cd",    u"SET",
    };
    std::string expected;
    for (const char16_t *word : words) {
        EXPECT_EQ(spawn(word), (ran{0, 0})) << to_utf8(word);
        expected += "2|-c|" + to_utf8(word) + "\n";
    }
    EXPECT_EQ(log(), expected);
    EXPECT_EQ(spawn(u"echoes x"), (ran{2, 0})); // a longer name is no processor word
}

TEST_F(Dispatch, ExitCodesAndStartFailuresComeBackApart) {
    EXPECT_EQ(spawn(u"false"), (ran{0, 1}));
    EXPECT_EQ(spawn(u"no-such-program-of-tolmek a"), (ran{2, 0}));
    ASSERT_EQ(set_env(u"COMSPEC", u"/no/such/shell"), 0u);
    EXPECT_EQ(spawn(u"true a|b"), (ran{2, 0}));
    ASSERT_EQ(set_env(u"COMSPEC", nullptr), 0u);
    EXPECT_EQ(spawn(u"exit 6|exit 5"), (ran{0, 5})); // unset: the platform's own processor
}

TEST_F(Dispatch, TextsWithoutWordsDoNothing) {
    for (const char16_t *text : {u"", u"   ", u"\t", u"\"\"", u"\"\" \"\""})
        EXPECT_EQ(spawn(text), (ran{0, 0})) << to_utf8(text);
    EXPECT_EQ(log(), "");
}

TEST_F(Dispatch, ProcessorWithSwitchC) {
    opt_shell = 1;
    EXPECT_EQ(spawn(u"true x"), (ran{0, 0}));
    fs::create_directory(s.dir / "sub");
    EXPECT_EQ(spawn(u"cd " + s.path("sub")), (ran{0, 0}));
    EXPECT_EQ(spawn(u"set TOLMEK_DISPATCH_C=1"), (ran{0, 0}));
    EXPECT_EQ(log(), "2|-c|true x\n");
    char16_t *here = current_dir();
    EXPECT_EQ(to_utf8(here), fs::canonical(s.dir / "sub").string());
    free(here);
    set_env(u"TOLMEK_DISPATCH_C", nullptr);
}

TEST_F(Dispatch, NoExecRunsNothingButCdAndSetStillAct) {
    opt_no_exec = 1;
    fs::create_directory(s.dir / "sub");
    EXPECT_EQ(spawn(u"sh -c \"touch " + s.path("direct") + u"\""), (ran{0, 0}));
    EXPECT_EQ(spawn(u"true a|b"), (ran{0, 0}));
    EXPECT_EQ(spawn(u"echo " + std::u16string(5000, u'x')), (ran{0, 0}));
    EXPECT_EQ(spawn(u"cd a b"), (ran{0, 0}));
    EXPECT_EQ(spawn(u"false"), (ran{0, 0}));
    EXPECT_EQ(log(), "");
    EXPECT_FALSE(fs::exists(s.dir / "direct"));

    EXPECT_EQ(spawn(u"chdir " + s.path("sub")), (ran{0, 0}));
    char16_t *here = current_dir();
    EXPECT_EQ(to_utf8(here), fs::canonical(s.dir / "sub").string());
    free(here);
    EXPECT_EQ(spawn(u"set TOLMEK_DISPATCH_N=under-n"), (ran{0, 0}));
    char16_t *value = get_env(u"TOLMEK_DISPATCH_N");
    EXPECT_EQ(to_utf8(value), "under-n");
    free(value);
    set_env(u"TOLMEK_DISPATCH_N", nullptr);
}

TEST_F(Dispatch, CdFailureComesBackAsTheSystemCode) {
    EXPECT_EQ(spawn(u"cd " + s.path("missing")), (ran{2, 0}));
    EXPECT_EQ(spawn(u"cd \"a>b\""), (ran{2, 0})); // two words: a directory name
    EXPECT_EQ(log(), "");
}

TEST_F(Dispatch, SetDefinesAnExportedMacro) {
    opt_env = 0; // /E protects environment macros from definitions, not from set
    ASSERT_EQ(set_env(u"TOLMEK_DISPATCH_OLD", u"before"), 0u);
    EXPECT_EQ(find_macro(u"TOLMEK_DISPATCH_OLD", false) != nullptr, true);
    struct row {
        const char16_t *command;
        const char16_t *name;
        const char *value; // null: the variable reads as unset
    } rows[] = {
        {u"set TOLMEK_DISPATCH_A=$(Y)", u"TOLMEK_DISPATCH_A", "$(Y)"},
        {u"SET \"TOLMEK_DISPATCH_B=two words\"", u"TOLMEK_DISPATCH_B", "two words"},
        {u"set TOLMEK_DISPATCH_C=a=b", u"TOLMEK_DISPATCH_C", "a=b"},
        {u"set TOLMEK_DISPATCH_OLD=after", u"TOLMEK_DISPATCH_OLD", "after"},
        {u"set TOLMEK_DISPATCH_D=", u"TOLMEK_DISPATCH_D", nullptr},
    };
    for (const row &r : rows) {
        EXPECT_EQ(spawn(r.command), (ran{0, 0})) << to_utf8(r.command);
        macro *m = find_macro(r.name, false);
        ASSERT_NE(m, nullptr) << to_utf8(r.command);
        EXPECT_TRUE(m->flags & exported) << to_utf8(r.command);
        EXPECT_EQ(to_utf8(m->value), r.value ? r.value : "") << to_utf8(r.command);
        EXPECT_NE(m->value, nullptr) << to_utf8(r.command);
        char16_t *env = get_env(r.name);
        EXPECT_EQ(env ? to_utf8(env) : "(unset)", r.value ? r.value : "(unset)")
            << to_utf8(r.command);
        free(env);
        set_env(r.name, nullptr);
    }
    EXPECT_EQ(log(), "");
}

TEST_F(Dispatch, SetWithoutEqualsGives203) {
    EXPECT_EQ(spawn(u"set TOLMEK_DISPATCH_NONE"), (ran{203, 0}));
    EXPECT_EQ(find_macro(u"TOLMEK_DISPATCH_NONE", false), nullptr);
    EXPECT_EQ(spawn(u"set =x"), (ran{87, 0})); // the environment refuses the name
    EXPECT_EQ(log(), "");
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

TEST_F(Dispatch, ResponseFileArgumentsStandBareOneALine) {
    // The split takes quotes off, drops empty words and keeps backslashes.
    const std::u16string text = u"Copy \"a b\" c\\d \"\" " + std::u16string(4000, u'z') + u" tail";
    EXPECT_EQ(spawn(text), (ran{0, 0}));
    std::string name = s.read("name.txt");
    ASSERT_FALSE(name.empty());
    name.pop_back();
    EXPECT_EQ(log(), "2|-c|Copy @" + name + "\n" + "a b\r\nc\\d\r\n" + std::string(4000, 'z') +
                         "\r\ntail\r\n");
}

TEST_F(Dispatch, DirectTextsHaveNoLengthLimit) {
    const std::u16string text = u"sh -c \"test ${#1} = 5000\" x " + std::u16string(5000, u'q');
    EXPECT_EQ(spawn(text), (ran{0, 0}));
    EXPECT_EQ(spawn(text + u"q"), (ran{0, 1}));
    EXPECT_EQ(log(), "");
}

// Nested runs: the whole run of make in this process. Flags cross the border,
// and so does the environment, which shows the order of the macro words.
class NestedDispatch : public Dispatch {
  protected:
    char16_t *saved_makeflags = nullptr;

    void SetUp() override {
        Dispatch::SetUp();
        // A MAKEFLAGS of an outer build tool would be read by the nested run.
        saved_makeflags = get_env(u"MAKEFLAGS");
        set_env(u"MAKEFLAGS", nullptr);
        s.write("sub.mak", "X = 1\n");
    }

    void TearDown() override {
        set_env(u"MAKEFLAGS", saved_makeflags);
        free(saved_makeflags);
        opt_ignore = 0;
        opt_silent = 0;
        // A nested run with macro words keeps them for all later nested runs.
        for (void **entry = passed_macros; entry && *entry; ++entry)
            free(*entry);
        free(passed_macros);
        passed_macros = nullptr;
        passed_macro_count = 0;
        Dispatch::TearDown();
    }
};

TEST_F(NestedDispatch, FirstWordEqualToMakeStartsARunHere) {
    // Neither /N, /C, + nor a redirection has a say; the flags it sets stay.
    opt_no_exec = 1;
    opt_shell = 1;
    EXPECT_EQ(spawn(u"TOLMEK-Test /I /F " + s.path("sub.mak") + u" Z=a>b", true), (ran{0, 0}));
    EXPECT_EQ(log(), "");
    EXPECT_EQ(opt_ignore, 1);
}

TEST_F(NestedDispatch, NoMakeValueNoNestedRun) {
    EXPECT_EQ(spawn(u"tolmek-test /S", false, nullptr), (ran{2, 0}));
    EXPECT_EQ(spawn(u"tolmek-test /S", false, u""), (ran{2, 0}));
    EXPECT_EQ(opt_silent, 0);
}

TEST_F(NestedDispatch, PassedMacrosComeLastAndWin) {
    ASSERT_EQ(set_env(u"TOLMEK_NESTED", u"outer"), 0u);
    char16_t passed[] = u"TOLMEK_NESTED=passed";
    passed_macros = list_add(nullptr, passed);
    passed_macro_count = 1;
    EXPECT_EQ(spawn(u"tolmek-test /F " + s.path("sub.mak") + u" TOLMEK_NESTED=word"), (ran{0, 0}));
    free(passed_macros);
    passed_macros = nullptr;
    passed_macro_count = 0;
    char16_t *value = get_env(u"TOLMEK_NESTED");
    EXPECT_EQ(to_utf8(value), "passed");
    free(value);
    set_env(u"TOLMEK_NESTED", nullptr);
}

} // namespace
