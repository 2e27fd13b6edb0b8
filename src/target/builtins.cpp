// Predefined rules, macros and suffixes, entered through the ordinary
// operations so that afterwards they are in no way special.
#include <cstddef>

#include "macro/macro.h"
#include "run/make.h"
#include "target/update.h"

namespace {

struct builtin_rule {
    const char16_t *name;
    const char16_t *command;
};

constexpr builtin_rule builtin_rules[] = {
    {u".c.exe", u"$(CC) $(CFLAGS) $<"},      {u".c.obj", u"$(CC) $(CFLAGS) /c $<"},
    {u".cpp.exe", u"$(CPP) $(CPPFLAGS) $<"}, {u".cpp.obj", u"$(CPP) $(CPPFLAGS) /c $<"},
    {u".cxx.exe", u"$(CXX) $(CXXFLAGS) $<"}, {u".cxx.obj", u"$(CXX) $(CXXFLAGS) /c $<"},
    {u".asm.obj", u"$(AS) $(AFLAGS) $*"},    {u".rc.res", u"$(RC) $(RFLAGS) $*"},
};

struct builtin_macro {
    const char16_t *name;
    const char16_t *value;
};

constexpr builtin_macro builtin_macros[] = {
    {u"CC", u"cc"},   {u"CPP", u"cl"},   {u"CXX", u"cl"},      {u"AS", u"quarn"},
    {u"RC", u"mesk"}, {u"AR", u"dorbi"}, {u"LINK", u"sarkel"},
};

constexpr const char16_t *builtin_suffixes[] = {u".exe", u".obj", u".asm", u".c",  u".cpp",
                                                u".cxx", u".res", u".rc",  u".lib"};

void add_builtin_rule(const char16_t *name, const char16_t *text) {
    void *targets[2] = {add_target(name), nullptr};
    void *commands[2] = {add_command(text), nullptr};
    attach_to_targets(targets, nullptr, commands);
}

void add_builtin_suffixes() {
    void *targets[2] = {add_target(u".SUFFIXES"), nullptr};
    void *suffixes[sizeof builtin_suffixes / sizeof builtin_suffixes[0] + 1] = {};
    size_t n = 0;
    for (const char16_t *suffix : builtin_suffixes)
        suffixes[n++] = add_file(suffix);
    attach_to_targets(targets, suffixes, nullptr);
}

} // namespace

void define_builtins() {
    for (const builtin_rule &r : builtin_rules)
        add_builtin_rule(r.name, r.command);
    for (const builtin_macro &m : builtin_macros)
        set_macro(m.name, m.value, 0);
    add_builtin_suffixes();
    set_macro(u"MAKE", program_name, 0);
    set_macro(u"MAKEDIR", start_dir, 0);
}
