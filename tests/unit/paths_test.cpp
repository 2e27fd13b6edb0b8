// Paths: directory parts, full paths folded against a base, and split_path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "platform/paths.h"
#include "platform/system.h"
#include "unit/test_text.h"

namespace {

TEST(PathsTest, DirectoryPartDropsItsSeparatorExceptAtARoot) {
    struct row {
        const char16_t *path, *directory;
    };
    const row rows[] = {
        {u"name", u""},        {u"\\name", u"\\"},
        {u"/name", u"/"},      {u"dir\\sub\\name", u"dir\\sub"},
        {u"dir/name", u"dir"}, {u"c:\\name", u"c:\\"},
        {u"c:name", u"c:"},    {u"dir\\", u"dir"},
        {u"c:\\", u"c:\\"},    {u"", u""},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(to_utf8(r.path));
        char16_t *directory = dir_of_path(r.path);
        EXPECT_EQ(to_utf8(directory), to_utf8(r.directory));
        free(directory);
    }
    EXPECT_EQ(dir_of_path(nullptr), nullptr);
}

TEST(PathsTest, FullPathFoldsDotsAgainstTheBase) {
    struct row {
        const char16_t *name, *base, *full;
    };
    const row rows[] = {
        {u"a.c", u"c:\\src", u"c:\\src\\a.c"},
        {u"sub\\a.c", u"c:\\src\\", u"c:\\src\\sub\\a.c"},
        {u".\\a\\.\\b", u"c:\\x", u"c:\\x\\a\\b"},
        {u"a\\\\b\\", u"c:\\x", u"c:\\x\\a\\b"},  // doubled and trailing separators
        {u"a/b", u"/usr/src", u"/usr/src\\a\\b"}, // the base keeps its slashes
        {u"..\\y", u"c:\\x\\w", u"c:\\x\\y"},
        {u"..", u"c:\\x", u"c:"},       // one level below the root
        {u"..\\y", u"c:\\", u"c:\\y"},  // the root's separator comes back
        {u"..\\b", u"\\x", u"b"},       // the step stops at the start
        {u"..\\a\\b", u"", u"\\"},      // above the top: the root, no more
        {u"..\\..\\z", u"c:\\x", u"z"}, // the second step eats the drive
        {u".hidden\\..x", u"d", u"d\\.hidden\\..x"},
        {u"", u"c:\\x", u"c:\\x"},
        {u"a", u"", u"a"},                            // empty base: relative
        {u"\\abs\\..\\x", u"c:\\y", u"\\abs\\..\\x"}, // absolute names stay unfolded
        {u"/abs", u"c:\\y", u"/abs"},
        {u"c:..\\x", u"d:\\y", u"c:..\\x"},
        {u"\u00E9:x", u"d:\\y", u"\u00E9:x"}, // a letter of the locale
        {u"1:x", u"d:\\y", u"d:\\y\\1:x"},    // a digit is no drive
    };
    for (const row &r : rows) {
        SCOPED_TRACE(to_utf8(r.name) + " on " + to_utf8(r.base));
        char16_t *full = make_full_path(r.name, r.base);
        EXPECT_EQ(to_utf8(full), to_utf8(r.full));
        free(full);
    }
}

TEST(PathsTest, SplitPathGivesDriveDirectoryBaseAndExtension) {
    struct row {
        const char16_t *path, *drive, *directory, *base, *extension;
    };
    const row rows[] = {
        {u"c:\\dir\\name.ext", u"c:", u"\\dir\\", u"name", u".ext"},
        {u"c:\\dir.x\\name", u"c:", u"\\dir.x\\", u"name", u""},
        {u"dir/a.b.c", u"", u"dir/", u"a.b", u".c"},
        {u".profile", u"", u"", u"", u".profile"},
        {u"name.", u"", u"", u"name", u"."},
        {u"c:", u"c:", u"", u"", u""},
        {u"x", u"", u"", u"x", u""},
        {u"", u"", u"", u"", u""},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(to_utf8(r.path));
        // Filled with a mark first, so that a missing terminator shows.
        char16_t drive[3] = {u'#', u'#', u'#'}, directory[PATH_PART], base[PATH_PART],
                 extension[PATH_PART];
        std::fill(directory, directory + PATH_PART, u'#');
        std::fill(base, base + PATH_PART, u'#');
        std::fill(extension, extension + PATH_PART, u'#');
        split_path(r.path, drive, directory, base, extension);
        EXPECT_EQ(to_utf8(drive), to_utf8(r.drive));
        EXPECT_EQ(to_utf8(directory), to_utf8(r.directory));
        EXPECT_EQ(to_utf8(base), to_utf8(r.base));
        EXPECT_EQ(to_utf8(extension), to_utf8(r.extension));
    }
}

TEST(PathsTest, SplitPathCutsPartsAndSkipsMissingOutputs) {
    std::u16string long_path = std::u16string(300, u'd') + u"\\" + std::u16string(300, u'n') +
                               u"." + std::u16string(300, u'e');
    char16_t directory[PATH_PART], base[PATH_PART], extension[PATH_PART];
    split_path(long_path.c_str(), nullptr, directory, base, extension);
    EXPECT_EQ(str_len(directory), PATH_PART - 1);
    EXPECT_EQ(str_len(base), PATH_PART - 1);
    EXPECT_EQ(str_len(extension), PATH_PART - 1);
    EXPECT_EQ(extension[0], u'.');
    char16_t only_base[PATH_PART];
    split_path(u"a\\b.c", nullptr, nullptr, only_base, nullptr);
    EXPECT_EQ(to_utf8(only_base), "b");
}

} // namespace
