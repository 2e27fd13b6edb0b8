// Child processes on POSIX: exit codes and signals, files that are no
// programs, and the failures that spawn_command hands back apart from exit codes.
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

} // namespace
